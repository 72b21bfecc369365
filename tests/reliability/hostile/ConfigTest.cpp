#include "HostileInput.h"
#include "reliability/LongForm.h"
#include "reliability/processes/ModuleInChild.h"

#include "config/DailyCounters.h"
#include "config/XmlConfig.h"
#include "diag/SPLogger.h"
#include "support/LogFile.h"
#include "support/ProcessMeter.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <utility>

namespace varnex::test
{

namespace
{

constexpr wchar_t TODAY[] = L"2026-01-31";
constexpr wchar_t CPU_PATH[] = L"KPMConfiguration/PkiAlertNum/CPU";
constexpr ULONGLONG PROMPT_MS = 5000;
// Of ten megabytes; the long form may run on a machine with ten times as much to do as it can.
constexpr ULONGLONG LARGE_PROMPT_MS = 10'000;
constexpr ULONGLONG LONG_FORM_LARGE_PROMPT_MS = 60'000;
constexpr std::size_t MORE_BYTES = 64 * 1024 * 1024; // of documents of ten megabytes, some of which the heap keeps
constexpr std::size_t LARGE_BYTES = 1'000'000;       // twenty readings would take long

std::string Wide(const std::string& text)
{
    std::string bytes = "\xFF\xFE";
    for (const char ch : text)
    {
        bytes += {ch, '\0'};
    }
    return bytes;
}

std::string Repeated(const std::string& text, int nTimes)
{
    std::string all;
    all.reserve(text.size() * static_cast<std::size_t>(nTimes));
    for (int i = 0; i < nTimes; ++i)
    {
        all += text;
    }
    return all;
}

std::string Entities()
{
    std::string document = "<!DOCTYPE KPMConfiguration [<!ENTITY a0 \"0123456789\">";
    for (int i = 1; i < 20; ++i)
    {
        const std::string former = "&a" + std::to_string(i - 1) + ";";
        document += "<!ENTITY a" + std::to_string(i) + " \"" + Repeated(former, 10) + "\">";
    }
    return document + "]><KPMConfiguration><PkiAlert><CPUInterval>&a19;</CPUInterval></PkiAlert></KPMConfiguration>";
}

const std::string ROOT = "<KPMConfiguration>";
const std::string ROOT_END = "</KPMConfiguration>";
const std::string ALERT = "<PkiAlert><CPUInterval>";
const std::string ALERT_END = "</CPUInterval></PkiAlert>";

// Documents that somebody might put there, with what their interval reads as.
std::vector<std::pair<std::string, int>> Documents()
{
    constexpr int MANY = 100'000;
    return {
        {"", -1},
        {std::string(5000, '\0'), -1},
        {"\xEF\xBB\xBF", -1},
        {"<", -1},
        {ROOT, -1},
        {ROOT + ROOT_END + ROOT + ROOT_END, -1},
        {Wide(ROOT + ALERT + "77" + ALERT_END + ROOT_END), 77},
        {"<?xml version=\"1.0\" encoding=\"UTF-16\"?>" + ROOT + "\xC3(" + ROOT_END, -1},
        {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + ROOT + "\xC3(" + ROOT_END, -1},
        {"<?xml version=\"1.0\" encoding=\"no-such\"?>" + ROOT + ROOT_END, -1},
        {ROOT + ALERT + "99999999999999999999" + ALERT_END + ROOT_END, 2147483647},
        {ROOT + ALERT + "%s%n%s" + ALERT_END + ROOT_END, 0},
        {ROOT + ALERT + std::string(10'000'000, '7') + ALERT_END + ROOT_END, 2147483647},
        {ROOT + Repeated("<n/>", MANY) + ALERT + "77" + ALERT_END + ROOT_END, 77},
        {ROOT + Repeated("<n>", 200) + Repeated("</n>", 200) + ALERT + "77" + ALERT_END + ROOT_END, 77},
    };
}

// All that the module reads of its configuration; results that are none of the documented ones are counted.
int ReadEverything()
{
    int nOdd = 0;
    for (int nType = 1; nType <= 4; ++nType)
    {
        for (unsigned nConf = 1; nConf <= 4; ++nConf)
        {
            GetAlertConfValue(nType, nConf); // any number is one
        }
    }
    int nLevel = 77;
    const int nLevelResult = GetLogLevel(&nLevel);
    nOdd += nLevelResult == 0 || (nLevelResult == -1 && nLevel == 77) ? 0 : 1;
    const GuardedBytes value(sizeof(wchar_t) * 8);
    value.As<wchar_t>()[0] = L'\0';
    const int nNode = GetXMLNodeValue(L"", CPU_PATH, value.As<wchar_t>(), 8);
    nOdd += nNode == 0 || nNode == XML_NODE_NOT_FOUND || FAILED(nNode) ? 0 : 1;
    nOdd += wcsnlen(value.As<wchar_t>(), 8) < 8 ? 0 : 1;
    int nCount = 77;
    const int nCounted = GetAlertNumFromLocal(TODAY, ALERT_COUNTER_CPU, &nCount);
    nOdd += nCounted == 0 || nCount == 77 ? 0 : 1;
    return nOdd;
}

ULONGLONG LongestReading(const std::string& document)
{
    if (document.size() < LARGE_BYTES)
    {
        return PROMPT_MS;
    }
    return IsLongForm() ? LONG_FORM_LARGE_PROMPT_MS : LARGE_PROMPT_MS;
}

class ConfigUnderAttack
{
public:
    ConfigUnderAttack() : m_module(tree.ModulePath())
    {
        Log()->Configure(AnsiFromWide(tree.LogsPath()).c_str(), "Varnex");
        Log()->Level = 1;
    }

    ModuleTree tree;

private:
    ModuleInChild m_module;
};

} // namespace

TEST_CASE("configurations of every bad kind give the documented values, in bounded time, and a line in the log")
{
    ConfigUnderAttack config;
    ULONGLONG ullLongest = 0;
    int nLongest = 0;
    int nDocument = 0;
    const std::size_t cbBefore = PrivateBytes();
    for (const auto& [document, nInterval] : Documents())
    {
        CAPTURE(nDocument++, document.substr(0, 200));
        config.tree.WriteConfigText(document);
        const std::size_t nLines = LogFile(config.tree).Lines().size();
        const ULONGLONG ullBegin = GetTickCount64();
        CHECK(GetAlertConfValue(1, 1) == nInterval);
        const ULONGLONG ullTook = GetTickCount64() - ullBegin;
        CHECK(ullTook < LongestReading(document));
        nLongest = ullTook > ullLongest ? nDocument : nLongest;
        ullLongest = (std::max)(ullLongest, ullTook);
        CHECK(GetAlertConfValue(4, 4) == -1); // none of them has this one, nor a level
        int nLevel = 77;
        CHECK(GetLogLevel(&nLevel) == -1);
        CHECK(nLevel == 77);
        if (document.size() < LARGE_BYTES)
        {
            CHECK(ReadEverything() == 0);
        }
        CHECK(LogFile(config.tree).Lines().size() > nLines);
        CHECK(ReadFileBytes(config.tree.InBin(L"KpmCfg.xml")) == document);
    }
    CHECK(PrivateBytes() < cbBefore + MORE_BYTES); // what a reading takes it gives back
    PrintFigure("hostile configurations: " + std::to_string(nDocument) + " kinds; longest reading " +
                std::to_string(ullLongest) + " ms, of kind " + std::to_string(nLongest));
}

TEST_CASE("a document type with entities within entities is read or refused in bounded time and memory")
{
    ConfigUnderAttack config;
    config.tree.WriteConfigText(Entities());
    const ULONGLONG ullBegin = GetTickCount64();
    const int nInterval = GetAlertConfValue(1, 1);
    CHECK((nInterval == -1 || nInterval == 123456789 || nInterval == 2147483647 || nInterval == 0));
    CHECK(GetTickCount64() - ullBegin < PROMPT_MS);
}

TEST_CASE("a configuration with any damage is read to the end, and saving leaves the old file or a whole new one")
{
    ConfigUnderAttack config;
    const std::string good = ConfigBuilder()
                                 .SetPolicy("CPU", 60, 85, 5, 3)
                                 .SetLogLevel(4)
                                 .SetCounter("Date", "2026-01-31")
                                 .SetCounter("CPU", "3")
                                 .Build();
    const std::vector<std::string> words = {"<",
                                            ">",
                                            "&amp;",
                                            "<!DOCTYPE a [",
                                            "]]>",
                                            "<![CDATA[",
                                            "<?xml",
                                            "\xFF\xFE",
                                            "&#0;",
                                            "</KPMConfiguration>",
                                            "<PkiAlertNum/>",
                                            "encoding=\"UTF-16\""};
    const std::size_t cbBefore = PrivateBytes();
    FuzzRun run(15);
    int nSaved = 0;
    int nRefused = 0;
    while (run.Next())
    {
        const std::string document = Mutated(good, words, run, 1);
        CAPTURE(run.Cases(), document);
        config.tree.WriteConfigText(document);
        REQUIRE(ReadEverything() == 0);
        REQUIRE(ReadFileBytes(config.tree.InBin(L"KpmCfg.xml")) == document);
        if (SaveAlertNumIntoLocal(TODAY, ALERT_COUNTER_CPU, 9) == 0)
        {
            int nCount = 77;
            REQUIRE(GetAlertNumFromLocal(TODAY, ALERT_COUNTER_CPU, &nCount) == 0);
            REQUIRE(nCount == 9);
            ++nSaved;
        }
        else
        {
            REQUIRE(ReadFileBytes(config.tree.InBin(L"KpmCfg.xml")) == document);
            ++nRefused;
        }
    }
    CHECK(nSaved > 0);
    CHECK(nRefused > 0);
    CHECK(PrivateBytes() < cbBefore + MORE_BYTES);
    PrintFigure("hostile configurations: " + std::to_string(nSaved) + " damaged ones saved and read back, " +
                std::to_string(nRefused) + " refused and left as they were");
}

} // namespace varnex::test
