#include "SharedPage.h"
#include "WaitMicroseconds.h"

#include "module/ModuleInHost.h"
#include "reliability/LongForm.h"
#include "support/AlertLines.h"
#include "support/LoadedModule.h"
#include "support/ScriptedExports.h"
#include "support/ScriptedInterfaceTable.h"
#include "support/ScriptedMemoryStatus.h"
#include "support/ScriptedPdh.h"
#include "support/ScriptedSystemTimes.h"
#include "support/ScriptedWmi.h"
#include "support/VirtualClock.h"

#include <varnex/Varnex.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <random>

// The shipped DLL in a process that is killed at any moment, while its own monitors save counts and store alerts as fast
// as a virtual clock lets them.

namespace varnex::test
{

namespace
{

constexpr wchar_t KEY_VARIABLE[] = L"VARNEX_TEST_KEY";
constexpr wchar_t TODAY[] = L"2026-01-31"; // the virtual clock's
constexpr int THRESHOLD = 50;
constexpr int MAX_ALERTS = 1'000'000; // a day: more than there is time for
constexpr DWORD PATIENCE_MS = 60'000;
constexpr unsigned SEED = 20260131;
constexpr std::size_t MAX_LINES = 10'000; // of one life
constexpr std::size_t LINE_BYTES = 128;
constexpr double BYTES_PER_MB = 1048576.0;

// What the module was seen to do in its process. It writes one line at a time, with its mutex in hand.
struct Witness
{
    char aszLines[MAX_LINES][LINE_BYTES]; // of the alert file, in order
    volatile LONG nBegun;                 // lines handed to the system
    volatile LONG nStored;                // lines that the system reported as written
    volatile LONG nStoring;               // 1 from the opening of the alert file to the end of the write
    volatile LONG nSaves;                 // of counts, to their end
    volatile LONG nSaving;                // 1 from the asking for the counts' mutex to the end of a save
    volatile LONG nRefused;               // writes and saves that failed
};

bool EndsIn(const std::wstring& path, const std::wstring& name)
{
    return path.size() > name.size() && path.compare(path.size() - name.size(), name.size(), name) == 0;
}

bool IsAlertFile(const char* pszPath)
{
    const std::string path = pszPath;
    return EndsIn(std::wstring(path.begin(), path.end()), L"LocalAlt.dat");
}

// Notes each line before the system has it, and when the system has told that it is written.
void WatchStores(ImportRedirector& imports, const SharedPage<Witness>& witness)
{
    imports.Replace<decltype(::CreateFileA)>(
        "CreateFileA",
        [&witness](LPCSTR pszPath, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pSecurity, DWORD dwHow,
                   DWORD dwAttributes, HANDLE hTemplate)
        {
            InterlockedExchange(&witness->nStoring, IsAlertFile(pszPath) ? 1 : 0);
            return CreateFileA(pszPath, dwAccess, dwShare, pSecurity, dwHow, dwAttributes, hTemplate);
        });
    imports.Replace<decltype(::WriteFile)>(
        "WriteFile",
        [&witness](HANDLE hFile, LPCVOID pData, DWORD cbData, LPDWORD pcbWritten, LPOVERLAPPED pOverlapped)
        {
            if (witness->nStoring == 0)
            {
                return WriteFile(hFile, pData, cbData, pcbWritten, pOverlapped);
            }
            const LONG nLine = witness->nBegun;
            char(&szLine)[LINE_BYTES] = witness->aszLines[nLine];
            std::memcpy(szLine, pData, (std::min)(LINE_BYTES - 1, static_cast<std::size_t>(cbData)));
            InterlockedIncrement(&witness->nBegun);
            const BOOL bWritten = WriteFile(hFile, pData, cbData, pcbWritten, pOverlapped);
            InterlockedIncrement(bWritten ? &witness->nStored : &witness->nRefused);
            InterlockedExchange(&witness->nStoring, 0);
            return bWritten;
        });
}

void WatchSaves(ImportRedirector& imports, const SharedPage<Witness>& witness)
{
    imports.Replace<decltype(::OpenMutexW)>("OpenMutexW",
                                            [&witness](DWORD dwAccess, BOOL bInherit, LPCWSTR pwszName)
                                            {
                                                InterlockedExchange(&witness->nSaving, 1);
                                                return OpenMutexW(dwAccess, bInherit, pwszName);
                                            });
    imports.Replace<decltype(::MoveFileExW)>("MoveFileExW",
                                             [&witness](LPCWSTR pwszFrom, LPCWSTR pwszTo, DWORD dwFlags)
                                             {
                                                 const BOOL bMoved = MoveFileExW(pwszFrom, pwszTo, dwFlags);
                                                 InterlockedIncrement(bMoved ? &witness->nSaves : &witness->nRefused);
                                                 InterlockedExchange(&witness->nSaving, 0);
                                                 return bMoved;
                                             });
}

// A host with all monitors, on a machine whose loads cross every threshold again and again.
class BusyHost
{
public:
    explicit BusyHost(const SharedPage<Witness>& witness)
        : m_imports(m_module.Handle()), m_clock(m_imports), m_exports(m_imports), m_memory(m_exports), m_cpu(m_exports),
          m_pdh(m_imports), m_wmi(m_imports), m_table(m_imports)
    {
        WatchStores(m_imports, witness);
        WatchSaves(m_imports, witness);
        m_cpu.Restart();
        m_pdh.SetInstances(L"Processor", {L"0", L"_Total"});
        m_pdh.SetValue(L"\\Processor(0)\\% Processor Time", 42.0);
        m_pdh.SetInstances(L"PhysicalDisk", {L"0 C:", L"_Total"});
        m_wmi.SetObjects({WmiAdapter(L"Card", 2, WmiText(L"1000000000"))});
        m_table.AddRow(2);
        m_table.SetOctets(2, 1, 1);
        m_module.Start(VARNEX_ALERT_ALL);
    }

    [[noreturn]] void LiveUntilKilled()
    {
        for (unsigned nSecond = 0;; ++nSecond)
        {
            SetLoad(nSecond / 2 % 2 == 0 ? THRESHOLD + 1 + nSecond % 49 : 10);
            m_clock.Advance(1);
        }
    }

private:
    void SetLoad(unsigned nPercent)
    {
        m_cpu.SetUtilization(static_cast<int>(nPercent));
        m_memory.SetUtilization(nPercent, nPercent);
        m_pdh.SetValue(L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec", nPercent * BYTES_PER_MB);
        m_table.MoveAtEachRead(2, nPercent * 1'250'000, 0);
    }

    ModuleInHost m_module;
    ImportRedirector m_imports;
    VirtualClock m_clock;
    ScriptedExports m_exports;
    ScriptedMemoryStatus m_memory;
    ScriptedSystemTimes m_cpu;
    ScriptedPdh m_pdh;
    ScriptedWmi m_wmi;
    ScriptedInterfaceTable m_table;
};

// A kind of alert and the node that counts it.
struct Kind
{
    int nType;
    const char* pszResource; // null: whatever the line says
    const wchar_t* pwszNode;
};
constexpr Kind KINDS[] = {
    {1, nullptr, L"CPU"}, {2, "PH", L"PH"}, {2, "PF", L"PF"}, {3, nullptr, L"Disk"}, {4, nullptr, L"Network"}};

struct Tally
{
    int nKills = 0;
    long long llAlerts = 0;
    long long llLost = 0;
    long long llSaves = 0;
    int nBrokenConfigs = 0;
    int nWithinStore = 0;
    int nWithinSave = 0;
    int nTornLines = 0;
    int nTornLinesHandedOut = 0;
};

class ModuleKilling
{
public:
    explicit ModuleKilling(ModuleTree& tree)
        : m_tree(tree), m_module(tree), m_imports(m_module.Handle()), m_clock(m_imports),
          m_key(std::to_wstring(GetCurrentProcessId())), m_witness(L"varnex-test-witness-" + m_key)
    {
        ReadCounts(m_countsBefore);
    }

    // Lets a process work for a moment of its life and kills it.
    void KillOne()
    {
        ChildOptions options = ModuleInHost::OptionsFor(m_tree);
        options.environment[KEY_VARIABLE] = m_key;
        ChildProcess child = ChildProcess::OfTestCase("child: its monitors raise alerts until it is killed", options);
        const LONG nEnough = std::uniform_int_distribution<LONG>(1, 6)(m_random);
        Await(child, 1, [&] { return m_witness->nStored >= nEnough; });
        // One kill at any moment, one soon after a save begins, one soon after a store does.
        const int nAim = m_tally.nKills % 3;
        Await(child, 0, [&] { return nAim == 0 || (nAim == 1 ? m_witness->nSaving : m_witness->nStoring) != 0; });
        WaitMicroseconds(std::uniform_int_distribution<LONGLONG>(0, nAim == 0 ? 20'000 : 500)(m_random));
        child.Kill();
        ++m_tally.nKills;
        m_tally.llSaves += m_witness->nSaves;
        m_tally.nWithinStore += m_witness->nStoring != 0 ? 1 : 0;
        m_tally.nWithinSave += m_witness->nSaving != 0 ? 1 : 0;
        REQUIRE(m_witness->nRefused == 0);
        REQUIRE(m_witness->nBegun < static_cast<LONG>(MAX_LINES));
        REQUIRE(m_witness->nBegun - m_witness->nStored <= 1);
    }

    // The file is what the system reported as written, and perhaps the line in doubt, byte for byte.
    void CheckAlertFile()
    {
        const std::string bytes = m_tree.Alerts();
        const std::string reported = LinesSeen(m_witness->nStored);
        CHECK((bytes == reported || bytes == LinesSeen(m_witness->nBegun)));
        for (LONG nLine = 0; nLine < m_witness->nStored; ++nLine)
        {
            m_tally.llLost += bytes.find(m_witness->aszLines[nLine]) == std::string::npos ? 1 : 0;
        }
        m_lines = ParseAlertLines(bytes);
        m_tally.llAlerts += static_cast<long long>(m_lines.size());
        for (const AlertLine& line : m_lines)
        {
            REQUIRE(line.nThreshold == THRESHOLD); // or the process did not read its policies
        }
    }

    // Each count is that of the alerts that went out, or one more: the count is saved before the alert is stored.
    void CheckConfig()
    {
        std::map<std::wstring, int> counts;
        bool bWhole = m_tree.ConfigNode(L"KPMConfiguration/PkiAlert/CPUThreshold") == std::to_wstring(THRESHOLD) &&
                      m_tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/Date") == TODAY;
        ReadCounts(counts);
        for (const Kind& kind : KINDS)
        {
            const int nRaised = counts[kind.pwszNode] - m_countsBefore[kind.pwszNode];
            const auto nLines =
                std::count_if(m_lines.begin(), m_lines.end(),
                              [&](const AlertLine& line) {
                                  return line.nType == kind.nType &&
                                         (kind.pszResource == nullptr || line.resource == kind.pszResource);
                              });
            CAPTURE(kind.nType, nRaised, nLines);
            bWhole = bWhole && nRaised >= nLines && nRaised <= nLines + 1;
            CHECK(bWhole);
        }
        m_tally.nBrokenConfigs += bWhole ? 0 : 1;
        m_countsBefore = counts;
    }

    // The file as it is when its last line did not reach the disk as a whole.
    void TearLastLine()
    {
        const std::string bytes = m_tree.Alerts();
        const std::size_t nLine = bytes.size() < 2 ? 0 : bytes.rfind('\n', bytes.size() - 2) + 1;
        const std::size_t nSemicolons = bytes.rfind(';') - nLine; // with all of them the line would be whole
        m_tree.WriteAlerts(
            bytes.substr(0, nLine + std::uniform_int_distribution<std::size_t>(1, nSemicolons)(m_random)));
        m_lines.pop_back();
        ++m_tally.nTornLines;
    }

    // The DLL in this process hands out every whole line, in order, and leaves nothing.
    void FetchAll()
    {
        const std::size_t nRoom = m_lines.size() + 2;
        std::vector<int> types(nRoom);
        std::vector<int> thresholds(nRoom);
        std::vector<int> values(nRoom);
        std::vector<wchar_t*> texts(nRoom);
        const int nFetched = m_module.Export<decltype(::GetAlertRecord)>("GetAlertRecord")(
            types.data(), texts.data(), 0, thresholds.data(), values.data(), static_cast<int>(nRoom) - 1);
        m_tally.nTornLinesHandedOut += (std::max)(0, nFetched - static_cast<int>(m_lines.size()));
        REQUIRE(nFetched == static_cast<int>(m_lines.size()));
        for (std::size_t i = 0; i < m_lines.size(); ++i)
        {
            REQUIRE(types[i] == (m_lines[i].resource == "PF" ? 5 : m_lines[i].nType));
            REQUIRE(thresholds[i] == m_lines[i].nThreshold);
            REQUIRE(values[i] == m_lines[i].nValue);
        }
        REQUIRE(m_tree.Alerts().empty());
        std::memset(m_witness.operator->(), 0, sizeof(Witness));
    }

    const Tally& Result() const noexcept { return m_tally; }

private:
    static void Await(const ChildProcess& child, DWORD dwPause, const std::function<bool()>& condition)
    {
        const ULONGLONG ullGiveUp = GetTickCount64() + PATIENCE_MS;
        while (!condition())
        {
            const ULONGLONG ullNow = GetTickCount64();
            if (ullNow >= ullGiveUp || (ullNow % 64 == 0 && !child.Runs())) // a look takes longer than a store
            {
                FAIL("the host does not work:\n" << child.Output());
            }
            Sleep(dwPause);
        }
    }

    std::string LinesSeen(LONG nLines) const
    {
        std::string lines;
        for (LONG nLine = 0; nLine < nLines; ++nLine)
        {
            lines += m_witness->aszLines[nLine];
        }
        return lines;
    }

    void ReadCounts(std::map<std::wstring, int>& counts) const
    {
        for (const Kind& kind : KINDS)
        {
            const std::wstring node = std::wstring(L"KPMConfiguration/PkiAlertNum/") + kind.pwszNode;
            counts[kind.pwszNode] = std::stoi(m_tree.ConfigNode(node).value_or(L"-1"));
        }
    }

    ModuleTree& m_tree;
    LoadedModule m_module;
    ImportRedirector m_imports;
    VirtualClock m_clock; // the processes' time: a fetch drops alerts that are three days old
    const std::wstring m_key;
    const SharedPage<Witness> m_witness;
    std::mt19937 m_random{SEED};
    std::map<std::wstring, int> m_countsBefore;
    std::vector<AlertLine> m_lines;
    Tally m_tally;
};

ConfigBuilder BusyConfig()
{
    ConfigBuilder config;
    for (const char* pszResource : {"CPU", "Memory", "Disk", "Network"})
    {
        config.SetPolicy(pszResource, 1, THRESHOLD, 1, MAX_ALERTS);
    }
    config.SetLogLevel(1).SetCounter("Date", "2026-01-31");
    for (const char* pszCounter : {"CPU", "PH", "PF", "Disk", "Network"})
    {
        config.SetCounter(pszCounter, "0");
    }
    return config;
}

} // namespace

TEST_CASE("child: its monitors raise alerts until it is killed", "[.]")
{
    wchar_t wszKey[64] = L"";
    REQUIRE(GetEnvironmentVariableW(KEY_VARIABLE, wszKey, 64) != 0);
    const SharedPage<Witness> witness(std::wstring(L"varnex-test-witness-") + wszKey);
    BusyHost host(witness);
    host.LiveUntilKilled();
}

TEST_CASE(
    "a host killed at any moment of the DLL's work loses no alert that was stored, and leaves a whole configuration")
{
    const int nKills = IsLongForm() ? 200 : 20;
    ModuleTree tree;
    tree.CopyModule();
    tree.WriteConfig(BusyConfig());
    ModuleKilling killing(tree);
    for (int nKill = 0; nKill < nKills; ++nKill)
    {
        CAPTURE(nKill);
        killing.KillOne();
        killing.CheckAlertFile();
        killing.CheckConfig();
        if (nKill % 3 != 0)
        {
            killing.TearLastLine();
        }
        killing.FetchAll();
    }
    const Tally& tally = killing.Result();
    CHECK(tally.llLost == 0);
    CHECK(tally.nWithinStore + tally.nWithinSave > nKills / 10); // or the kills did not meet the work
    PrintFigure("kill of the DLL's host: " + std::to_string(tally.nKills) + " kills, " +
                std::to_string(tally.llAlerts) + " alerts, " + std::to_string(tally.llSaves) +
                " writes of the configuration: " + std::to_string(tally.llLost) + " alerts lost, " +
                std::to_string(tally.nBrokenConfigs) + " broken configurations; " + std::to_string(tally.nWithinStore) +
                " kills within a store, " + std::to_string(tally.nWithinSave) + " within a save; " +
                std::to_string(tally.nTornLines) + " lines torn by the test, " +
                std::to_string(tally.nTornLinesHandedOut) + " of them handed out");
}

} // namespace varnex::test
