#include "SampleText.h"

#include "Text.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace varnex::host
{

namespace
{

using Json = nlohmann::ordered_json;

constexpr std::size_t NAME_CHARS = 44;
constexpr std::size_t NUMBER_CHARS = 14;

bool AllWereRead(const std::vector<SourceSample>& samples) noexcept
{
    return std::all_of(samples.begin(), samples.end(), [](const SourceSample& sample) { return sample.WasRead(); });
}

std::wstring ValueLine(const SampleValue& value)
{
    std::wstring name = L"  " + value.name + L", " + value.quantity;
    name.resize(std::max(name.size(), NAME_CHARS), L' ');
    const std::wstring number = std::to_wstring(value.nValue);
    const std::wstring padding(number.size() < NUMBER_CHARS ? NUMBER_CHARS - number.size() : 0, L' ');
    return name + padding + number + L" " + value.unit + L"\n";
}

std::wstring FaultLines(const SampleFault& fault)
{
    std::wstring text = L"  FAILED: " + fault.what + L".\n";
    if (!fault.code.empty())
    {
        text += L"    The system says: " + fault.code + (fault.text.empty() ? L"" : L": " + fault.text) + L"\n";
    }
    return text + L"    What to do: " + fault.remedy + L"\n";
}

std::wstring Paragraph(const SourceSample& sample)
{
    std::wstring text = sample.name + (sample.WasRead() ? L": read\n" : L": not read, or not all of it\n");
    for (const SampleValue& value : sample.values)
    {
        text += ValueLine(value);
    }
    for (const SampleFault& fault : sample.faults)
    {
        text += FaultLines(fault);
    }
    for (const std::wstring& note : sample.notes)
    {
        text += L"  " + note + L"\n";
    }
    return text;
}

Json FaultAsJson(const SampleFault& fault)
{
    return {{"what", ToUtf8(fault.what)},
            {"code", fault.code.empty() ? Json() : Json(ToUtf8(fault.code.substr(0, fault.code.find(L' '))))},
            {"text", ToUtf8(fault.text)},
            {"remedy", ToUtf8(fault.remedy)}};
}

Json SourceAsJson(const SourceSample& sample)
{
    Json values = Json::array();
    for (const SampleValue& value : sample.values)
    {
        values.push_back({{"name", ToUtf8(value.name)},
                          {"quantity", ToUtf8(value.quantity)},
                          {"value", value.nValue},
                          {"unit", ToUtf8(value.unit)}});
    }
    Json faults = Json::array();
    std::transform(sample.faults.begin(), sample.faults.end(), std::back_inserter(faults), FaultAsJson);
    Json notes = Json::array();
    std::transform(sample.notes.begin(), sample.notes.end(), std::back_inserter(notes), ToUtf8);
    return {{"source", ToUtf8(sample.name)},
            {"read", sample.WasRead()},
            {"values", values},
            {"failures", faults},
            {"notes", notes}};
}

} // namespace

std::wstring SamplesAsTable(const std::vector<SourceSample>& samples)
{
    std::wstring text;
    for (const SourceSample& sample : samples)
    {
        text += Paragraph(sample) + L"\n";
    }
    return text + (AllWereRead(samples) ? L"All four sources can be read.\n"
                                        : L"The module misses what failed; the rest works without it.\n");
}

std::wstring SamplesAsJson(const std::vector<SourceSample>& samples)
{
    Json sources = Json::array();
    std::transform(samples.begin(), samples.end(), std::back_inserter(sources), SourceAsJson);
    const Json object = {{"read", AllWereRead(samples)}, {"sources", sources}};
    return FromUtf8(object.dump(2, ' ', false, Json::error_handler_t::replace)) + L"\n";
}

} // namespace varnex::host
