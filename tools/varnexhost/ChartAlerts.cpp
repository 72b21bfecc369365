#include "ChartAlerts.h"

#include "AlertKinds.h"
#include "HostError.h"
#include "alerting/AlertLine.h"
#include "alerting/AlertMessage.h"

#include <nlohmann/json.hpp>

namespace varnex::host
{

namespace
{

std::string Shown(std::string_view text)
{
    return ToUtf8(Printable(FromUtf8(text)));
}

// The local time that the store keeps for people: it is the machine's own, as the time of the samples is.
std::optional<ChartMoment> LocalTimeOf(const std::string& line)
{
    const std::vector<std::string_view> fields = SplitText(line, ';');
    const std::string_view time = fields.size() > 3 ? fields[3] : std::string_view();
    const std::size_t nOpen = time.find('(');
    const bool bClosed = nOpen != std::string_view::npos && time.back() == ')';
    return bClosed ? ParseMoment(time.substr(nOpen + 1, time.size() - nOpen - 2)) : std::nullopt;
}

std::optional<ChartAlert> AlertOfLine(const std::string& line)
{
    VARNEX_ALERT_BUF record = {};
    const std::optional<ChartMoment> moment = LocalTimeOf(line);
    if (!moment || ParseAlertLine(line.c_str(), &record) != 0)
    {
        return std::nullopt;
    }
    const std::string detail = record.AlertType == ALERT_TYPE_MEMORY ? "" : Shown(record.ResourceName);
    MarkPagingFileAlert(record);
    return ChartAlert{*moment, static_cast<unsigned>(record.AlertType), record.Value, record.Threshold, detail};
}

std::optional<ChartAlert> AlertOfObject(const nlohmann::json& object)
{
    constexpr std::size_t TIME_LENGTH = 19;
    try
    {
        const std::string text = object.at("text").get<std::string>();
        const std::optional<ChartMoment> moment = ParseMoment(std::string_view(text).substr(0, TIME_LENGTH));
        if (!moment)
        {
            return std::nullopt;
        }
        const std::string detail = text.size() > TIME_LENGTH + 2 ? text.substr(TIME_LENGTH + 2) : "";
        return ChartAlert{*moment, object.at("type").get<unsigned>(), object.at("value").get<int>(),
                          object.at("threshold").get<int>(), Shown(detail)};
    }
    catch (const nlohmann::json::exception&)
    {
        return std::nullopt;
    }
}

void Add(ChartAlerts& found, std::optional<ChartAlert> alert)
{
    if (alert)
    {
        found.alerts.push_back(*std::move(alert));
        return;
    }
    ++found.nUnreadable;
}

ChartAlerts AlertsOfJson(const std::string& text, const std::string& name)
{
    const nlohmann::json list = nlohmann::json::parse(text, nullptr, false);
    if (!list.is_array())
    {
        throw HostError(FromUtf8(name) + L" begins as JSON does, but is not a whole list of alerts.");
    }
    ChartAlerts found;
    for (const nlohmann::json& object : list)
    {
        Add(found, AlertOfObject(object));
    }
    return found;
}

ChartAlerts AlertsOfStore(const std::string& text)
{
    ChartAlerts found;
    std::string_view rest;
    for (const std::string_view line : SplitLines(text, rest))
    {
        if (!line.empty())
        {
            Add(found, AlertOfLine(std::string(line)));
        }
    }
    found.nUnreadable += rest.empty() ? 0 : 1; // a line without an end is torn
    return found;
}

} // namespace

ChartAlerts ReadAlertFile(const std::string& text, const std::string& name)
{
    const std::size_t nStart = text.find_first_not_of(" \t\r\n");
    if (nStart != std::string::npos && text[nStart] == '[')
    {
        return AlertsOfJson(text, name);
    }
    ChartAlerts found = AlertsOfStore(text);
    if (found.alerts.empty() && found.nUnreadable != 0)
    {
        throw HostError(FromUtf8(name) +
                        L" holds no alerts: it is neither LocalAlt.dat nor saved from varnexhost alerts --json.");
    }
    return found;
}

std::string AlertText(const ChartAlert& alert)
{
    return ToUtf8(AlertKindName(alert.nType) + L" " + AlertAmount(alert.nType, alert.nValue) + L", threshold " +
                  AlertAmount(alert.nType, alert.nThreshold)) +
           (alert.detail.empty() ? "" : ", " + alert.detail);
}

} // namespace varnex::host
