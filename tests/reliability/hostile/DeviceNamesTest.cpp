#include "HostileInput.h"
#include "reliability/LongForm.h"

#include "TimedMachine.h"

#include "support/HostAgent.h"
#include "support/LogFile.h"
#include "support/LogMatchers.h"
#include "support/TestText.h"
#include "support/XmlReader.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <algorithm>
#include <map>
#include <optional>

namespace varnex::test
{

namespace
{

using Names = std::vector<std::wstring>;
using Alerts = std::map<int, Names>; // sorted names by type

constexpr double HIGH_BYTES = 90.0 * 1048576;
constexpr double LOW_BYTES = 10.0 * 1048576;
constexpr DWORD HIGH_OCTETS = 90 * 1'250'000;
constexpr DWORD LOW_OCTETS = 10 * 1'250'000;
constexpr DWORD FIRST_CARD = 100; // interface index
constexpr unsigned PASS_SECONDS = 50;
constexpr unsigned REPORT_SECONDS = 10;
constexpr std::size_t MESSAGE_NAME_CHARS = 259; // of a name in an alert's text
constexpr std::size_t CARD_NAME_CHARS = 255;
constexpr std::size_t MAC_CHARS = 31; // in a report

const std::wstring LONG_NAME = L"4 " + std::wstring(300, L'x');
const std::wstring LONGER_NAME = L"5 " + std::wstring(600, L'y'); // no place in an 8-bit counter path
const std::wstring BROKEN_NAME = L"2 a\r\nb\nc";                  // three lines of the alert file, none an alert

// Two lines of the alert file, and the second one is an alert.
const std::wstring FORGING_NAME = L"6 d\r\n1;50;99;2000000000;;";

const Names HOSTILE = {L"0 %s%n%d%p", L"1 a;b;c", BROKEN_NAME, L"3 <&>\"'", L"\x1 \xFFFE",
                       L"\xD800 x",   L"y\xDC00", LONG_NAME,   LONGER_NAME, FORGING_NAME};

// As the 8-bit texts on the way have it: a mark for half a character.
std::wstring Converted(const std::wstring& name)
{
    return WideFromAnsi(AnsiFromWide(name));
}

// What a fetch says of a name, if the alert comes back at all.
std::optional<std::wstring> Fetched(const std::wstring& name)
{
    if (name == BROKEN_NAME || name == FORGING_NAME)
    {
        return std::nullopt;
    }
    return Converted(name.substr(0, name.find(L';')));
}

std::wstring DiskPath(const std::wstring& name)
{
    return L"\\PhysicalDisk(" + name + L")\\Disk Bytes/sec";
}

std::wstring CpuPath(const std::wstring& name)
{
    return L"\\Processor(" + name + L")\\% Processor Time";
}

// Each name above the threshold, others above it among them, and between any two of these one below it: a monitor has
// one state for all of its disks or adapters, which that one arms again.
Names AmongOthers(const Names& names)
{
    Names all;
    for (std::size_t i = 0; i < names.size(); ++i)
    {
        all.insert(all.end(), {names[i], L"low"});
        if (i % 3 == 0)
        {
            all.insert(all.end(), {L"good " + std::to_wstring(i), L"low"});
        }
    }
    return all;
}

bool IsLow(const std::wstring& name)
{
    return name == L"low";
}

// Each resource is measured once while PASS_SECONDS pass.
ConfigBuilder OnePass()
{
    ConfigBuilder config;
    for (const char* pszResource : {"CPU", "Memory", "Disk", "Network"})
    {
        config.SetPolicy(pszResource, 3600, 50, 1, 1000);
    }
    return config.SetLogLevel(4);
}

class NamedMachine : public TimedMachine
{
public:
    NamedMachine(const Names& processors, const Names& disks, const Names& cards) : TimedMachine(OnePass())
    {
        SetLoad(true);
        pdh.SetInstances(L"Processor", processors);
        for (const std::wstring& name : processors)
        {
            pdh.SetValue(CpuPath(name), 42.0);
        }
        pdh.SetInstances(L"PhysicalDisk", disks);
        for (const std::wstring& name : disks)
        {
            // The counter is asked for by the 8-bit name.
            pdh.SetValue(DiskPath(Converted(name)), IsLow(name) ? LOW_BYTES : HIGH_BYTES);
        }
        AddCards(cards);
    }

    void LiveOnce()
    {
        StartMonitors();
        StartReporting();
        clock.Advance(PASS_SECONDS);
        m_alerts = Fetch();
        TakeReport();
        Stop();
        CHECK(clock.Workers() == 0);
        CHECK(wmi.LiveObjects() == 0);
        CHECK(wmi.LiveTexts() == 0);
    }

    const Alerts& Fetched() const { return m_alerts; }
    const std::wstring& Report() const { return m_report; }

private:
    void AddCards(const Names& cards)
    {
        std::vector<WmiObject> adapters;
        for (const std::wstring& name : cards)
        {
            const auto nIndex = static_cast<LONG>(FIRST_CARD + adapters.size());
            WmiObject adapter = WmiAdapter(name, nIndex, WmiText(L"1000000000"));
            adapter[L"MACAddress"] = WmiText(name);
            adapters.push_back(adapter);
            const auto dwIndex = static_cast<DWORD>(nIndex);
            table.AddRow(dwIndex);
            table.SetOctets(dwIndex, 1, 1);
            table.MoveAtEachRead(dwIndex, IsLow(name) ? LOW_OCTETS : HIGH_OCTETS, 0);
        }
        wmi.SetObjects(adapters);
    }

    // The names behind time and host; empty for an alert without one.
    Alerts Fetch()
    {
        constexpr int MOST = 100;
        constexpr unsigned CCH_TEXT = 512;
        std::vector<int> types(MOST + 1);
        std::vector<int> thresholds(MOST + 1);
        std::vector<int> values(MOST + 1);
        std::vector<wchar_t*> pointers;
        std::vector<std::wstring> buffers(MOST + 1, std::wstring(CCH_TEXT, L'\0'));
        for (std::wstring& buffer : buffers)
        {
            pointers.push_back(buffer.data());
        }
        const int nCount = module.Export<decltype(::GetAlertRecord)>("GetAlertRecord")(
            types.data(), pointers.data(), CCH_TEXT, thresholds.data(), values.data(), MOST);
        REQUIRE(nCount <= MOST);
        Alerts alerts;
        for (std::size_t i = 0; i < static_cast<std::size_t>(nCount); ++i)
        {
            const std::wstring text = pointers[i];
            const std::size_t nName = text.find(L", ", text.find(L", ") + 2);
            alerts[types[i]].push_back(nName == std::wstring::npos ? L"" : text.substr(nName + 2));
            CHECK(thresholds[i] == 50);
            CHECK(values[i] >= 50);
        }
        for (auto& [nType, found] : alerts)
        {
            std::sort(found.begin(), found.end());
        }
        return alerts;
    }

    void TakeReport()
    {
        HostAgent agent(names.Key());
        agent.Ask(60, 1);
        REQUIRE(clock.AdvanceUntil([&agent] { return agent.TakeFinish(); }, REPORT_SECONDS));
        m_report = agent.Text();
    }

    Alerts m_alerts;
    std::wstring m_report;
};

// The names that a fetch gives back of those above the threshold, as they come out of the cut.
Names Expected(const Names& names, std::size_t cchCut)
{
    Names expected;
    for (const std::wstring& name : names)
    {
        const std::optional<std::wstring> fetched = IsLow(name) ? std::nullopt : Fetched(name);
        if (fetched)
        {
            expected.push_back(fetched->substr(0, cchCut));
        }
    }
    std::sort(expected.begin(), expected.end());
    return expected;
}

// As a report shows them.
Names AllReadable(const Names& names, std::size_t cchCut)
{
    Names readable;
    for (const std::wstring& name : names)
    {
        readable.push_back(Readable(name.substr(0, cchCut)));
    }
    return readable;
}

Names Throughputs(const Names& disks)
{
    Names throughputs;
    for (const std::wstring& name : disks)
    {
        // The sampler asks for a counter by the first 127 bytes of a name; of another disk all samples have failed.
        const double dBytes = name.size() > 127 ? 0 : IsLow(name) ? LOW_BYTES : HIGH_BYTES;
        throughputs.push_back(std::to_wstring(static_cast<long long>(dBytes)));
    }
    return throughputs;
}

void CheckReport(const std::wstring& text, const Names& processors, const Names& disks, const Names& cards)
{
    const XmlReader report = XmlReader::FromText(text);
    CHECK(report.Texts(L"ServerPKIInformation/CPUUtil/@Index") == AllReadable(processors, 1));
    CHECK(report.Count(L"ServerPKIInformation/MemoryUtil") == 1);
    CHECK(report.Texts(L"ServerPKIInformation/DiskUtil/@Index") == AllReadable(disks, 1));
    CHECK(report.Texts(L"ServerPKIInformation/DiskUtil/@Throughput") == Throughputs(disks));
    CHECK(report.Texts(L"ServerPKIInformation/NetworkUtil/@MACAddress") == AllReadable(cards, MAC_CHARS));
}

// What the log says of the processor whose counter has no place; of such a disk it says nothing. Nothing else of what
// it says may come from a name's percent signs.
void CheckLog(const LogFile& log)
{
    CHECK_THAT(log, !HasLineContaining("GetSingleDiskThroughput"));
    CHECK_THAT(log, HasLineContaining("GetSpecialCPUUtilization -- PdhAddCounterW(\\Processor(9 wwwwww"));
    CHECK_THAT(log, HasLineContaining("DiskName(0 %s%n%d%p), nAverageValue(90)"));
    CHECK_THAT(log, HasLineContaining("NICName(0 %s%n%d%p), nAverageValue("));
    CHECK_THAT(log, HasLineContaining("(CPU:0 %s%n%d%p) usage value(42)"));
}

// The lines that the names with line ends left behind: each is named by the fetch, for the disk and for the adapter. The
// LF of a name's CR LF became CR LF in the file.
std::size_t CheckBrokenLines(const LogFile& log)
{
    const std::string told = "ReadLocalAlertInf -- Translate buffer string(";
    CHECK(log.Count(1, told + "b") == 2);
    CHECK(log.Count(1, told + "c;") == 2);
    for (const char* pszBegin : {"3;50;90;", "4;50;"})
    {
        for (const char* pszEnd : {");2 a\r", ");6 d\r"})
        {
            CHECK(std::count_if(log.Lines().begin(), log.Lines().end(),
                                [&](const LogLine& line) {
                                    return line.text.rfind(told + pszBegin, 0) == 0 &&
                                           line.text.rfind(pszEnd) == line.text.size() - 6;
                                }) == 1);
        }
    }
    return log.CountContaining(told);
}

} // namespace

TEST_CASE("a life with hostile names of processors, disks and adapters harms no other name, and says what it left out")
{
    const Names disks = AmongOthers(HOSTILE);
    Names cards = AmongOthers(HOSTILE);
    cards.insert(cards.end(), {std::wstring(10'000, L'z'), L"low"});
    Names processors = HOSTILE;
    std::replace(processors.begin(), processors.end(), LONGER_NAME, L"9 " + std::wstring(1'050, L'w'));
    NamedMachine machine(processors, disks, cards);
    machine.LiveOnce();

    const Alerts& alerts = machine.Fetched();
    CHECK(alerts.at(VARNEX_ALERT_CPU) == Names(3, L"")); // two are forged, by a disk's name and by an adapter's
    CHECK(alerts.at(VARNEX_ALERT_MEMORY).size() == 1);
    CHECK(alerts.at(VARNEX_ALERT_PAGING_FILE).size() == 1);
    Names measured = disks;
    measured.erase(std::find(measured.begin(), measured.end(), LONGER_NAME));
    CHECK(alerts.at(VARNEX_ALERT_DISK) == Expected(measured, MESSAGE_NAME_CHARS));
    CHECK(alerts.at(VARNEX_ALERT_NETWORK) == Expected(cards, CARD_NAME_CHARS));
    CheckReport(machine.Report(), processors, disks, cards);
    const LogFile log(machine.tree);
    CheckLog(log);
    const std::size_t nBroken = CheckBrokenLines(log);
    CHECK(nBroken == 8);
    PrintFigure("hostile device names: " + std::to_string(processors.size() + disks.size() + cards.size()) +
                " devices, " +
                std::to_string(alerts.at(VARNEX_ALERT_DISK).size() + alerts.at(VARNEX_ALERT_NETWORK).size()) +
                " alerts of disks and adapters fetched, " + std::to_string(nBroken) +
                " lines of names with line ends told in the log");
}

TEST_CASE("a disk or processor whose name has no place in the list leaves its kind out, and the others are measured")
{
    const Names list = {L"0 C:", std::wstring(10'000, L'z')};
    const Names cards = {L"good", L"low", std::wstring(10'000, L'z'), L"low"};
    NamedMachine machine(list, list, cards);
    machine.LiveOnce();

    const Alerts& alerts = machine.Fetched();
    CHECK(alerts.at(VARNEX_ALERT_CPU).size() == 1);
    CHECK(alerts.at(VARNEX_ALERT_MEMORY).size() == 1);
    CHECK(alerts.at(VARNEX_ALERT_PAGING_FILE).size() == 1);
    CHECK(alerts.count(VARNEX_ALERT_DISK) == 0);
    CHECK(alerts.at(VARNEX_ALERT_NETWORK) == Expected(cards, CARD_NAME_CHARS));
    CheckReport(machine.Report(), {}, {}, cards);
    const LogFile log(machine.tree);
    CHECK_THAT(log, HasLine(1, "MonDiskThread --  Fail to get physical disk name list, exit!"));
    CHECK_THAT(log, HasLine(1, "MonPKIUtlDiskThread --  Fail to get Disk name list, Exit!"));
    CHECK_THAT(log, HasLine(1, "GetDiskNameListW -- ERROR to get physical disk "
                               "interface[1],PdhEnumObjectItemsHA(0x800007d2)."));
    CHECK_THAT(log, HasLine(1, "MonPKIUtlCPUThread --  Fail to get CPU name list, Exit!"));
    CHECK_THAT(log, HasLine(2, "GetCPUNameListW -- ERROR to get processor interface "
                               "instance[1],PdhEnumObjectItemsHA(0x800007d2)."));
}

} // namespace varnex::test
