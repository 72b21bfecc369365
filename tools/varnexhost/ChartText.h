#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varnex::host
{

// The texts that a chart is made of; UTF-8 throughout.

// A local time as the module writes it.
struct ChartMoment
{
    std::string day; // "2026-01-31"
    int nSecond = 0; // since midnight
};

// A whole file in UTF-8: from UTF-16 or UTF-8 with their marks (a shell's redirection makes such files), from UTF-8
// without one, else from the system's ANSI code page. Throws HostError.
std::string ReadTextFile(const std::filesystem::path& file);

// Nothing but a whole "2026-01-31 23:59:59" is a moment.
std::optional<ChartMoment> ParseMoment(std::string_view text);

// "2026-01-31"
bool IsDay(std::string_view text);

// "23:59:59"
std::string ClockText(int nSecond);

// The fields between the separators; one more than there are separators.
std::vector<std::string_view> SplitText(std::string_view text, char chSeparator);

// The whole lines, without their ends; what follows the last line end is not one of them and comes back in rest.
std::vector<std::string_view> SplitLines(std::string_view text, std::string_view& rest);

// For text and quoted attributes. Control characters but line feeds become question marks.
std::string EscapeHtml(std::string_view text);

// "3 samples", "1 sample"
std::string CountText(std::size_t nCount, const char* pszNoun);

} // namespace varnex::host
