#pragma once

#include "common/Handles.h"

#include <array>
#include <cstddef>

namespace varnex
{

// Reads a text file line by line as a text-mode stream does (CR LF becomes LF), but takes a byte 0x1A as data, and
// knows where in the file it stands.
class LineReader
{
public:
    // The file is read in such pieces, long ones for the sake of few calls. The piece lies in the reader, which is made
    // for a host's thread's stack: with the records of a fetch it stays under 64 KiB.
    static constexpr std::size_t PIECE_BYTES = 49'152;

    // hFile: open for reading, from where it stands; the caller's, who closes it after the reader's last use.
    explicit LineReader(HANDLE hFile) noexcept : m_hFile(hFile) {}

    // The next line with its "\n", at most cchLine - 1 characters of it, or an empty text at the end of the file or
    // when it cannot be read.
    void ReadLine(char* pszLine, std::size_t cchLine) noexcept;

    // Whether nothing is left, or nothing that can be read: Error tells which.
    bool AtEnd() noexcept;
    // The system error of a read that failed, else ERROR_SUCCESS.
    DWORD Error() const noexcept { return m_dwError; }

    // Copies all that is left, unchanged, to another file. ERROR_SUCCESS or the system error.
    DWORD CopyRestTo(HANDLE hTarget) noexcept;

private:
    int Peek(std::size_t nAhead) noexcept;
    bool Fill() noexcept;

    HANDLE m_hFile;
    std::array<char, PIECE_BYTES> m_buffer;
    std::size_t m_nNext = 0;
    std::size_t m_nFilled = 0;
    DWORD m_dwError = ERROR_SUCCESS;
};

// What a file needs before the next line, so that a torn last line does not swallow it: an empty text for a file that
// is empty or ends in a line feed; a whole line end for one whose end cannot be read.
const char* MissingLineEnd(HANDLE hFile) noexcept;

} // namespace varnex
