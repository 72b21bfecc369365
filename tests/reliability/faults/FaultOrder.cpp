#include "FaultOrder.h"

#include "support/TestText.h"

#include <cstdlib>
#include <sstream>

namespace varnex::test
{

namespace
{

std::string ReadVariable(const wchar_t* pwszName)
{
    std::wstring value(GetEnvironmentVariableW(pwszName, nullptr, 0), L'\0');
    value.resize(value.empty() ? 0 : GetEnvironmentVariableW(pwszName, value.data(), static_cast<DWORD>(value.size())));
    return Utf8FromWide(value);
}

FailMode ModeOf(const std::string& name)
{
    return name == NameOf(FailMode::FromThereOn) ? FailMode::FromThereOn : FailMode::Once;
}

} // namespace

std::string FaultPoint::Text() const
{
    return target + " " + NameOf(mode) + " " + std::to_string(ullCall);
}

FaultPoint FaultPoint::OfText(const std::string& text)
{
    FaultPoint point;
    std::string mode;
    std::istringstream(text) >> point.target >> mode >> point.ullCall;
    point.mode = ModeOf(mode);
    return point;
}

// Six lines.
std::wstring FaultOrder::Text() const
{
    std::string text = NameOf(mode) + ("\n" + std::to_string(ullPoints)) + "\n" + std::to_string(nLogLevel) + "\n" +
                       (last.ullCall == 0 ? "" : last.Text()) + "\n" + sabotage + "\n";
    for (const std::string& target : targets)
    {
        text += target + " ";
    }
    return WideFromUtf8(text);
}

FaultOrder FaultOrder::OfThisProcess()
{
    std::istringstream text(ReadVariable(FAULT_ORDER_VARIABLE));
    FaultOrder order;
    std::string line;
    std::getline(text, line);
    order.mode = ModeOf(line);
    std::getline(text, line);
    order.ullPoints = std::strtoull(line.c_str(), nullptr, 10);
    std::getline(text, line);
    order.nLogLevel = std::atoi(line.c_str());
    std::getline(text, line);
    order.last = FaultPoint::OfText(line);
    std::getline(text, order.sabotage);
    for (std::string target; text >> target;)
    {
        order.targets.push_back(target);
    }
    return order;
}

} // namespace varnex::test
