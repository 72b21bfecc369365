#include "support/TestFiles.h"

#include "support/ScriptScope.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace varnex::test
{

namespace fs = std::filesystem;

std::string ReadFileBytes(const std::wstring& path)
{
    const UnscriptedScope unscripted;
    std::ifstream file(fs::path(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void WriteFileBytes(const std::wstring& path, const std::string& bytes)
{
    const UnscriptedScope unscripted;
    std::ofstream file(fs::path(path), std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file)
    {
        FAIL("Cannot write " << Utf8FromWide(path));
    }
}

bool FileExists(const std::wstring& path)
{
    const UnscriptedScope unscripted;
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::wstring OwnProgramPath()
{
    const UnscriptedScope unscripted;
    wchar_t wszPath[32768];
    const DWORD cchPath = GetModuleFileNameW(nullptr, wszPath, 32768);
    return std::wstring(wszPath, cchPath);
}

std::wstring ProgramDirectory()
{
    const UnscriptedScope unscripted;
    return fs::path(OwnProgramPath()).parent_path().wstring();
}

} // namespace varnex::test
