#include "ConsoleStream.h"

#include "HostError.h"
#include "Text.h"

#include <algorithm>

namespace varnex::host
{

namespace
{

bool AnswersAsConsole(HANDLE hStream) noexcept
{
    DWORD dwMode = 0;
    return GetConsoleMode(hStream, &dwMode) != FALSE;
}

} // namespace

ConsoleStream::ConsoleStream(DWORD dwStandardHandle) noexcept
    : m_hStream(GetStdHandle(dwStandardHandle)), m_bConsole(AnswersAsConsole(m_hStream))
{
}

void ConsoleStream::Write(std::wstring_view text) const
{
    if (!TryWrite(text))
    {
        const DWORD dwError = GetLastError();
        throw HostError(L"The output cannot be written: " + SystemErrorText(dwError));
    }
}

bool ConsoleStream::TryWrite(std::wstring_view text) const
{
    return m_bConsole ? WriteToConsole(text) : WriteToFile(text);
}

unsigned ConsoleStream::Columns() const noexcept
{
    CONSOLE_SCREEN_BUFFER_INFO screen = {};
    if (!m_bConsole || !GetConsoleScreenBufferInfo(m_hStream, &screen) || screen.dwSize.X <= 0)
    {
        return 80;
    }
    return static_cast<unsigned>(screen.dwSize.X);
}

bool ConsoleStream::WriteToConsole(std::wstring_view text) const noexcept
{
    constexpr std::size_t cchMost = 8192; // older consoles refuse more than 64 KB at once
    while (!text.empty())
    {
        DWORD cchWritten = 0;
        const std::size_t cchWanted = std::min(text.size(), cchMost);
        if (!WriteConsoleW(m_hStream, text.data(), static_cast<DWORD>(cchWanted), &cchWritten, nullptr) ||
            cchWritten == 0)
        {
            return false;
        }
        text.remove_prefix(cchWritten);
    }
    return true;
}

bool ConsoleStream::WriteToFile(std::wstring_view text) const
{
    const std::string utf8 = ToUtf8(text);
    std::string_view rest = utf8;
    while (!rest.empty())
    {
        DWORD cbWritten = 0;
        if (!WriteFile(m_hStream, rest.data(), static_cast<DWORD>(rest.size()), &cbWritten, nullptr) || cbWritten == 0)
        {
            return false;
        }
        rest.remove_prefix(cbWritten);
    }
    return true;
}

const ConsoleStream& StandardOutput()
{
    static const ConsoleStream stream(STD_OUTPUT_HANDLE);
    return stream;
}

const ConsoleStream& StandardError()
{
    static const ConsoleStream stream(STD_ERROR_HANDLE);
    return stream;
}

} // namespace varnex::host
