#include "PrometheusFile.h"

#include "HostError.h"
#include "WholeFile.h"

namespace varnex::host
{

namespace
{

constexpr DWORD PATIENCE_MS = 2000;
constexpr DWORD PAUSE_MS = 50;

bool MayPass(DWORD dwError) noexcept
{
    return dwError == ERROR_ACCESS_DENIED || dwError == ERROR_SHARING_VIOLATION;
}

// ERROR_SUCCESS, or why the file is not in its place.
DWORD MoveInPlace(const std::filesystem::path& next, const std::filesystem::path& file) noexcept
{
    const std::uint64_t nBegin = GetTickCount64();
    for (;;)
    {
        if (MoveFileExW(next.c_str(), file.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        {
            return ERROR_SUCCESS;
        }
        const DWORD dwError = GetLastError();
        if (!MayPass(dwError) || GetTickCount64() - nBegin > PATIENCE_MS)
        {
            return dwError;
        }
        Sleep(PAUSE_MS);
    }
}

} // namespace

void ReplaceExposition(const std::filesystem::path& file, const std::string& bytes)
{
    // The ending is not one that a textfile collector looks at.
    const std::filesystem::path next = file.wstring() + L"." + std::to_wstring(GetCurrentProcessId()) + L".tmp";
    WriteWholeFile(next, bytes);
    const DWORD dwError = MoveInPlace(next, file);
    if (dwError != ERROR_SUCCESS)
    {
        DeleteFileW(next.c_str());
        throw HostError(file.wstring() + L" cannot be replaced: " + SystemErrorText(dwError));
    }
}

} // namespace varnex::host
