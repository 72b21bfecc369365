#include "StoreBench.h"

#include "ZoneScript.h"

#include "alerting/AlertStore.h"
#include "diag/SPLogger.h"
#include "entry/ModuleState.h"
#include "support/ProcessMeter.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <iterator>

namespace varnex::test
{

std::vector<int> Taken::Values() const
{
    std::vector<int> values;
    std::transform(records.begin(), records.end(), std::back_inserter(values),
                   [](const VARNEX_ALERT_BUF& record) { return record.Value; });
    return values;
}

StoreBench::StoreBench()
    : mutexes(imports), path(imports, tree.ModulePath()), clock(imports),
      m_mutex(CreateMutexA(nullptr, FALSE, nullptr)), m_end(CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    UseUtc(imports);
    clock.Set(LocalTime{2024, 2, 1, 6, 0, 0});
    g_hAlertFileMutex = m_mutex.Get();
    Log()->Configure(AnsiFromWide(tree.LogsPath()).c_str(), "Varnex");
    Log()->Level = 4;
}

StoreBench::~StoreBench()
{
    SetEvent(m_end.Get());
    clock.AdvanceUntilWorkersEnd(1);
    g_hAlertFileMutex = nullptr;
    Log()->Level = 0;
}

int StoreBench::Now() const
{
    return static_cast<int>(clock.UnixNow());
}

LogFile StoreBench::ReadLog() const
{
    return LogFile(tree);
}

std::string StoreBench::DataPath() const
{
    return AnsiFromWide(tree.InBin(L"LocalAlt.dat"));
}

std::string StoreBench::BackupPath() const
{
    return AnsiFromWide(tree.InBin(L"LocalAlt_Backup.dat"));
}

std::string StoreBench::Backup() const
{
    return ReadFileBytes(tree.InBin(L"LocalAlt_Backup.dat"));
}

bool StoreBench::HasData() const
{
    return FileExists(tree.InBin(L"LocalAlt.dat"));
}

bool StoreBench::HasBackup() const
{
    return FileExists(tree.InBin(L"LocalAlt_Backup.dat"));
}

void StoreBench::WriteBackup(const std::string& bytes)
{
    WriteFileBytes(tree.InBin(L"LocalAlt_Backup.dat"), bytes);
}

void StoreBench::RemoveFiles()
{
    DeleteFileW(tree.InBin(L"LocalAlt.dat").c_str());
    DeleteFileW(tree.InBin(L"LocalAlt_Backup.dat").c_str());
}

void StoreBench::BlockFile(const std::wstring& name)
{
    REQUIRE(CreateDirectoryW(tree.InBin(name).c_str(), nullptr));
}

Taken StoreBench::Take(int nMaxCount) const
{
    Taken taken{};
    taken.nResult = ReadLocalAlertInf(taken.records, nMaxCount);
    return taken;
}

bool StoreBench::IsMutexFree()
{
    bool bFree = false;
    clock.RunWhileAdvancing(
        [this, &bFree]
        {
            bFree = WaitForSingleObject(Mutex(), 0) == WAIT_OBJECT_0;
            if (bFree)
            {
                ReleaseMutex(Mutex());
            }
        });
    return bFree;
}

void StoreBench::LetOtherThreadHoldMutex()
{
    clock.RunOnOtherThread(
        [this]
        {
            WaitForSingleObject(Mutex(), INFINITE);
            clock.Block(m_end.Get());
            ReleaseMutex(Mutex());
        });
    clock.WaitUntilAllAsleep();
}

void StoreBench::LetOtherThreadAbandonMutex()
{
    clock.RunWhileAdvancing([this] { WaitForSingleObject(Mutex(), INFINITE); });
    clock.AdvanceUntilWorkersEnd(1);
}

std::string LineOf(int nValue, int nHappenTime)
{
    return "1;85;" + std::to_string(nValue) + ";" + std::to_string(nHappenTime) + "(" + MOMENT_TEXT + ");;\r\n";
}

std::string LinesOf(int nFirst, int nCount)
{
    std::string lines;
    for (int nValue = nFirst; nValue < nFirst + nCount; ++nValue)
    {
        lines += LineOf(nValue);
    }
    return lines;
}

long long HandlesGainedBy(const std::function<void()>& action)
{
    action();
    const std::size_t nBefore = CountHandles();
    action();
    return static_cast<long long>(CountHandles()) - static_cast<long long>(nBefore);
}

} // namespace varnex::test
