// The disk monitor of the shipped DLL in real time, on this machine's own numbers as the stand-in pdh.dll gives them.

#include "WinePdh.h"

#include "support/AlertLines.h"
#include "support/ImportRedirector.h"
#include "support/LoadedModule.h"
#include "support/LogFile.h"
#include "support/ModuleTree.h"
#include "support/PrivateMutexes.h"
#include "support/ProcessMeter.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

constexpr DWORD PATIENCE_MS = 60'000; // this machine may be busy with more than the test

// Writes a file over and over, down to the disk, while it lives.
class DiskTraffic
{
public:
    explicit DiskTraffic(const std::wstring& path)
        : m_file(
              CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr))
    {
        REQUIRE(m_file);
        m_thread.Reset(CreateThread(nullptr, 0, &DiskTraffic::Run, this, 0, nullptr));
        REQUIRE(m_thread);
    }
    ~DiskTraffic()
    {
        m_bRunning = false;
        WaitForSingleObject(m_thread.Get(), INFINITE);
    }
    DiskTraffic(const DiskTraffic&) = delete;
    DiskTraffic& operator=(const DiskTraffic&) = delete;

private:
    static DWORD WINAPI Run(void* pThis)
    {
        static_cast<DiskTraffic*>(pThis)->Write();
        return 0;
    }
    void Write() const
    {
        const std::vector<char> block(4 << 20, 'x');
        while (m_bRunning)
        {
            DWORD cbWritten = 0;
            SetFilePointer(m_file.Get(), 0, nullptr, FILE_BEGIN);
            WriteFile(m_file.Get(), block.data(), static_cast<DWORD>(block.size()), &cbWritten, nullptr);
            FlushFileBuffers(m_file.Get());
        }
    }

    const UniqueFile m_file;
    std::atomic<bool> m_bRunning{true};
    UniqueHandle m_thread;
};

// Bytes a second over half a second, of all disks; 0 without a counter.
double ReadTotal(const WinePdh& pdh)
{
    PDH_HQUERY hQuery = nullptr;
    PDH_HCOUNTER hCounter = nullptr;
    PDH_FMT_COUNTERVALUE value{};
    REQUIRE(pdh.OpenQueryA(nullptr, 0, &hQuery) == ERROR_SUCCESS);
    pdh.AddCounterA(hQuery, "\\PhysicalDisk(_Total)\\Disk Bytes/sec", 0, &hCounter);
    pdh.Collect(hQuery);
    Sleep(500);
    pdh.Collect(hQuery);
    const bool bRead = pdh.GetValue(hCounter, PDH_FMT_DOUBLE, nullptr, &value) == ERROR_SUCCESS;
    pdh.CloseQuery(hQuery);
    return bRead ? value.doubleValue : 0.0;
}

bool Await(const std::function<bool()>& condition)
{
    for (const ULONGLONG ullEnd = GetTickCount64() + PATIENCE_MS; !condition() && GetTickCount64() < ullEnd;)
    {
        Sleep(50);
    }
    return condition();
}

} // namespace

TEST_CASE("the disk monitor measures what this machine's disk really does")
{
    const WinePdh pdh;
    ModuleTree tree;
    const DiskTraffic traffic(tree.InBin(L"traffic.dat"));
    if (!Await([&pdh] { return ReadTotal(pdh) > 1048576.0; }))
    {
        WARN("this machine's disk statistics do not show what is written");
        return;
    }
    tree.CopyModule();
    tree.WriteConfig(ConfigBuilder().SetPolicy("Disk", 1, 1, 1, 1).SetCounter("Date", ""));
    LoadedModule module(tree, LoadedModule::Start::Later);
    ImportRedirector imports(module.Handle());
    const PrivateMutexes mutexes(imports);
    pdh.Serve(imports);
    REQUIRE(module.Attach());

    const std::size_t nThreads = CountThreads();
    module.Export<decltype(::StartWorkingThread)>("StartWorkingThread")(VARNEX_ALERT_DISK);
    const bool bStored = Await([&tree] { return !tree.Alerts().empty(); });
    module.Export<decltype(::StopWorkingThread)>("StopWorkingThread")(VARNEX_ALERT_DISK);
    REQUIRE(Await([nThreads] { return CountThreads() == nThreads; })); // or the module must not be unloaded

    REQUIRE(bStored);
    const std::vector<AlertLine> alerts = ReadAlertLines(tree);
    REQUIRE(alerts.size() == 1);
    CHECK(alerts[0].nType == 3);
    CHECK(alerts[0].nThreshold == 1);
    CHECK(alerts[0].nValue >= 1);
    CHECK(alerts[0].nValue < 1'000'000); // MB/s
    CHECK_THAT(alerts[0].resource, Catch::Matches("[0-9]+( [C-Z]:)?"));
    CHECK(LogFile(tree).CountContaining("MonDiskThread -- Disk(" + alerts[0].resource + ") throughput(" +
                                        std::to_string(alerts[0].nValue) + "MB/S) reach threshold(1MB/S)") == 1);
}

} // namespace varnex::test
