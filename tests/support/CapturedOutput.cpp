#include "support/CapturedOutput.h"

#include "support/ScriptScope.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <cstdio>

namespace varnex::test
{

namespace
{

constexpr int STANDARD_OUTPUT = 1;

// A file that takes the place of the standard output and is gone at the end. It is a binary one, so that line ends
// stand in it as they were printed.
class OutputFile
{
public:
    OutputFile()
    {
        wchar_t wszDirectory[MAX_PATH];
        wchar_t wszFile[MAX_PATH];
        REQUIRE(GetTempPathW(MAX_PATH, wszDirectory) != 0);
        REQUIRE(GetTempFileNameW(wszDirectory, L"out", 0, wszFile) != 0);
        m_nFile = _wopen(wszFile, _O_RDWR | _O_BINARY | _O_TEMPORARY | _O_TRUNC, _S_IREAD | _S_IWRITE);
        REQUIRE(m_nFile != -1);
        std::fflush(stdout);
        m_nSaved = _dup(STANDARD_OUTPUT);
        REQUIRE(m_nSaved != -1);
        REQUIRE(_dup2(m_nFile, STANDARD_OUTPUT) == 0);
    }
    ~OutputFile()
    {
        const UnscriptedScope unscripted;
        std::fflush(stdout);
        _dup2(m_nSaved, STANDARD_OUTPUT);
        _close(m_nSaved);
        _close(m_nFile);
    }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::string ReadAll() const
    {
        std::fflush(stdout);
        _lseek(m_nFile, 0, SEEK_SET);
        std::string text;
        char achPiece[1024];
        for (int cbRead = 1; cbRead > 0;)
        {
            cbRead = _read(m_nFile, achPiece, sizeof achPiece);
            text.append(achPiece, static_cast<std::size_t>(cbRead > 0 ? cbRead : 0));
        }
        return text;
    }

private:
    int m_nFile = -1;
    int m_nSaved = -1;
};

} // namespace

std::string CaptureOutput(const std::function<void()>& action)
{
    const UnscriptedScope unscripted;
    const OutputFile file;
    {
        const ScriptedScope scripted;
        action();
    }
    return file.ReadAll();
}

} // namespace varnex::test
