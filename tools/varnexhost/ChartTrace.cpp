#include "ChartTrace.h"

#include "HostError.h"

#include <algorithm>
#include <charconv>

namespace varnex::host
{

namespace
{

constexpr std::string_view HEADER_START = "Time\t";

std::optional<std::int64_t> ParseNumber(std::string_view text)
{
    std::int64_t nNumber = 0;
    const auto [pEnd, error] = std::from_chars(text.data(), text.data() + text.size(), nNumber);
    const bool bWhole = !text.empty() && error == std::errc() && pEnd == text.data() + text.size();
    return bWhole ? std::optional<std::int64_t>(nNumber) : std::nullopt;
}

std::optional<TraceRow> ParseRow(std::string_view line)
{
    const std::vector<std::string_view> fields = SplitText(line, '\t');
    std::optional<ChartMoment> moment = ParseMoment(fields.front());
    if (!moment || fields.size() < 2)
    {
        return std::nullopt;
    }
    TraceRow row{*std::move(moment), {}};
    for (std::size_t i = 1; i < fields.size(); ++i)
    {
        const std::optional<std::int64_t> nValue = ParseNumber(fields[i]);
        if (!nValue)
        {
            return std::nullopt;
        }
        row.values.push_back(*nValue);
    }
    return row;
}

// The header's second column is empty; the data lines do not have it.
std::vector<std::string> ColumnsOf(std::string_view header)
{
    const std::vector<std::string_view> fields = SplitText(header, '\t');
    std::vector<std::string> columns;
    for (std::size_t i = 2; i < fields.size(); ++i)
    {
        columns.push_back(ToUtf8(Printable(FromUtf8(fields[i]))));
    }
    return columns;
}

bool IsNumbered(std::string_view column, std::string_view word)
{
    return column.substr(0, word.size()) == word && ParseNumber(column.substr(word.size()));
}

// An adapter's name may itself end in a dash and a number, and be anything else.
bool IsAdapter(std::string_view column)
{
    const std::size_t nDash = column.rfind('-');
    return nDash != std::string_view::npos && ParseNumber(column.substr(nDash + 1));
}

template <class Predicate>
bool AreAll(const std::vector<std::string>& columns, Predicate predicate)
{
    return !columns.empty() && std::all_of(columns.begin(), columns.end(), predicate);
}

std::optional<ChartResource> ResourceOf(const std::vector<std::string>& columns)
{
    if (columns == std::vector<std::string>{"Physical Mem", "Page File"})
    {
        return ChartResource::Memory;
    }
    if (AreAll(columns, [](const std::string& column) { return IsNumbered(column, "CPU"); }))
    {
        return ChartResource::Processors;
    }
    if (AreAll(columns, [](const std::string& column) { return IsNumbered(column, "Disk"); }))
    {
        return ChartResource::Disks;
    }
    return AreAll(columns, IsAdapter) ? std::optional<ChartResource>(ChartResource::Network) : std::nullopt;
}

} // namespace

std::optional<TraceFile> ReadTraceFile(const std::string& text, const std::string& name)
{
    std::string_view rest;
    const std::vector<std::string_view> lines = SplitLines(text, rest);
    const std::string_view header = lines.empty() ? rest : lines.front();
    if (ParseRow(header))
    {
        throw HostError(FromUtf8(name) + L" has samples but no header line: nobody can tell what they measure.");
    }
    if (header.substr(0, HEADER_START.size()) != HEADER_START)
    {
        return std::nullopt;
    }
    const std::vector<std::string> columns = ColumnsOf(header);
    const std::optional<ChartResource> resource = ResourceOf(columns);
    if (lines.empty() || !resource)
    {
        throw HostError(FromUtf8(name) +
                        L" begins as a trace file does, but its header is torn or names no resource of the module's.");
    }
    TraceFile trace{*resource, columns, {}, 0, !rest.empty()};
    for (std::size_t i = 1; i < lines.size(); ++i)
    {
        if (std::optional<TraceRow> row = ParseRow(lines[i]))
        {
            trace.rows.push_back(*std::move(row));
        }
        else if (!lines[i].empty() && lines[i] != header) // two files in one have a header each
        {
            ++trace.nUnreadable;
        }
    }
    return trace;
}

} // namespace varnex::host
