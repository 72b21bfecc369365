#pragma once

#include "WrittenPaths.h"

#include "reliability/processes/SharedPage.h"
#include "support/ChildProcess.h"
#include "support/HostAgent.h"
#include "support/LogFile.h"
#include "support/LogMatchers.h"
#include "support/ModuleTree.h"

#include <memory>
#include <string>
#include <vector>

namespace varnex::test
{

constexpr wchar_t ALERT_MUTEX_NAME[] = L"Global\\{A2C32408-95FF-4183-8208-1C370A075B80}";
constexpr wchar_t COUNTS_MUTEX_NAME[] = L"Global\\{49BCAD94-02E7-4d1d-9CDA-5A7246CDD559}";

// An alert as a host was handed it.
struct FetchedAlert
{
    static constexpr unsigned TEXT_CHARS = 64;

    int nType;
    int nThreshold;
    int nValue;
    wchar_t wszText[TEXT_CHARS];
};

// The module's waits of one length, and what came of them.
struct Waits
{
    volatile LONG nBegun;
    volatile LONG nGot;
    volatile LONG nTimedOut;
    volatile LONG nAbandoned; // got a mutex whose owner had died
};

// A host process with the shipped DLL under the module's own names, while the test plays the hostile process:
//
//     HostUnderAttack host;
//     const HostileObject taken(HostileObject::Kind::Mutex, SECTION_NAME);
//     host.Begin();  // the module is loaded, with a memory monitor that raises an alert at once, and reporting runs
//     CHECK(host.FetchAll() == 2);
//     host.End();    // it ended by itself and well, and wrote to no file but its own, by the calls it made and by
//                    // what is in the tree
//
// The host runs on the real machine and in real time, but a second of sleep takes it a twentieth, and of a wait of five
// seconds or more it waits a hundredth.
class HostUnderAttack
{
public:
    HostUnderAttack();
    ~HostUnderAttack();
    HostUnderAttack(const HostUnderAttack&) = delete;
    HostUnderAttack& operator=(const HostUnderAttack&) = delete;

    void Begin();
    // What the host is asked for while it runs. Each fails the test when the host has ended or does not answer.
    // The fetch asks for as many as this, and fills arrays and texts that end at a page nobody may touch.
    static constexpr int FETCHED_AT_ONCE = 1000;
    int FetchAll();
    // What the last fetch gave, by its place.
    const FetchedAlert& Fetched(int nIndex) const;
    void StopReports();
    void StartReports();
    // Has the host log a line, and says whether it is in the log.
    bool CanLog();
    std::size_t PrivateKilobytes();
    void End();
    // Fails the test, with what the host said, when it has ended.
    void CheckAlive() const;

    // The paths that the module wrote to so far, from the tree's root on; one elsewhere is whole.
    std::set<std::wstring> WrittenPaths() const;

    // The longest time-out of the module's waits so far, and how often it was asked for, as the module asked.
    DWORD LongestWaitMs() const;
    LONG WaitsOf(DWORD dwMilliseconds) const;
    const Waits& ResultsOf(DWORD dwMilliseconds) const;
    // How many lines the log had before waits were counted.
    std::size_t LinesOfLoad() const;

    LogFile Log() const { return LogFile(tree); }
    // Fails the test when none comes.
    std::wstring AskForReport(std::uint32_t nTotal = 5, std::uint32_t nMinimum = 1) const;
    // Until the module has reset the begin event: what is asked before that is lost.
    void AwaitReset() const;
    // Until the monitor's two alerts are in the alert file.
    bool AwaitAlerts(std::size_t nLines = 2) const;

    ModuleTree tree;
    static constexpr DWORD PATIENCE_MS = 90'000;

    struct Talk;

private:
    int Command(LONG nCommand);

    std::wstring m_key;
    std::unique_ptr<SharedPage<Talk>> m_talk;
    std::unique_ptr<SharedPage<PathPage>> m_paths;
    UniqueHandle m_command;
    UniqueHandle m_answer;
    std::unique_ptr<ChildProcess> m_host;
};

} // namespace varnex::test
