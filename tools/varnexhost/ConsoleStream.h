#pragma once

#include <string_view>

#include <windows.h>

namespace varnex::host
{

// Standard output or standard error. A console is given UTF-16, so its code page is neither needed nor changed; a file
// or a pipe is given UTF-8.
class ConsoleStream
{
public:
    explicit ConsoleStream(DWORD dwStandardHandle) noexcept;

    // Throws HostError when the text cannot be written: an alert that nobody can see must not be fetched.
    void Write(std::wstring_view text) const;

    // For the last words: a failure has nowhere left to be reported.
    bool TryWrite(std::wstring_view text) const;

    bool IsConsole() const noexcept { return m_bConsole; }

    // The characters that fit in one line of the console; 80 where there is none to ask.
    unsigned Columns() const noexcept;

private:
    bool WriteToConsole(std::wstring_view text) const noexcept;
    bool WriteToFile(std::wstring_view text) const;

    HANDLE m_hStream; // the process's own, not closed here
    bool m_bConsole;
};

const ConsoleStream& StandardOutput();
const ConsoleStream& StandardError();

} // namespace varnex::host
