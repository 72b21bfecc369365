#pragma once

#include "ConsoleStream.h"

#include <cstdint>
#include <string>

namespace varnex::host
{

// One line that always shows the present state, below the lines that stay. On a console it is rewritten in place;
// elsewhere it is printed now and then, so that a captured output stays readable.
class ConsoleStatus
{
public:
    explicit ConsoleStatus(const ConsoleStream& stream) noexcept;

    // Shows the state; elsewhere than on a console at the first call and then at most every 30 seconds.
    void Show(const std::wstring& text);

    // Prints a line that stays; the next Show brings the status back below it.
    void PrintLine(const std::wstring& text);

    // Takes the status off the console.
    void Clear();

private:
    void ShowInPlace(const std::wstring& text);

    const ConsoleStream& m_stream;
    std::size_t m_cchShown = 0;
    bool m_bPrinted = false;
    std::uint64_t m_nPrintedTick = 0;
};

} // namespace varnex::host
