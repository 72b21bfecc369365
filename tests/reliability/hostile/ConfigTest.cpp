#include "HostileInput.h"
#include "reliability/LongForm.h"
#include "reliability/processes/ModuleInChild.h"

#include "common/BoundedText.h"
#include "config/DailyCounters.h"
#include "config/XmlConfig.h"
#include "diag/SPLogger.h"
#include "support/LogFile.h"
#include "support/ProcessMeter.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <utility>

namespace varnex::test
{

namespace
{

constexpr wchar_t TODAY[] = L"2026-01-31";
constexpr wchar_t CPU_PATH[] = L"KPMConfiguration/PkiAlertNum/CPU";
constexpr ULONGLONG PROMPT_MS = 5000;
constexpr ULONGLONG DAMAGED_PROMPT_MS = 2 * PROMPT_MS; // for twenty readings and seven saves
constexpr ULONGLONG LARGE_PROMPT_MS = 60'000;          // of ten megabytes, on a machine with ten times as much to do
constexpr std::size_t MORE_BYTES = 64 * 1024 * 1024;   // of documents of ten megabytes, some of which the heap keeps
constexpr std::size_t ENTITY_BYTES = 1024 * 1024;
constexpr std::size_t ENTITY_PEAK_BYTES = 16 * 1024 * 1024;
constexpr std::size_t LARGE_BYTES = 1'000'000; // twenty readings would take long

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

// An entity of ten digits, and each of the others ten times that before it.
std::string Entities(int nEntities)
{
    std::string document = "<!DOCTYPE KPMConfiguration [<!ENTITY a0 \"0123456789\">";
    for (int i = 1; i < nEntities; ++i)
    {
        const std::string former = "&a" + std::to_string(i - 1) + ";";
        document += "<!ENTITY a" + std::to_string(i) + " \"" + Repeated(former, 10) + "\">";
    }
    return document + "]><KPMConfiguration><PkiAlert><CPUInterval>&a" + std::to_string(nEntities - 1) +
           ";</CPUInterval></PkiAlert></KPMConfiguration>";
}

const std::string ROOT = "<KPMConfiguration>";
const std::string ROOT_END = "</KPMConfiguration>";
const std::string ALERT = "<PkiAlert><CPUInterval>";
const std::string ALERT_END = "</CPUInterval></PkiAlert>";

// What the log says of a document when its interval is asked for.
enum class Told
{
    Nothing, // it is read
    NotLoaded,
    NoNode
};

struct BadDocument
{
    std::string bytes;
    int nInterval;
    Told told;
};

std::string Deep(int nLevels)
{
    return ROOT + Repeated("<n>", nLevels) + Repeated("</n>", nLevels) + ALERT + "77" + ALERT_END + ROOT_END;
}

// Documents that somebody might put there, with what their interval reads as.
std::vector<BadDocument> Documents()
{
    constexpr int MANY = 100'000;
    return {
        {"", -1, Told::NotLoaded},
        {std::string(5000, '\0'), -1, Told::NotLoaded},
        {"\xEF\xBB\xBF", -1, Told::NotLoaded},
        {"<", -1, Told::NotLoaded},
        {ROOT, -1, Told::NotLoaded},
        {ROOT + ROOT_END, -1, Told::NoNode},
        {ROOT + ROOT_END + ROOT + ROOT_END, -1, Told::NotLoaded},
        {Wide(ROOT + ALERT + "77" + ALERT_END + ROOT_END), 77, Told::Nothing},
        {"<?xml version=\"1.0\" encoding=\"UTF-16\"?>" + ROOT + "\xC3(" + ROOT_END, -1, Told::NotLoaded},
        {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + ROOT + "\xC3(" + ROOT_END, -1, Told::NotLoaded},
        {"<?xml version=\"1.0\" encoding=\"no-such\"?>" + ROOT + ROOT_END, -1, Told::NotLoaded},
        {ROOT + ALERT + "99999999999999999999" + ALERT_END + ROOT_END, 2147483647, Told::Nothing},
        {ROOT + ALERT + "%s%n%s" + ALERT_END + ROOT_END, 0, Told::Nothing},
        {ROOT + ALERT + std::string(10'000'000, '7') + ALERT_END + ROOT_END, 2147483647, Told::Nothing},
        {ROOT + Repeated("<n/>", MANY) + ALERT + "77" + ALERT_END + ROOT_END, 77, Told::Nothing},
        {Deep(200), 77, Told::Nothing},
        {Deep(300), -1, Told::NotLoaded}, // more than Wine's parser takes
        {Deep(10'000), -1, Told::NotLoaded},
        {Deep(100'000), -1, Told::NotLoaded},
    };
}

const std::vector<std::string> RESOURCES = {"CPU", "Memory", "Disk", "Network"};
const std::vector<std::string> SETTINGS = {"Interval", "Threshold", "SamplingAmount", "MaxAlertNum"};

struct Readings
{
    int nOdd = 0;                     // results that are none of the documented ones
    std::vector<std::string> missing; // policy values that were not read
};

// All that the module reads of its configuration.
Readings ReadEverything()
{
    Readings readings;
    for (std::size_t nType = 0; nType < RESOURCES.size(); ++nType)
    {
        for (std::size_t nConf = 0; nConf < SETTINGS.size(); ++nConf)
        {
            if (GetAlertConfValue(static_cast<int>(nType + 1), static_cast<unsigned>(nConf + 1)) == -1)
            {
                readings.missing.push_back(RESOURCES[nType] + SETTINGS[nConf]);
            }
        }
    }
    int nLevel = 77;
    const int nLevelResult = GetLogLevel(&nLevel);
    readings.nOdd += nLevelResult == 0 || (nLevelResult == -1 && nLevel == 77) ? 0 : 1;
    const GuardedBytes value(sizeof(wchar_t) * 8);
    value.As<wchar_t>()[0] = L'\0';
    const int nNode = GetXMLNodeValue(L"", CPU_PATH, value.As<wchar_t>(), 8);
    readings.nOdd += nNode == 0 || nNode == XML_NODE_NOT_FOUND || FAILED(nNode) ? 0 : 1;
    readings.nOdd += wcsnlen(value.As<wchar_t>(), 8) < 8 ? 0 : 1;
    int nCount = 77;
    const int nCounted = GetAlertNumFromLocal(TODAY, ALERT_COUNTER_CPU, &nCount);
    readings.nOdd += nCounted == 0 || nCount == 77 ? 0 : 1;
    return readings;
}

ULONGLONG LongestReading(const std::string& document)
{
    return document.size() < LARGE_BYTES ? PROMPT_MS : LARGE_PROMPT_MS;
}

std::size_t PeakWorkingSet()
{
    PROCESS_MEMORY_COUNTERS counters{};
    REQUIRE(K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters));
    REQUIRE(counters.PeakWorkingSetSize != 0);
    return counters.PeakWorkingSetSize;
}

class ConfigUnderAttack
{
public:
    ConfigUnderAttack() : m_module(tree.ModulePath())
    {
        Log()->Configure(AnsiFromWide(tree.LogsPath()).c_str(), "Varnex");
        Log()->Level = 1;
    }

    // The messages since the last time, each with its level.
    std::vector<std::string> TakeLog()
    {
        std::vector<std::string> texts;
        const LogFile log(tree);
        for (const LogLine& line : log.Lines())
        {
            texts.push_back("[" + std::to_string(line.nLevel) + "] " + line.text);
        }
        DeleteFileW(tree.InLogs(L"Varnex.log").c_str());
        return texts;
    }

    std::string ConfigPath() const { return AnsiFromWide(tree.InBin(L"KpmCfg.xml")); }
    std::string NotLoaded() const
    {
        return "[1] GetAlertConfValue -- DocumentPtr load file(" + ConfigPath() + ") failed(0x00000000)";
    }
    std::string NoNode(const std::string& name) const
    {
        return "[1] GetAlertConfValue -- Not found matching node(KPMConfiguration/PkiAlert/" + name + "), XMLfile(" +
               ConfigPath() + ")";
    }
    std::vector<std::string> Expected(Told told, const std::string& name) const
    {
        switch (told)
        {
        case Told::NotLoaded:
            return {NotLoaded()};
        case Told::NoNode:
            return {NoNode(name)};
        case Told::Nothing:
            break;
        }
        return {};
    }

    ModuleTree tree;

private:
    ModuleInChild m_module;
};

// Some text in place of a digit: of any damage, few leave a document that loads.
std::string WithOddText(std::string document, FuzzRun& run)
{
    const std::vector<std::string> texts = {"", "x", "%s%n", ";", " ", "-", "99999999999", "&amp;", "\xC3\xA4", "\n"};
    std::vector<std::size_t> digits;
    for (std::size_t i = document.find("<KPMConfiguration"); i < document.size(); ++i)
    {
        if (document[i] >= '0' && document[i] <= '9')
        {
            digits.push_back(i);
        }
    }
    return document.replace(digits.at(run.Upto(digits.size() - 1)), 1, texts[run.Upto(texts.size() - 1)]);
}

// Reads a damaged document. Whether it is one that loads; the log names each value that was not read.
bool ReadDamaged(ConfigUnderAttack& config)
{
    Log()->Level = 1;
    const Readings readings = ReadEverything();
    REQUIRE(readings.nOdd == 0);
    const std::vector<std::string> log = config.TakeLog();
    if (std::find(log.begin(), log.end(), config.NotLoaded()) != log.end())
    {
        // The level is one more.
        REQUIRE(log == std::vector<std::string>(RESOURCES.size() * SETTINGS.size() + 1, config.NotLoaded()));
        return false;
    }
    std::vector<std::string> expected;
    for (const std::string& name : readings.missing)
    {
        expected.push_back(config.NoNode(name));
    }
    REQUIRE(log == expected);
    return true;
}

// Saves a count; whether that went well. One that is refused is told with the reason.
bool SaveInto(ConfigUnderAttack& config)
{
    Log()->Level = 2;
    const int nResult = SaveAlertNumIntoLocal(TODAY, ALERT_COUNTER_CPU, 9);
    char szRefused[128];
    FormatTextA(szRefused,
                "[2] SaveAlertNumIntoLocal -- Set type(%d) alert number(9) failed, date(2026-01-31), error "
                "code(0x%08x)",
                ALERT_COUNTER_CPU, nResult);
    const std::vector<std::string> log = config.TakeLog();
    const bool bTold = std::find(log.begin(), log.end(), szRefused) != log.end();
    CAPTURE(log);
    REQUIRE(bTold == (nResult != 0));
    return nResult == 0;
}

// Reads the interval and what else there might be of a document; how long the first reading took.
ULONGLONG CheckReading(ConfigUnderAttack& config, const BadDocument& document)
{
    config.tree.WriteConfigText(document.bytes);
    const ULONGLONG ullBegin = GetTickCount64();
    CHECK(GetAlertConfValue(1, 1) == document.nInterval);
    const ULONGLONG ullTook = GetTickCount64() - ullBegin;
    CHECK(ullTook < LongestReading(document.bytes));
    CHECK(config.TakeLog() == config.Expected(document.told, "CPUInterval"));
    const bool bLoads = document.told != Told::NotLoaded;
    CHECK(GetAlertConfValue(4, 4) == -1); // none of them has this one, nor a level
    CHECK(config.TakeLog() == config.Expected(bLoads ? Told::NoNode : Told::NotLoaded, "NetworkMaxAlertNum"));
    int nLevel = 77;
    CHECK(GetLogLevel(&nLevel) == -1);
    CHECK(nLevel == 77);
    CHECK(config.TakeLog() == config.Expected(bLoads ? Told::Nothing : Told::NotLoaded, ""));
    if (document.bytes.size() < LARGE_BYTES)
    {
        CHECK(ReadEverything().nOdd == 0);
    }
    config.TakeLog();
    CHECK(ReadFileBytes(config.tree.InBin(L"KpmCfg.xml")) == document.bytes);
    return ullTook;
}

} // namespace

TEST_CASE("configurations of every bad kind give the documented values, in bounded time, and a line in the log")
{
    ConfigUnderAttack config;
    ULONGLONG ullLongest = 0;
    int nLongest = 0;
    int nDocument = 0;
    const std::size_t cbBefore = PrivateBytes();
    for (const BadDocument& document : Documents())
    {
        CAPTURE(nDocument, document.bytes.substr(0, 200));
        ++nDocument;
        const ULONGLONG ullTook = CheckReading(config, document);
        nLongest = ullTook > ullLongest ? nDocument : nLongest;
        ullLongest = (std::max)(ullLongest, ullTook);
    }
    CHECK(PrivateBytes() < cbBefore + MORE_BYTES); // what a reading takes it gives back
    PrintFigure("hostile configurations: " + std::to_string(nDocument) + " kinds; longest reading " +
                std::to_string(ullLongest) + " ms, of kind " + std::to_string(nLongest));
}

TEST_CASE("a document type with entities within entities is refused at once, whatever it would grow to")
{
    ConfigUnderAttack config;
    config.tree.WriteConfigText(ROOT + ROOT_END); // what the first document costs for good is no entity's
    GetAlertConfValue(1, 1);
    config.TakeLog();
    const std::size_t cbBefore = PrivateBytes();
    const std::size_t cbPeakBefore = PeakWorkingSet();
    constexpr int ENTITIES = 20;
    const ULONGLONG ullTook = CheckReading(config, {Entities(ENTITIES), -1, Told::NotLoaded});
    const std::size_t cbAfter = PrivateBytes();
    const std::size_t cbPeak = PeakWorkingSet();
    CAPTURE(cbBefore, cbAfter, cbPeakBefore, cbPeak);
    CHECK(cbAfter <= cbBefore + ENTITY_BYTES);
    CHECK(cbPeak <= cbPeakBefore + ENTITY_PEAK_BYTES);
    PrintFigure("hostile configurations: " + std::to_string(ENTITIES) + " levels of entities answered in " +
                std::to_string(ullTook) + " ms, private bytes " + std::to_string(cbBefore) + " -> " +
                std::to_string(cbAfter) + ", peak working set " + std::to_string(cbPeakBefore) + " -> " +
                std::to_string(cbPeak));
}

TEST_CASE("a document type with an entity of others is read, and with one more level of them it is refused")
{
    ConfigUnderAttack config;
    CheckReading(config, {Entities(1), 123456789, Told::Nothing});
    CheckReading(config, {Entities(2), 2147483647, Told::Nothing});
    CheckReading(config, {Entities(3), -1, Told::NotLoaded}); // by Wine's parser
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
    ULONGLONG ullLongest = 0;
    while (run.Next())
    {
        const std::string document = run.Cases() % 4 == 0 ? WithOddText(good, run) : Mutated(good, words, run, 1);
        CAPTURE(run.Cases(), document);
        config.tree.WriteConfigText(document);
        const ULONGLONG ullBegin = GetTickCount64();
        const bool bLoads = ReadDamaged(config);
        REQUIRE(ReadFileBytes(config.tree.InBin(L"KpmCfg.xml")) == document);
        if (SaveInto(config))
        {
            int nCount = 77;
            REQUIRE(GetAlertNumFromLocal(TODAY, ALERT_COUNTER_CPU, &nCount) == 0);
            REQUIRE(nCount == 9);
            REQUIRE(bLoads);
            ++nSaved;
        }
        else
        {
            REQUIRE(ReadFileBytes(config.tree.InBin(L"KpmCfg.xml")) == document);
            ++nRefused;
        }
        const ULONGLONG ullTook = GetTickCount64() - ullBegin;
        REQUIRE(ullTook < DAMAGED_PROMPT_MS);
        ullLongest = (std::max)(ullLongest, ullTook);
    }
    CHECK(nSaved > 0);
    CHECK(nRefused > 0);
    CHECK(PrivateBytes() < cbBefore + MORE_BYTES);
    PrintFigure("hostile configurations: " + std::to_string(nSaved) + " damaged ones saved and read back, " +
                std::to_string(nRefused) + " refused and left as they were; longest round " +
                std::to_string(ullLongest) + " ms");
}

} // namespace varnex::test
