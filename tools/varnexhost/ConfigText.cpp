#include "ConfigText.h"

#include "Text.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace varnex::host
{

namespace
{

using Json = nlohmann::ordered_json;

std::wstring Padded(std::wstring text, std::size_t cchWidth)
{
    text.resize(std::max(text.size(), cchWidth), L' ');
    return text;
}

std::wstring Origin(const ConfigNumber& number, int nLine)
{
    return number.IsFromFile() ? L"file, line " + std::to_wstring(nLine) : L"default: " + ReasonForDefault(number);
}

std::wstring NumberLine(const ConfigNumber& number, int nLine)
{
    const std::wstring amount = std::to_wstring(number.nInForce) + (number.unit.empty() ? L"" : L" " + number.unit);
    return L"  " + Padded(number.name, 24) + Padded(amount, 20) + Origin(number, nLine) + L"\n";
}

std::wstring DayText(const DayCounts& day)
{
    std::wstring text = L"Alerts today, " + day.today + L":";
    for (const DayCount& count : day.counts)
    {
        text += (&count == &day.counts.front() ? L" " : L", ") + count.name + L" " + std::to_wstring(count.nInForce) +
                L" of " + std::to_wstring(std::max(count.nMost, 0));
    }
    text += L"\n";
    if (!day.bToday)
    {
        text += day.date.empty() ? L"  No alert was counted yet.\n"
                                 : L"  The counts in the file are of " + Printable(day.date) +
                                       L"; the first alert of today begins anew.\n";
    }
    return text;
}

std::wstring FindingsText(const ConfigReport& report, bool bProblem, const wchar_t* pwszTitle)
{
    std::wstring text;
    for (const ConfigFinding& finding : report.findings)
    {
        if (finding.bProblem == bProblem)
        {
            text += L"  " + (finding.nLine != 0 ? L"line " + std::to_wstring(finding.nLine) + L": " : L"") +
                    finding.text + L"\n";
        }
    }
    return text.empty() ? L"" : L"\n" + std::wstring(pwszTitle) + L"\n" + text;
}

Json NumberAsJson(const ConfigNumber& number, int nLine)
{
    Json object;
    object["name"] = ToUtf8(number.name);
    object["inForce"] = number.nInForce;
    if (!number.unit.empty())
    {
        object["unit"] = ToUtf8(number.unit);
    }
    object["origin"] = number.IsFromFile() ? "file" : "default";
    object["reason"] = number.IsFromFile() ? Json() : Json(ToUtf8(ReasonForDefault(number)));
    object["text"] = number.text ? Json(ToUtf8(*number.text)) : Json();
    object["line"] = nLine != 0 ? Json(nLine) : Json();
    return object;
}

Json DayAsJson(const DayCounts& day)
{
    Json object;
    object["today"] = ToUtf8(day.today);
    object["dateInFile"] = ToUtf8(day.date);
    for (const DayCount& count : day.counts)
    {
        object["counts"][ToUtf8(count.name)] = {{"today", count.nInForce}, {"limit", count.nMost}};
    }
    return object;
}

Json FindingsAsJson(const ConfigReport& report, bool bProblem)
{
    Json array = Json::array();
    for (const ConfigFinding& finding : report.findings)
    {
        if (finding.bProblem == bProblem)
        {
            array.push_back(
                {{"line", finding.nLine != 0 ? Json(finding.nLine) : Json()}, {"text", ToUtf8(finding.text)}});
        }
    }
    return array;
}

} // namespace

bool ConfigReport::HasProblems() const noexcept
{
    return std::any_of(findings.begin(), findings.end(), [](const ConfigFinding& finding) { return finding.bProblem; });
}

std::wstring ConfigReportAsTable(const ConfigReport& report)
{
    std::wstring text = report.file + L"\n";
    if (!report.tree.fault)
    {
        text += L"\nValues in force:\n";
        for (const PolicyNumber& number : report.reading.policy)
        {
            text += NumberLine(number, LineOfValue(report.tree, L"PkiAlert", number.name));
        }
        const ConfigNumber& level = report.reading.logLevel;
        text += L"Log:\n" + NumberLine(level, LineOfValue(report.tree, L"VarnexLog", level.name));
        text += DayText(report.reading.day);
    }
    text += FindingsText(report, true, L"Problems: this will not do what its writer meant");
    text += FindingsText(report, false, L"Good to know");
    return text + (report.HasProblems() ? L"" : L"\nNo problem found.\n");
}

std::wstring ConfigReportAsJson(const ConfigReport& report)
{
    Json object;
    object["file"] = ToUtf8(report.file);
    object["loads"] = !report.tree.fault.has_value();
    if (!report.tree.fault)
    {
        object["policy"] = Json::array();
        for (const PolicyNumber& number : report.reading.policy)
        {
            object["policy"].push_back(NumberAsJson(number, LineOfValue(report.tree, L"PkiAlert", number.name)));
        }
        const ConfigNumber& level = report.reading.logLevel;
        object["logLevel"] = NumberAsJson(level, LineOfValue(report.tree, L"VarnexLog", level.name));
        object["alerts"] = DayAsJson(report.reading.day);
    }
    object["problems"] = FindingsAsJson(report, true);
    object["notes"] = FindingsAsJson(report, false);
    return FromUtf8(object.dump(2, ' ', false, Json::error_handler_t::replace)) + L"\n";
}

} // namespace varnex::host
