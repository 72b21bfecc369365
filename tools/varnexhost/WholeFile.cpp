#include "WholeFile.h"

#include "HostError.h"
#include "common/Handles.h"
#include "common/WriteWhole.h"

namespace varnex::host
{

namespace
{

[[noreturn]] void ThrowFileError(const std::filesystem::path& file, const wchar_t* pwszFailure, DWORD dwError)
{
    throw HostError(file.wstring() + pwszFailure + SystemErrorText(dwError));
}

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

std::string ReadWholeFile(const std::filesystem::path& file)
{
    const UniqueFile source(CreateFileW(file.c_str(), GENERIC_READ,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!source)
    {
        ThrowFileError(file, L" cannot be opened: ", GetLastError());
    }
    std::string bytes;
    for (;;)
    {
        constexpr DWORD cbPiece = 1048576;
        const std::size_t cbSoFar = bytes.size();
        bytes.resize(cbSoFar + cbPiece);
        DWORD cbRead = 0;
        if (!ReadFile(source.Get(), &bytes[cbSoFar], cbPiece, &cbRead, nullptr))
        {
            ThrowFileError(file, L" cannot be read: ", GetLastError());
        }
        bytes.resize(cbSoFar + cbRead);
        if (cbRead == 0)
        {
            return bytes;
        }
    }
}

void WriteWholeFile(const std::filesystem::path& file, const std::string& bytes)
{
    UniqueFile target(CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!target)
    {
        ThrowFileError(file, L" cannot be made: ", GetLastError());
    }
    DWORD dwError = WriteWhole(target.Get(), bytes.data(), bytes.size());
    if (!target.Close() && dwError == ERROR_SUCCESS)
    {
        dwError = GetLastError();
    }
    if (dwError != ERROR_SUCCESS)
    {
        DeleteFileW(file.c_str());
        ThrowFileError(file, L" cannot be written: ", dwError);
    }
}

void ReplaceWholeFile(const std::filesystem::path& file, const std::string& bytes)
{
    // The ending is not one that a textfile collector looks at.
    const std::filesystem::path next = file.wstring() + L"." + std::to_wstring(GetCurrentProcessId()) + L".tmp";
    WriteWholeFile(next, bytes);
    const DWORD dwError = MoveInPlace(next, file);
    if (dwError != ERROR_SUCCESS)
    {
        DeleteFileW(next.c_str());
        ThrowFileError(file, L" cannot be replaced: ", dwError);
    }
}

} // namespace varnex::host
