#include "ConsoleStatus.h"

namespace varnex::host
{

namespace
{

constexpr std::uint64_t PRINT_INTERVAL_MS = 30000;

} // namespace

ConsoleStatus::ConsoleStatus(const ConsoleStream& stream) noexcept : m_stream(stream) {}

void ConsoleStatus::Show(const std::wstring& text)
{
    if (m_stream.IsConsole())
    {
        ShowInPlace(text);
        return;
    }
    const std::uint64_t nTick = GetTickCount64();
    if (!m_bPrinted || nTick - m_nPrintedTick >= PRINT_INTERVAL_MS)
    {
        m_bPrinted = true;
        m_nPrintedTick = nTick;
        m_stream.Write(text + L"\n");
    }
}

void ConsoleStatus::PrintLine(const std::wstring& text)
{
    Clear();
    m_stream.Write(text + L"\n");
}

void ConsoleStatus::Clear()
{
    if (m_cchShown != 0)
    {
        m_stream.Write(L"\r" + std::wstring(m_cchShown, L' ') + L"\r");
        m_cchShown = 0;
    }
}

void ConsoleStatus::ShowInPlace(const std::wstring& text)
{
    // The last column stays free: a full line would move the cursor to the next one.
    std::wstring line = text.substr(0, m_stream.Columns() - 1);
    const std::size_t cchText = line.size();
    if (cchText < m_cchShown)
    {
        line.append(m_cchShown - cchText, L' ');
    }
    m_stream.Write(L"\r" + line);
    m_cchShown = cchText;
}

} // namespace varnex::host
