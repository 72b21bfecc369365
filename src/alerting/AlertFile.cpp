#include "alerting/AlertFile.h"

#include "common/LastError.h"
#include "common/WriteWhole.h"

#include <cstring>

namespace varnex
{

bool LineReader::Fill() noexcept
{
    std::memmove(m_buffer.data(), m_buffer.data() + m_nNext, m_nFilled - m_nNext);
    m_nFilled -= m_nNext;
    m_nNext = 0;
    DWORD cbRead = 0;
    if (!ReadFile(m_hFile, m_buffer.data() + m_nFilled, static_cast<DWORD>(m_buffer.size() - m_nFilled), &cbRead,
                  nullptr))
    {
        m_dwError = LastErrorOr(ERROR_GEN_FAILURE);
        return false;
    }
    m_nFilled += cbRead;
    return cbRead != 0;
}

// The character that many places ahead, or -1 behind the last one.
int LineReader::Peek(std::size_t nAhead) noexcept
{
    while (m_nNext + nAhead >= m_nFilled)
    {
        if (m_dwError != ERROR_SUCCESS || !Fill())
        {
            return -1;
        }
    }
    return static_cast<unsigned char>(m_buffer[m_nNext + nAhead]);
}

bool LineReader::AtEnd() noexcept
{
    return Peek(0) < 0;
}

void LineReader::ReadLine(char* pszLine, std::size_t cchLine) noexcept
{
    std::size_t cchRead = 0;
    while (cchRead + 1 < cchLine)
    {
        int nCharacter = Peek(0);
        if (nCharacter < 0)
        {
            break;
        }
        if (nCharacter == '\r' && Peek(1) == '\n')
        {
            ++m_nNext;
            nCharacter = '\n';
        }
        ++m_nNext;
        pszLine[cchRead++] = static_cast<char>(nCharacter);
        if (nCharacter == '\n')
        {
            break;
        }
    }
    pszLine[cchRead] = '\0';
}

DWORD LineReader::CopyRestTo(HANDLE hTarget) noexcept
{
    while (!AtEnd())
    {
        const DWORD dwError = WriteWhole(hTarget, m_buffer.data() + m_nNext, m_nFilled - m_nNext);
        if (dwError != ERROR_SUCCESS)
        {
            return dwError;
        }
        m_nNext = m_nFilled;
    }
    return m_dwError;
}

const char* MissingLineEnd(HANDLE hFile) noexcept
{
    constexpr const char* UNKNOWN_END = "\r\n"; // an empty line is skipped, a torn one would swallow the next
    LARGE_INTEGER nLast;
    nLast.QuadPart = -1;
    char chLast = '\n';
    DWORD cbRead = 0;
    if (!SetFilePointerEx(hFile, nLast, nullptr, FILE_END))
    {
        return GetLastError() == ERROR_NEGATIVE_SEEK ? "" : UNKNOWN_END;
    }
    if (!ReadFile(hFile, &chLast, 1, &cbRead, nullptr) || cbRead != 1)
    {
        return UNKNOWN_END;
    }
    if (chLast == '\n')
    {
        return "";
    }
    return chLast == '\r' ? "\n" : "\r\n";
}

} // namespace varnex
