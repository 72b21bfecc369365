#pragma once

#include "alerting/AlertRecord.h"
#include "common/Handles.h"
#include "support/ImportRedirector.h"
#include "support/LogFile.h"
#include "support/ModulePathScript.h"
#include "support/ModuleTree.h"
#include "support/PrivateMutexes.h"
#include "support/VirtualClock.h"

#include <functional>
#include <string>
#include <vector>

namespace varnex::test
{

// A moment to store alerts with, and how it reads in UTC.
constexpr int MOMENT = 1706745599;
constexpr char MOMENT_TEXT[] = "2024-01-31 23:59:59";

constexpr int THREE_DAYS = 259200;

// What a fetch of the store gave.
struct Taken
{
    int nResult;
    std::vector<VARNEX_ALERT_BUF> records;

    std::vector<int> Values() const;
};

// The alert store in a tree of its own: the module's path, the clock (shortly after MOMENT), the zone (UTC) and the
// store's mutex (unnamed) are this test's, and the log is at level 4. So are the names of all mutexes.
class StoreBench
{
public:
    StoreBench();
    ~StoreBench();

    ModuleTree tree;
    ImportRedirector imports;
    PrivateMutexes mutexes;
    ModulePathScript path;
    VirtualClock clock;

    int Now() const;
    LogFile ReadLog() const;

    // Full paths as messages show them.
    std::string DataPath() const;
    std::string BackupPath() const;
    std::string Backup() const;
    bool HasData() const;
    bool HasBackup() const;
    void WriteBackup(const std::string& bytes);
    void RemoveFiles();
    // Puts a directory where a file belongs: it cannot be opened then.
    void BlockFile(const std::wstring& name);

    // A fetch of up to nMaxCount records and one more.
    Taken Take(int nMaxCount) const;

    HANDLE Mutex() const noexcept { return m_mutex.Get(); }
    // Whether another thread gets the store's mutex at once.
    bool IsMutexFree();
    // Another thread holds the mutex until the end of the bench, or ends while it has it.
    void LetOtherThreadHoldMutex();
    void LetOtherThreadAbandonMutex();

private:
    UniqueHandle m_mutex;
    UniqueHandle m_end;
};

// A stored CPU alert of that moment with that value.
std::string LineOf(int nValue, int nHappenTime = MOMENT);
// Several of them, with the values from nFirst on.
std::string LinesOf(int nFirst, int nCount);

// How many more handles this process has after the action than before. The action runs once before that: what the
// first run opens for good is no leak.
long long HandlesGainedBy(const std::function<void()>& action);

} // namespace varnex::test
