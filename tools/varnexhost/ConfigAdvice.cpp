#include "ConfigAdvice.h"

#include "ConfigNames.h"
#include "Text.h"

#include <algorithm>
#include <map>

namespace varnex::host
{

namespace
{

// How a text is made up from which a whole number is wanted.
enum class NumberForm
{
    Empty,
    NoNumber,
    Whole,    // a sign perhaps, digits, nothing else
    BeginsSo, // a number with something behind it
};

constexpr wchar_t BLANKS[] = L" \t\r\n";

struct NumberText
{
    NumberForm form = NumberForm::Empty;
    std::wstring digits; // without sign and leading zeros; "0" for nothing but zeros
    bool bNegative = false;

    // False when the digits are more than the module's number holds.
    bool Says(int nNumber) const
    {
        const bool bSameSign = bNegative ? nNumber <= 0 : nNumber >= 0;
        return bSameSign && digits == std::to_wstring(std::abs(static_cast<long long>(nNumber)));
    }
};

NumberText Dissect(const std::wstring& text)
{
    NumberText number;
    std::size_t nPlace = text.find_first_not_of(BLANKS);
    if (nPlace == std::wstring::npos)
    {
        return number;
    }
    number.bNegative = text[nPlace] == L'-';
    nPlace += text[nPlace] == L'-' || text[nPlace] == L'+' ? 1 : 0;
    const std::size_t nEnd = std::min(text.find_first_not_of(L"0123456789", nPlace), text.size());
    if (nEnd == nPlace)
    {
        number.form = NumberForm::NoNumber;
        return number;
    }
    const bool bMore = text.find_first_not_of(BLANKS, nEnd) != std::wstring::npos;
    number.form = bMore ? NumberForm::BeginsSo : NumberForm::Whole;
    number.digits = text.substr(nPlace, nEnd - nPlace);
    number.digits.erase(0, std::min(number.digits.find_first_not_of(L'0'), number.digits.size() - 1));
    return number;
}

std::wstring Quoted(const std::wstring& text)
{
    constexpr std::size_t cchMost = 40;
    const std::wstring shown = Printable(text);
    return L"\"" + (shown.size() > cchMost ? shown.substr(0, cchMost) + L"..." : shown) + L"\"";
}

std::wstring SpanText(long long nSeconds)
{
    return DurationText(static_cast<std::uint64_t>(nSeconds) * 1000);
}

class Adviser
{
public:
    Adviser(const ConfigTree& tree, const ConfigReading& reading) : m_tree(tree), m_reading(reading) {}

    std::vector<ConfigFinding> Run()
    {
        if (m_tree.root.name != CONFIG_ROOT)
        {
            AdviseOnRoot(); // and nothing below it: the module reads nothing there
            return m_findings;
        }
        AdviseOnSections();
        AdviseOnRepeatedValues();
        AdviseOnPolicy();
        AdviseOnLogLevel();
        AdviseOnDay();
        std::stable_sort(m_findings.begin(), m_findings.end(),
                         [](const ConfigFinding& first, const ConfigFinding& second)
                         { return first.nLine < second.nLine; });
        return m_findings;
    }

private:
    void Problem(int nLine, std::wstring text) { m_findings.push_back({true, nLine, std::move(text)}); }
    void Note(int nLine, std::wstring text) { m_findings.push_back({false, nLine, std::move(text)}); }

    void AdviseOnRoot();
    void AdviseOnSections();
    void AdviseOnUnknownSection(const ConfigElement& section);
    void AdviseOnUnknownValue(const ConfigSection& known, const ConfigElement& value);
    void AdviseOnAttributes(const ConfigElement& element);
    void AdviseOnRepeatedValues();
    void AdviseOnNumber(int nLine, const ConfigNumber& number);
    void AdviseOnPolicy();
    void AdviseOnRole(int nLine, const PolicyNumber& number);
    void AdviseOnDefault(int nLine, const PolicyNumber& number);
    void AdviseOnFirstJudgement(const PolicyNumber& interval, const PolicyNumber& amount);
    void AdviseOnLogLevel();
    void AdviseOnDay();

    const ConfigTree& m_tree;
    const ConfigReading& m_reading;
    std::vector<ConfigFinding> m_findings;
};

void Adviser::AdviseOnRoot()
{
    Problem(m_tree.root.nLine, L"The outermost element is " + m_tree.root.name + L", but has to be " + CONFIG_ROOT +
                                   L". The module reads nothing in this file, and all values are defaults.");
}

void Adviser::AdviseOnSections()
{
    AdviseOnAttributes(m_tree.root);
    for (const ConfigElement& section : m_tree.root.children)
    {
        const ConfigSection* pKnown = FindConfigSection(section.name);
        if (pKnown == nullptr)
        {
            AdviseOnUnknownSection(section);
            continue;
        }
        AdviseOnAttributes(section);
        for (const ConfigElement& value : section.children)
        {
            if (std::count(pKnown->values.begin(), pKnown->values.end(), value.name) == 0)
            {
                AdviseOnUnknownValue(*pKnown, value);
                continue;
            }
            AdviseOnAttributes(value);
        }
    }
}

void Adviser::AdviseOnUnknownSection(const ConfigElement& section)
{
    const std::wstring nearest = NearestName(section.name, ConfigSectionNames());
    if (const ConfigSection* pHome = FindSectionOfValue(section.name))
    {
        Problem(section.nLine,
                section.name + L" stands outside of its section: the module looks for it in " + pHome->name + L".");
    }
    else if (!nearest.empty())
    {
        Problem(section.nLine, section.name + L" is not known to the module, which reads nothing in it. " + nearest +
                                   L" is probably meant.");
    }
    else
    {
        Note(section.nLine, section.name + L" is not known to the module, which reads nothing in it.");
    }
}

void Adviser::AdviseOnUnknownValue(const ConfigSection& known, const ConfigElement& value)
{
    const ConfigSection* pHome = FindSectionOfValue(value.name);
    const std::wstring nearest = NearestName(value.name, known.values);
    const std::wstring advice = pHome != nullptr   ? L" The module looks for it in " + pHome->name + L"."
                                : !nearest.empty() ? L" " + nearest + L" is probably meant."
                                                   : L"";
    Problem(value.nLine, value.name + L" is not read in " + known.name + L"." + advice);
}

void Adviser::AdviseOnAttributes(const ConfigElement& element)
{
    for (const std::wstring& attribute : element.attributes)
    {
        Problem(element.nLine, L"The attribute " + attribute + L" of " + element.name +
                                   L" is not read: a value stands between the element's tags.");
    }
}

void Adviser::AdviseOnRepeatedValues()
{
    std::map<std::wstring, int> firstLines;
    for (const ConfigElement& section : m_tree.root.children)
    {
        if (FindConfigSection(section.name) == nullptr)
        {
            continue;
        }
        for (const ConfigElement& value : section.children)
        {
            const auto [found, bFirst] = firstLines.emplace(section.name + L"/" + value.name, value.nLine);
            if (!bFirst)
            {
                Problem(value.nLine, value.name +
                                         L" stands in the file more than once; the module reads the first, in "
                                         L"line " +
                                         std::to_wstring(found->second) + L".");
            }
        }
    }
}

// What was written, against what was read.
void Adviser::AdviseOnNumber(int nLine, const ConfigNumber& number)
{
    if (!number.text)
    {
        return;
    }
    const NumberText text = Dissect(*number.text);
    const std::wstring readAs =
        number.name + L": " + Quoted(*number.text) + L" is read as " + std::to_wstring(number.nRead);
    if (text.form == NumberForm::NoNumber)
    {
        Problem(nLine, number.name + L": " + Quoted(*number.text) + L" is not a number.");
    }
    else if (text.form != NumberForm::Empty && !text.Says(number.nRead))
    {
        Problem(nLine, readAs + L": it does not fit into the module's numbers.");
    }
    else if (text.form == NumberForm::BeginsSo)
    {
        Problem(nLine, readAs + L": only whole decimal numbers are known, and what follows one is left out.");
    }
}

void Adviser::AdviseOnPolicy()
{
    const std::vector<PolicyNumber>& policy = m_reading.policy;
    for (std::size_t i = 0; i < policy.size(); ++i)
    {
        const int nLine = LineOfValue(m_tree, L"PkiAlert", policy[i].name);
        AdviseOnNumber(nLine, policy[i]);
        if (policy[i].IsFromFile())
        {
            AdviseOnRole(nLine, policy[i]);
        }
        else
        {
            AdviseOnDefault(nLine, policy[i]);
        }
        if (policy[i].role == PolicyRole::SamplingAmount)
        {
            AdviseOnFirstJudgement(policy[i - 2], policy[i]); // a resource's four stand side by side
        }
    }
}

// Numbers that the module takes as they are, and what comes of them.
void Adviser::AdviseOnRole(int nLine, const PolicyNumber& number)
{
    const int nValue = number.nInForce;
    const std::wstring said = number.name + L": " + std::to_wstring(nValue) + L" ";
    switch (number.role)
    {
    case PolicyRole::Interval:
        if (nValue < 0)
        {
            Problem(nLine, said + L"means no pause at all between two measurements.");
        }
        break;
    case PolicyRole::Threshold:
        if (nValue < 0)
        {
            Problem(nLine, said + L"is reached by every measurement.");
        }
        else if (number.unit == L"%" && nValue > 100)
        {
            Problem(nLine, said + L"is never reached: it is a percentage.");
        }
        break;
    case PolicyRole::SamplingAmount:
        if (nValue < 0)
        {
            Problem(nLine, said + L"means that no average is ever made, and no alert raised.");
        }
        break;
    case PolicyRole::MaxAlertNum:
        if (nValue < 0)
        {
            Note(nLine, said + L"means that no alert is ever raised.");
        }
        break;
    }
}

void Adviser::AdviseOnDefault(int nLine, const PolicyNumber& number)
{
    if (number.role == PolicyRole::MaxAlertNum && number.text && Dissect(*number.text).Says(0))
    {
        Problem(nLine, number.name + L": 0 does not mean no alerts, but the default, " +
                           std::to_wstring(number.nInForce) +
                           L". For no alerts, do not start the monitor, or write -2.");
    }
}

void Adviser::AdviseOnFirstJudgement(const PolicyNumber& interval, const PolicyNumber& amount)
{
    constexpr long long DAY_SECONDS = 86400;
    const long long nSeconds =
        static_cast<long long>(interval.nInForce) * (static_cast<long long>(amount.nInForce) - 1);
    if (interval.nInForce > 0 && nSeconds > DAY_SECONDS)
    {
        Note(LineOfValue(m_tree, L"PkiAlert", amount.name), interval.name + L" (seconds) and " + amount.name +
                                                                L" together: the first judgement comes after " +
                                                                SpanText(nSeconds) + L" (hours:minutes:seconds).");
    }
}

void Adviser::AdviseOnLogLevel()
{
    const ConfigNumber& level = m_reading.logLevel;
    const int nLine = LineOfValue(m_tree, L"VarnexLog", level.name);
    AdviseOnNumber(nLine, level);
    if (level.text && !level.IsFromFile())
    {
        Problem(nLine, L"Level: " + std::to_wstring(level.nRead) +
                           L" is not a log level. There are 0 to 4; the log "
                           L"stays at " +
                           std::to_wstring(level.nInForce) + L".");
    }
    else if (level.nInForce == 0)
    {
        Note(nLine, L"Level: at 0 the module writes no log.");
    }
}

void Adviser::AdviseOnDay()
{
    if (!m_reading.day.bToday)
    {
        return; // what stands there counts no more
    }
    for (const DayCount& count : m_reading.day.counts)
    {
        const int nLine = LineOfValue(m_tree, L"PkiAlertNum", count.name);
        AdviseOnNumber(nLine, count);
        if (count.nInForce >= count.nMost && count.nMost > 0)
        {
            Note(nLine, count.name + L": today's alerts have reached their limit; there will be no more before "
                                     L"midnight.");
        }
    }
}

} // namespace

std::vector<ConfigFinding> AdviseOn(const ConfigTree& tree, const ConfigReading& reading)
{
    return Adviser(tree, reading).Run();
}

std::wstring ReasonForDefault(const ConfigNumber& number)
{
    if (number.IsFromFile())
    {
        return L"";
    }
    if (!number.text)
    {
        return L"missing";
    }
    switch (Dissect(*number.text).form)
    {
    case NumberForm::Empty:
        return L"empty";
    case NumberForm::NoNumber:
        return L"not a number";
    default:
        return std::to_wstring(number.nRead) + (number.name == L"Level" ? L" is no level" : L" stands for the default");
    }
}

int LineOfValue(const ConfigTree& tree, const std::wstring& section, const std::wstring& name)
{
    for (const ConfigElement& candidate : tree.root.children)
    {
        for (const ConfigElement& value : candidate.children)
        {
            if (candidate.name == section && value.name == name)
            {
                return value.nLine;
            }
        }
    }
    return 0;
}

} // namespace varnex::host
