#include "SourceFile.h"

#include <windows.h>

#include <cstdio>
#include <memory>

namespace varnex::winepdh
{

namespace
{

struct CloseFile
{
    void operator()(std::FILE* pFile) const noexcept { std::fclose(pFile); }
};

// Empty when the variable is not set.
std::wstring ReadEnvironment(const wchar_t* pwszVariable)
{
    std::wstring value(GetEnvironmentVariableW(pwszVariable, nullptr, 0), L'\0');
    // Another thread may have made it longer meanwhile: what does not fit now counts as not set.
    const DWORD cchValue = GetEnvironmentVariableW(pwszVariable, value.data(), static_cast<DWORD>(value.size()));
    value.resize(cchValue < value.size() ? cchValue : 0);
    return value;
}

} // namespace

std::optional<std::string> ReadTextFile(const wchar_t* pwszPath)
{
    // N keeps the handle from the host's child processes.
    const std::unique_ptr<std::FILE, CloseFile> file(_wfopen(pwszPath, L"rbN"));
    if (!file)
    {
        return std::nullopt;
    }
    // The files below /proc say that they are empty, so their size cannot be asked for.
    std::string text;
    char szBlock[4096];
    std::size_t cbBlock = 0;
    while ((cbBlock = std::fread(szBlock, 1, sizeof(szBlock), file.get())) != 0)
    {
        text.append(szBlock, cbBlock);
    }
    return std::ferror(file.get()) == 0 ? std::optional<std::string>(std::move(text)) : std::nullopt;
}

std::optional<std::string> ReadSource(const wchar_t* pwszVariable, const wchar_t* pwszDefaultPath)
{
    const std::wstring path = ReadEnvironment(pwszVariable);
    return ReadTextFile(path.empty() ? pwszDefaultPath : path.c_str());
}

} // namespace varnex::winepdh
