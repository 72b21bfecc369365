#include "HostUnderAttack.h"

#include "module/ModuleInHost.h"
#include "reliability/LongForm.h"
#include "reliability/hostile/HostileInput.h"
#include "support/ImportRedirector.h"
#include "support/ProcessMeter.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <algorithm>
#include <array>
#include <memory>

namespace varnex::test
{

namespace
{

constexpr wchar_t KEY_VARIABLE[] = L"VARNEX_TEST_KEY";
constexpr wchar_t PATH_VARIABLE[] = L"VARNEX_TEST_WATCHED_MODULE";
constexpr DWORD LONG_WAIT_MS = 5000;

enum Order : LONG
{
    ORDER_BEGIN = 1,
    ORDER_FETCH,
    ORDER_STOP_REPORTS,
    ORDER_START_REPORTS,
    ORDER_MEMORY,
    ORDER_END
};

std::wstring Variable(const wchar_t* pwszName)
{
    wchar_t wszValue[MAX_PATH] = L"";
    REQUIRE(GetEnvironmentVariableW(pwszName, wszValue, MAX_PATH) != 0);
    return wszValue;
}

std::wstring NameOf(const wchar_t* pwszObject, const std::wstring& key)
{
    return std::wstring(L"varnex-test-security-") + pwszObject + key;
}

} // namespace

struct HostUnderAttack::Talk
{
    volatile LONG nOrder;
    volatile LONG nResult;
    volatile LONG nLongestWaitMs;
    Waits aWaits[4]; // of 5, 15, 60 and 90 seconds
    volatile LONG nLinesOfLoad;
    FetchedAlert aFetched[HostUnderAttack::FETCHED_AT_ONCE + 1];
};

namespace
{

constexpr std::array<DWORD, 4> COUNTED_WAITS_MS = {5'000, 15'000, 60'000, 90'000};

// Its place among them, or their number.
std::size_t CountedWait(DWORD dwMilliseconds)
{
    return static_cast<std::size_t>(std::find(COUNTED_WAITS_MS.begin(), COUNTED_WAITS_MS.end(), dwMilliseconds) -
                                    COUNTED_WAITS_MS.begin());
}

FetchedAlert AlertIn(const GuardedArrays& arrays, int i)
{
    FetchedAlert alert{arrays.types.As<int>()[i], arrays.thresholds.As<int>()[i], arrays.values.As<int>()[i], L""};
    std::copy_n(arrays.texts.As<wchar_t*>()[i], FetchedAlert::TEXT_CHARS, alert.wszText);
    return alert;
}

// The child's end of the talk, with the module.
class Host
{
public:
    explicit Host(const std::wstring& key)
        : m_talk(NameOf(L"talk", key)), m_command(CreateEventW(nullptr, FALSE, FALSE, NameOf(L"command", key).c_str())),
          m_answer(CreateEventW(nullptr, FALSE, FALSE, NameOf(L"answer", key).c_str())),
          m_watched(Variable(PATH_VARIABLE), NameOf(L"paths", key))
    {
        ImportRedirector& imports = m_watched.Imports();
        imports.Replace<decltype(::Sleep)>("Sleep", [](DWORD dwMilliseconds)
                                           { Sleep((std::min)((dwMilliseconds + 19) / 20, DWORD{500})); });
        imports.Replace<decltype(::WaitForSingleObject)>("WaitForSingleObject",
                                                         [this](HANDLE hObject, DWORD dwMilliseconds)
                                                         { return Wait(hObject, dwMilliseconds); });
        const std::wstring path = Variable(PATH_VARIABLE);
        const std::wstring log = path.substr(0, path.rfind(L"\\bin\\")) + L"\\Logs\\Varnex.log";
        m_talk->nLinesOfLoad = static_cast<LONG>(LogFile::FromBytes(ReadFileBytes(log)).Lines().size());
    }

    void Serve()
    {
        for (LONG nOrder = 0; nOrder != ORDER_END;)
        {
            REQUIRE(WaitForSingleObject(m_command.Get(), 4 * HostUnderAttack::PATIENCE_MS) == WAIT_OBJECT_0);
            nOrder = m_talk->nOrder;
            InterlockedExchange(&m_talk->nResult, Obey(nOrder));
            SetEvent(m_answer.Get());
        }
    }

private:
    DWORD Wait(HANDLE hObject, DWORD dwMilliseconds)
    {
        const std::size_t nLength = CountedWait(dwMilliseconds);
        Waits uncounted{};
        Waits& waits = nLength < COUNTED_WAITS_MS.size() ? m_talk->aWaits[nLength] : uncounted;
        InterlockedIncrement(&waits.nBegun);
        if (dwMilliseconds != INFINITE)
        {
            RaiseTo(m_talk->nLongestWaitMs, static_cast<LONG>(dwMilliseconds));
        }
        const bool bShorten = dwMilliseconds != INFINITE && dwMilliseconds >= LONG_WAIT_MS;
        const DWORD dwResult = WaitForSingleObject(hObject, bShorten ? dwMilliseconds / 100 : dwMilliseconds);
        InterlockedExchangeAdd(&waits.nGot, dwResult == WAIT_OBJECT_0 ? 1 : 0);
        InterlockedExchangeAdd(&waits.nTimedOut, dwResult == WAIT_TIMEOUT ? 1 : 0);
        InterlockedExchangeAdd(&waits.nAbandoned, dwResult == WAIT_ABANDONED ? 1 : 0);
        return dwResult;
    }

    int Obey(LONG nOrder)
    {
        switch (nOrder)
        {
        case ORDER_BEGIN:
            m_module.Start(VARNEX_ALERT_MEMORY);
            return StartReports();
        case ORDER_FETCH:
            return Fetch();
        case ORDER_STOP_REPORTS:
            return StopReports();
        case ORDER_START_REPORTS:
            return StartReports();
        case ORDER_MEMORY:
            return static_cast<int>(PrivateBytes() / 1024);
        default:
            StopReports();
            return m_module.Stop(VARNEX_ALERT_ALL);
        }
    }

    int StartReports() const { return static_cast<int>(Export<decltype(::StartPKIUtlThread)>("StartPKIUtlThread")()); }
    int StopReports() const { return static_cast<int>(Export<decltype(::StopPKIUtlThread)>("StopPKIUtlThread")()); }

    int Fetch()
    {
        if (!m_arrays)
        {
            m_arrays = std::make_unique<GuardedArrays>(HostUnderAttack::FETCHED_AT_ONCE + 1, FetchedAlert::TEXT_CHARS);
        }
        const int nCount = Export<decltype(::GetAlertRecord)>("GetAlertRecord")(
            m_arrays->types.As<int>(), m_arrays->texts.As<wchar_t*>(), FetchedAlert::TEXT_CHARS,
            m_arrays->thresholds.As<int>(), m_arrays->values.As<int>(), HostUnderAttack::FETCHED_AT_ONCE);
        for (int i = 0; i < nCount; ++i)
        {
            m_talk->aFetched[i] = AlertIn(*m_arrays, i);
        }
        return nCount;
    }

    template <class Signature>
    Signature* Export(const char* pszName) const
    {
        return reinterpret_cast<Signature*>(reinterpret_cast<void*>(GetProcAddress(m_module.Handle(), pszName)));
    }

    SharedPage<HostUnderAttack::Talk> m_talk;
    UniqueHandle m_command;
    UniqueHandle m_answer;
    WatchedModule m_watched; // before the next one loads it
    ModuleInHost m_module;
    std::unique_ptr<GuardedArrays> m_arrays; // from the first fetch on
};

// Every file below the tree's root, by its path from there.
void ListFiles(const std::wstring& directory, const std::wstring& prefix, std::vector<std::wstring>& files)
{
    WIN32_FIND_DATAW found;
    const HANDLE hFind = FindFirstFileW((directory + L"\\*").c_str(), &found);
    REQUIRE(hFind != INVALID_HANDLE_VALUE);
    do
    {
        const std::wstring name = found.cFileName;
        if (name == L"." || name == L"..")
        {
            continue;
        }
        files.push_back(prefix + name);
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        {
            ListFiles(directory + L"\\" + name, prefix + name + L"\\", files);
        }
    } while (FindNextFileW(hFind, &found));
    FindClose(hFind);
}

template <std::size_t N>
bool IsOneOf(const std::wstring (&paths)[N], const std::wstring& path)
{
    return std::find(std::begin(paths), std::end(paths), path) != std::end(paths);
}

// What the module both writes and leaves behind, whatever it is told.
bool IsItsOwn(const std::wstring& path)
{
    static const std::wstring OWN[] = {L"A\\B\\Logs", L"A\\B\\bin\\KpmCfg.xml", L"A\\B\\bin\\KpmCfg.xml.tmp",
                                       L"A\\B\\bin\\LocalAlt.dat", L"A\\B\\bin\\LocalAlt_Backup.dat"};
    return IsOneOf(OWN, path) || path.rfind(L"A\\B\\Logs\\Varnex", 0) == 0;
}

// What the module may open for writing, make, move or delete.
bool MayWrite(const std::wstring& path)
{
    static const std::wstring TRACES[] = {L"A\\B\\Logs\\CPUUtil.log", L"A\\B\\Logs\\MemoryUtil.log",
                                          L"A\\B\\Logs\\DiskUtil.log", L"A\\B\\Logs\\NetworkUtil.log"};
    return IsItsOwn(path) || IsOneOf(TRACES, path);
}

// What this process's lives of a host came to, printed at its end.
struct LivesOfHosts
{
    int nBegun = 0;
    int nEndedWell = 0;
    long nCalls = 0;
    int nOwnPaths = 0;
    int nOtherPaths = 0;

    ~LivesOfHosts()
    {
        if (nBegun != 0)
        {
            PrintFigure("hostile process: " + std::to_string(nBegun) + " lives of a host, " +
                        std::to_string(nEndedWell) + " ended well; " + std::to_string(nCalls) +
                        " calls that open for writing, make, move or delete " + std::to_string(nOwnPaths) +
                        " paths of the module's and " + std::to_string(nOtherPaths) + " others");
        }
    }
};
LivesOfHosts& Lives()
{
    static LivesOfHosts lives;
    return lives;
}

// What may lie in the tree at the end: without the trace switch there are no traces.
bool IsTheModules(const std::wstring& file)
{
    static const std::wstring LAID_OUT[] = {L"A", L"A\\B", L"A\\B\\bin", L"A\\B\\bin\\Varnex.dll"};
    return IsItsOwn(file) || IsOneOf(LAID_OUT, file);
}

} // namespace

TEST_CASE("child: a host with the module does what it is told", "[.]")
{
    // Never destroyed: the process ends without an unload, as the simplest host does.
    auto* pHost = new Host(Variable(KEY_VARIABLE));
    pHost->Serve();
}

HostUnderAttack::HostUnderAttack()
    : m_key(std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(GetTickCount64())),
      m_talk(std::make_unique<SharedPage<Talk>>(NameOf(L"talk", m_key))),
      m_paths(std::make_unique<SharedPage<PathPage>>(NameOf(L"paths", m_key))),
      m_command(CreateEventW(nullptr, FALSE, FALSE, NameOf(L"command", m_key).c_str())),
      m_answer(CreateEventW(nullptr, FALSE, FALSE, NameOf(L"answer", m_key).c_str()))
{
    tree.CopyModule();
    tree.WriteConfig(ConfigBuilder()
                         .SetPolicy("Memory", 1, 1, 1, 5)
                         .SetLogLevel(3)
                         .SetCounter("Date", "2026-01-31")
                         .SetCounter("PH", "0")
                         .SetCounter("PF", "0"));
}

HostUnderAttack::~HostUnderAttack() = default;

void HostUnderAttack::Begin()
{
    ChildOptions options = ModuleInHost::OptionsFor(tree);
    options.environment[KEY_VARIABLE] = m_key;
    options.environment[PATH_VARIABLE] = tree.ModulePath();
    m_host = std::make_unique<ChildProcess>(
        ChildProcess::OfTestCase("child: a host with the module does what it is told", options));
    ++Lives().nBegun;
    Command(ORDER_BEGIN);
}

int HostUnderAttack::Command(LONG nCommand)
{
    InterlockedExchange(&(*m_talk)->nOrder, nCommand);
    SetEvent(m_command.Get());
    const ULONGLONG ullGiveUp = GetTickCount64() + PATIENCE_MS;
    for (bool bRuns = true; WaitForSingleObject(m_answer.Get(), 20) != WAIT_OBJECT_0; bRuns = m_host->Runs())
    {
        CAPTURE(nCommand, m_host->Output(), Log().Bytes());
        REQUIRE(bRuns); // at the last look, which the answer may have come after
        REQUIRE(GetTickCount64() < ullGiveUp);
    }
    return (*m_talk)->nResult;
}

int HostUnderAttack::FetchAll()
{
    return Command(ORDER_FETCH);
}

const FetchedAlert& HostUnderAttack::Fetched(int nIndex) const
{
    return (*m_talk)->aFetched[nIndex];
}

void HostUnderAttack::StopReports()
{
    Command(ORDER_STOP_REPORTS);
}

void HostUnderAttack::StartReports()
{
    Command(ORDER_START_REPORTS);
}

std::size_t HostUnderAttack::PrivateKilobytes()
{
    return static_cast<std::size_t>(Command(ORDER_MEMORY));
}

bool HostUnderAttack::CanLog()
{
    const std::size_t nLines = Log().Lines().size();
    StartReports(); // a start of what runs already logs two lines
    return Log().Lines().size() > nLines;
}

void HostUnderAttack::CheckAlive() const
{
    if (!m_host->Runs())
    {
        FAIL("the host ended with " << m_host->ExitCode() << ":\n" << m_host->Output());
    }
}

void HostUnderAttack::End()
{
    Command(ORDER_END);
    CAPTURE(m_host->Output(), Log().Bytes());
    REQUIRE(m_host->WaitForEnd(PATIENCE_MS));
    CHECK(m_host->ExitCode() == 0);
    Lives().nEndedWell += m_host->ExitCode() == 0 ? 1 : 0;
    Lives().nCalls += (*m_paths)->nCalls;
    CHECK((*m_paths)->nPaths < PathPage::MAX_PATHS); // or some are not there
    for (const std::wstring& path : WrittenPaths())
    {
        CAPTURE(path);
        CHECK(MayWrite(path));
        ++(MayWrite(path) ? Lives().nOwnPaths : Lives().nOtherPaths);
    }
    std::vector<std::wstring> files;
    ListFiles(tree.Root(), L"", files);
    for (const std::wstring& file : files)
    {
        CAPTURE(file);
        CHECK(IsTheModules(file));
    }
}

std::set<std::wstring> HostUnderAttack::WrittenPaths() const
{
    const std::wstring root = tree.Root() + L"\\";
    std::set<std::wstring> paths;
    for (const std::wstring& path : PathsIn(*m_paths))
    {
        const bool bBelow = _wcsnicmp(path.c_str(), root.c_str(), root.size()) == 0;
        paths.insert(bBelow ? path.substr(root.size()) : path);
    }
    return paths;
}

DWORD HostUnderAttack::LongestWaitMs() const
{
    return static_cast<DWORD>((*m_talk)->nLongestWaitMs);
}

LONG HostUnderAttack::WaitsOf(DWORD dwMilliseconds) const
{
    return ResultsOf(dwMilliseconds).nBegun;
}

const Waits& HostUnderAttack::ResultsOf(DWORD dwMilliseconds) const
{
    const std::size_t nLength = CountedWait(dwMilliseconds);
    REQUIRE(nLength < COUNTED_WAITS_MS.size());
    return (*m_talk)->aWaits[nLength];
}

std::size_t HostUnderAttack::LinesOfLoad() const
{
    return static_cast<std::size_t>((*m_talk)->nLinesOfLoad);
}

std::wstring HostUnderAttack::AskForReport(std::uint32_t nTotal, std::uint32_t nMinimum) const
{
    HostAgent agent(L"");
    agent.TakeFinish(); // of a report that somebody else asked for
    agent.Ask(nTotal, nMinimum);
    CAPTURE(Log().Bytes());
    REQUIRE(agent.TakeFinish(PATIENCE_MS));
    REQUIRE(agent.IsRestUntouched());
    AwaitReset();
    return agent.Text();
}

void HostUnderAttack::AwaitReset() const
{
    const UniqueHandle begin(OpenEventW(SYNCHRONIZE, FALSE, BEGIN_NAME));
    REQUIRE(begin);
    const ULONGLONG ullGiveUp = GetTickCount64() + PATIENCE_MS;
    while (WaitForSingleObject(begin.Get(), 0) == WAIT_OBJECT_0)
    {
        REQUIRE(GetTickCount64() < ullGiveUp);
        CheckAlive();
        Sleep(1);
    }
}

bool HostUnderAttack::AwaitAlerts(std::size_t nLines) const
{
    const ULONGLONG ullGiveUp = GetTickCount64() + PATIENCE_MS;
    for (;;)
    {
        const std::string bytes = tree.Alerts();
        if (std::count(bytes.begin(), bytes.end(), '\n') >= static_cast<long long>(nLines))
        {
            return true;
        }
        if (GetTickCount64() >= ullGiveUp)
        {
            return false;
        }
        Sleep(20);
    }
}

} // namespace varnex::test
