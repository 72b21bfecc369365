// The stand-in pdh.dll, loaded as a program would: every call and every refusal, from files with known numbers, with a
// scripted clock and system language, and once from the live machine.

#include "module/monitors/WinePdh.h"
#include "support/ImportRedirector.h"
#include "support/TestText.h"

#include <windows.h>

#include <pdh.h>
#include <pdhmsg.h>

#include <catch2/catch.hpp>

#include <array>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

using Names = std::vector<std::wstring>;

constexpr char szTwoProcessors[] = "cpu  300 0 100 600 0 0 0 0 0 0\n"
                                   "cpu0 100 0 100 300 0 0 0 0 0 0\n"
                                   "cpu1 200 0 0 300 0 0 0 0 0 0\n"
                                   "intr 406270 0 0\n"
                                   "cpufreq 1 2 3 4\n"
                                   "ctxt 951129\n";
// Against the first: cpu0 2 of 3 busy, cpu1 1 of 4.
constexpr char szTwoProcessorsLater[] = "cpu  350 0 150 800 0 0 0 0 0 0\n"
                                        "cpu0 150 0 150 350 0 0 0 0 0 0\n"
                                        "cpu1 250 0 0 450 0 0 0 0 0 0\n";
constexpr char szTwoDisks[] = " 259       0 nvme0n1 10 0 1000 5 20 0 3000 7 0 0 0\n"
                              " 259       1 nvme0n1p1 10 0 1000 5 20 0 3000 7 0 0 0\n"
                              "   8       0 sda 1 0 8 1 1 0 16 1 0 0 0\n";

// A file that stands in for one of the kernel's, named to the library by its variable and removed at the end.
class FixedSource
{
public:
    FixedSource(const wchar_t* pwszVariable, const char* pszText) : m_pwszVariable(pwszVariable)
    {
        wchar_t wszFolder[MAX_PATH] = {};
        wchar_t wszFile[MAX_PATH] = {};
        REQUIRE(GetTempPathW(MAX_PATH, wszFolder) != 0);
        REQUIRE(GetTempFileNameW(wszFolder, L"pdh", 0, wszFile) != 0);
        m_path = wszFile;
        Write(pszText);
        SetEnvironmentVariableW(m_pwszVariable, m_path.c_str());
    }
    ~FixedSource()
    {
        SetEnvironmentVariableW(m_pwszVariable, nullptr);
        Remove();
    }
    FixedSource(const FixedSource&) = delete;
    FixedSource& operator=(const FixedSource&) = delete;

    void Write(const std::string& text) const
    {
        std::FILE* pFile = _wfopen(m_path.c_str(), L"wb");
        REQUIRE(pFile != nullptr);
        const std::size_t cbWritten = std::fwrite(text.data(), 1, text.size(), pFile);
        REQUIRE(std::fclose(pFile) == 0);
        REQUIRE(cbWritten == text.size());
    }
    void Remove() const { DeleteFileW(m_path.c_str()); }

private:
    const wchar_t* m_pwszVariable;
    std::wstring m_path;
};

// The library with fixed sources, English names unless told otherwise, and a clock that stands still.
struct Fixture
{
    WinePdh pdh;
    FixedSource processors{L"WINEPDH_PROC_STAT", szTwoProcessors};
    FixedSource disks{L"WINEPDH_DISKSTATS", szTwoDisks};
    LANGID wLanguage = MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US);
    LONGLONG llTicks = 123456789012345;
    LONGLONG llTicksPerSecond = 3000000;
    ImportRedirector redirector{pdh.Handle()};

    Fixture()
    {
        redirector.Replace<decltype(::GetSystemDefaultLangID)>("GetSystemDefaultLangID", [this] { return wLanguage; });
        redirector.Replace<decltype(::QueryPerformanceCounter)>("QueryPerformanceCounter",
                                                                [this](LARGE_INTEGER* pTime)
                                                                {
                                                                    pTime->QuadPart = llTicks;
                                                                    return TRUE;
                                                                });
        redirector.Replace<decltype(::QueryPerformanceFrequency)>("QueryPerformanceFrequency",
                                                                  [this](LARGE_INTEGER* pFrequency)
                                                                  {
                                                                      pFrequency->QuadPart = llTicksPerSecond;
                                                                      return TRUE;
                                                                  });
    }
};

// A query with one counter, by path.
class OneCounter
{
public:
    OneCounter(const WinePdh& pdh, const wchar_t* pwszPath) : m_pdh(pdh)
    {
        REQUIRE(m_pdh.OpenQueryW(nullptr, 0, &m_hQuery) == ERROR_SUCCESS);
        REQUIRE(m_pdh.AddCounterW(m_hQuery, pwszPath, 0, &m_hCounter) == ERROR_SUCCESS);
    }
    ~OneCounter() { m_pdh.CloseQuery(m_hQuery); }
    OneCounter(const OneCounter&) = delete;
    OneCounter& operator=(const OneCounter&) = delete;

    PDH_HQUERY Query() const noexcept { return m_hQuery; }
    PDH_HCOUNTER Counter() const noexcept { return m_hCounter; }
    DWORD Collect() const { return static_cast<DWORD>(m_pdh.Collect(m_hQuery)); }
    DWORD Read(DWORD dwFormat, PDH_FMT_COUNTERVALUE& value) const
    {
        return static_cast<DWORD>(m_pdh.GetValue(m_hCounter, dwFormat, nullptr, &value));
    }
    double ReadDouble(DWORD dwModifier = 0) const
    {
        PDH_FMT_COUNTERVALUE value{};
        REQUIRE(Read(PDH_FMT_DOUBLE | dwModifier, value) == ERROR_SUCCESS);
        REQUIRE(value.CStatus == PDH_CSTATUS_VALID_DATA);
        return value.doubleValue;
    }
    // The status that explains why there is no value.
    DWORD ReadRefusal() const
    {
        PDH_FMT_COUNTERVALUE value{};
        CHECK(Read(PDH_FMT_DOUBLE, value) == PDH_INVALID_DATA);
        return value.CStatus;
    }

private:
    const WinePdh& m_pdh;
    PDH_HQUERY m_hQuery = nullptr;
    PDH_HCOUNTER m_hCounter = nullptr;
};

// Reads names that each end in a terminator; cchList counts the one that ends the list.
Names SplitList(const wchar_t* pwszList, DWORD cchList)
{
    Names names;
    const wchar_t* pwszEnd = pwszList + cchList - 1;
    REQUIRE(*pwszEnd == L'\0');
    for (const wchar_t* pwszName = pwszList; pwszName < pwszEnd; pwszName += names.back().size() + 1)
    {
        names.emplace_back(pwszName);
    }
    return names;
}

struct Items
{
    DWORD dwStatus;
    Names counters;
    Names instances;
};

Items EnumItems(const WinePdh& pdh, const wchar_t* pwszObject)
{
    wchar_t wszCounters[2048];
    wchar_t wszInstances[2048];
    DWORD cchCounters = ARRAYSIZE(wszCounters);
    DWORD cchInstances = ARRAYSIZE(wszInstances);
    const DWORD dwStatus = static_cast<DWORD>(pdh.EnumW(nullptr, nullptr, pwszObject, wszCounters, &cchCounters,
                                                        wszInstances, &cchInstances, PERF_DETAIL_ADVANCED, 0));
    if (dwStatus != ERROR_SUCCESS)
    {
        return {dwStatus, {}, {}};
    }
    return {dwStatus, SplitList(wszCounters, cchCounters), SplitList(wszInstances, cchInstances)};
}

// The status of adding a counter to a query of its own; the handle must be set exactly at success.
DWORD AddPath(const WinePdh& pdh, const wchar_t* pwszPath)
{
    PDH_HQUERY hQuery = nullptr;
    REQUIRE(pdh.OpenQueryW(nullptr, 0, &hQuery) == ERROR_SUCCESS);
    PDH_HCOUNTER hCounter = &hCounter;
    const DWORD dwStatus = static_cast<DWORD>(pdh.AddCounterW(hQuery, pwszPath, 0, &hCounter));
    CHECK((hCounter != nullptr) == (dwStatus == ERROR_SUCCESS));
    CHECK(pdh.CloseQuery(hQuery) == ERROR_SUCCESS);
    return dwStatus;
}

std::string DiskLine(const std::string& name, unsigned uSectorsRead, unsigned uSectorsWritten)
{
    return " 8 0 " + name + " 1 2 " + std::to_string(uSectorsRead) + " 4 5 6 " + std::to_string(uSectorsWritten) +
           " 8 9 10 11\n";
}

} // namespace

TEST_CASE_METHOD(Fixture, "the library that is tested is the stand-in, not the system's own")
{
    wchar_t wszLoaded[MAX_PATH] = {};
    REQUIRE(GetModuleFileNameW(pdh.Handle(), wszLoaded, MAX_PATH) != 0);
    wchar_t wszWanted[MAX_PATH] = {};
    REQUIRE(GetFullPathNameW(WinePdh::Path().c_str(), MAX_PATH, wszWanted, nullptr) != 0);
    CHECK(CompareStringOrdinal(wszLoaded, -1, wszWanted, -1, TRUE) == CSTR_EQUAL);
}

// ---- enumeration

TEST_CASE_METHOD(Fixture, "processors are listed by number, the total last")
{
    const Items items = EnumItems(pdh, L"Processor");
    CHECK(items.dwStatus == ERROR_SUCCESS);
    CHECK(items.counters == Names{L"% Processor Time"});
    CHECK(items.instances == Names{L"0", L"1", L"_Total"});
}

TEST_CASE_METHOD(Fixture, "disks are listed by number and letter, the total last, without partitions")
{
    const Items items = EnumItems(pdh, L"PhysicalDisk");
    CHECK(items.dwStatus == ERROR_SUCCESS);
    CHECK(items.counters == Names{L"Disk Bytes/sec"});
    CHECK(items.instances == Names{L"0 C:", L"1 D:", L"_Total"});
}

TEST_CASE_METHOD(Fixture, "the narrow enumeration gives the same lists")
{
    char szCounters[64];
    char szInstances[64];
    DWORD cchCounters = sizeof(szCounters);
    DWORD cchInstances = sizeof(szInstances);
    REQUIRE(pdh.EnumA(nullptr, nullptr, "PhysicalDisk", szCounters, &cchCounters, szInstances, &cchInstances,
                      PERF_DETAIL_ADVANCED, 0) == ERROR_SUCCESS);
    CHECK(std::string(szCounters, cchCounters) == std::string("Disk Bytes/sec\0", 16));
    CHECK(std::string(szInstances, cchInstances) == std::string("0 C:\0001 D:\0_Total\0", 18));
}

TEST_CASE_METHOD(Fixture, "buffers of exactly the needed sizes are enough, one less is not")
{
    constexpr DWORD cchNeededCounters = 18; // "% Processor Time" with its terminator and the list's
    constexpr DWORD cchNeededInstances = 12;
    const auto [nLackOfCounters, nLackOfInstances] =
        GENERATE(table<DWORD, DWORD>({{0, 0}, {1, 0}, {0, 1}, {1, 1}, {18, 12}}));
    wchar_t wszCounters[cchNeededCounters];
    wchar_t wszInstances[cchNeededInstances];
    wszCounters[0] = wszInstances[0] = L'?';
    DWORD cchCounters = cchNeededCounters - nLackOfCounters;
    DWORD cchInstances = cchNeededInstances - nLackOfInstances;
    const DWORD dwStatus =
        static_cast<DWORD>(pdh.EnumW(nullptr, nullptr, L"Processor", cchCounters != 0 ? wszCounters : nullptr,
                                     &cchCounters, cchInstances != 0 ? wszInstances : nullptr, &cchInstances, 200, 0));
    CHECK(dwStatus == (nLackOfCounters + nLackOfInstances == 0 ? ERROR_SUCCESS : PDH_MORE_DATA));
    CHECK(cchCounters == cchNeededCounters);
    CHECK(cchInstances == cchNeededInstances);
    CHECK(wszCounters[0] == (nLackOfCounters == 0 ? L'%' : L'?'));
    CHECK(wszInstances[0] == (nLackOfInstances == 0 ? L'0' : L'?'));
}

TEST_CASE_METHOD(Fixture, "an enumeration refuses what it cannot serve")
{
    wchar_t wszList[64];
    const auto enumerate =
        [&](const wchar_t* pwszSource, const wchar_t* pwszMachine, const wchar_t* pwszObject, DWORD dwFlags)
    {
        DWORD cchCounters = 32;
        DWORD cchInstances = 32;
        return static_cast<DWORD>(pdh.EnumW(pwszSource, pwszMachine, pwszObject, wszList, &cchCounters, wszList + 32,
                                            &cchInstances, PERF_DETAIL_ADVANCED, dwFlags));
    };
    CHECK(enumerate(nullptr, nullptr, L"Processor", 0) == ERROR_SUCCESS);
    CHECK(enumerate(nullptr, L"\\\\.", L"processor", 0) == ERROR_SUCCESS);
    CHECK(enumerate(nullptr, L"no such machine", L"Processor", 0) == PDH_CSTATUS_NO_MACHINE);
    CHECK(enumerate(L"log.blg", nullptr, L"Processor", 0) == PDH_NOT_IMPLEMENTED);
    CHECK(enumerate(nullptr, nullptr, L"Memory", 0) == PDH_CSTATUS_NO_OBJECT);
    CHECK(enumerate(nullptr, nullptr, L"", 0) == PDH_INVALID_ARGUMENT);
    CHECK(enumerate(nullptr, nullptr, nullptr, 0) == PDH_INVALID_ARGUMENT);
    CHECK(enumerate(nullptr, nullptr, L"Processor", 1) == PDH_INVALID_ARGUMENT);
}

TEST_CASE_METHOD(Fixture, "an enumeration wants both lengths, and a buffer for each length but 0")
{
    char szList[64];
    DWORD cchList = 64;
    CHECK(static_cast<DWORD>(pdh.EnumA(nullptr, nullptr, "Processor", szList, nullptr, szList, &cchList, 200, 0)) ==
          PDH_INVALID_ARGUMENT);
    CHECK(static_cast<DWORD>(pdh.EnumA(nullptr, nullptr, "Processor", szList, &cchList, szList, nullptr, 200, 0)) ==
          PDH_INVALID_ARGUMENT);
    DWORD cchOther = 64;
    CHECK(static_cast<DWORD>(pdh.EnumA(nullptr, nullptr, "Processor", nullptr, &cchList, szList, &cchOther, 200, 0)) ==
          PDH_INVALID_ARGUMENT);
    CHECK(static_cast<DWORD>(pdh.EnumA(nullptr, nullptr, "Processor", szList, &cchList, nullptr, &cchOther, 200, 0)) ==
          PDH_INVALID_ARGUMENT);
    CHECK(cchList == 64);
    CHECK(cchOther == 64);
}

TEST_CASE_METHOD(Fixture, "the best kind of block devices stands for the disks")
{
    const auto [pszDevices, nDisks] = GENERATE(table<const char*, std::size_t>({
        {"sda sda1 sda2 sdab vda xvda xvda1 hda mmcblk0 mmcblk0p1 mmcblk0boot0", 6},
        {"nvme0n1 nvme0n1p1 nvme10n2 nvme0c0n1 loop0 ram0 zram0 dm-0 md0 sr0", 2},
        // No whole disk: partitions before what is stacked upon them, that before what lives in memory.
        {"loop0 dm-0 xvda1 xvda2", 2},
        {"loop0 zram0 dm-0 md127 md126", 3},
        {"loop0 ram0 zram0", 3},
        {"", 0},
    }));
    std::string text;
    std::istringstream devices(pszDevices);
    for (std::string device; devices >> device;)
    {
        text += DiskLine(device, 1, 1);
    }
    CAPTURE(text);
    disks.Write(text);
    const Items items = EnumItems(pdh, L"PhysicalDisk");
    CHECK(items.dwStatus == ERROR_SUCCESS);
    REQUIRE(items.instances.size() == nDisks + 1);
    CHECK(items.instances.back() == L"_Total");
}

TEST_CASE_METHOD(Fixture, "lines that are too short for a device are passed over")
{
    disks.Write(" 8 0 sda 1 2 3 4 5 6\n\nnonsense\n" + DiskLine("sdb", 1, 1));
    CHECK(EnumItems(pdh, L"PhysicalDisk").instances == Names{L"0 C:", L"_Total"});
}

TEST_CASE_METHOD(Fixture, "the disk after Z: has a number only")
{
    std::string text;
    for (char chDisk = 'a'; chDisk <= 'y'; ++chDisk)
    {
        text += DiskLine(std::string("sd") + chDisk, 1, 1);
    }
    disks.Write(text);
    const Items items = EnumItems(pdh, L"PhysicalDisk");
    REQUIRE(items.instances.size() == 26);
    CHECK(items.instances[23] == L"23 Z:");
    CHECK(items.instances[24] == L"24");
}

TEST_CASE_METHOD(Fixture, "an object whose source cannot be read, or says nothing, does not exist")
{
    disks.Remove();
    CHECK(EnumItems(pdh, L"PhysicalDisk").dwStatus == PDH_CSTATUS_NO_OBJECT);
    CHECK(AddPath(pdh, L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec") == PDH_CSTATUS_NO_OBJECT);
    processors.Write("intr 1 2 3\n");
    CHECK(EnumItems(pdh, L"Processor").dwStatus == PDH_CSTATUS_NO_OBJECT);
}

// ---- processor time

TEST_CASE_METHOD(Fixture, "processor time is the busy share between the two latest collections")
{
    const OneCounter first(pdh, L"\\Processor(0)\\% Processor Time");
    const OneCounter second(pdh, L"\\Processor(1)\\% Processor Time");
    const OneCounter total(pdh, L"\\Processor(_Total)\\% Processor Time");
    const auto collect = [&]
    {
        REQUIRE(first.Collect() == ERROR_SUCCESS);
        REQUIRE(second.Collect() == ERROR_SUCCESS);
        REQUIRE(total.Collect() == ERROR_SUCCESS);
    };
    collect();
    processors.Write(szTwoProcessorsLater);
    collect();
    CHECK(first.ReadDouble() == Approx(200.0 / 3));
    CHECK(second.ReadDouble() == Approx(25.0));
    CHECK(total.ReadDouble() == Approx(100.0 / 3));
    CHECK(first.ReadDouble() == Approx(200.0 / 3)); // reading takes nothing away

    collect(); // no time in between
    CHECK(first.ReadDouble() == 0.0);
}

TEST_CASE_METHOD(Fixture, "each kind of time counts as busy or idle, and guest time only once")
{
    //                           user nice system idle iowait irq softirq steal guest guest_nice
    const auto [times, dPercent] = GENERATE(table<const char*, double>({
        {"10 0 0 10 0 0 0 0 0 0", 50.0},
        {"0 10 0 10 0 0 0 0 0 0", 50.0},
        {"0 0 10 10 0 0 0 0 0 0", 50.0},
        {"0 0 0 10 0 10 0 0 0 0", 50.0},
        {"0 0 0 10 0 0 10 0 0 0", 50.0},
        {"0 0 0 10 0 0 0 10 0 0", 50.0},
        {"10 0 0 0 10 0 0 0 0 0", 50.0},
        {"10 0 0 10 0 0 0 0 10 10", 50.0},
        {"10 0 0 10", 50.0}, // an old kernel
        {"10 0 0 0 0 0 0 0 0 0", 100.0},
        {"0 0 0 10 0 0 0 0 0 0", 0.0},
    }));
    processors.Write("cpu 0 0 0 0 0 0 0 0 0 0\ncpu0 0 0 0 0 0 0 0 0 0 0\n");
    const OneCounter counter(pdh, L"\\Processor(0)\\% Processor Time");
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    processors.Write(std::string("cpu0 ") + times + "\n");
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    CAPTURE(times);
    CHECK(counter.ReadDouble() == Approx(dPercent));
}

TEST_CASE_METHOD(Fixture, "processor time stops at 100 percent unless told not to")
{
    processors.Write("cpu0 100 0 0 100\n");
    const OneCounter counter(pdh, L"\\Processor(0)\\% Processor Time");
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    processors.Write("cpu0 110 0 0 95\n"); // the kernel's idle times may run backwards
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    CHECK(counter.ReadDouble() == 100.0);
    CHECK(counter.ReadDouble(PDH_FMT_NOCAP100) == Approx(200.0));
}

// ---- disk throughput

TEST_CASE_METHOD(Fixture, "disk bytes are the sectors read and written in a second, 512 bytes each")
{
    disks.Write(DiskLine("sda", 1000, 2000) + DiskLine("sdb", 10, 20));
    const OneCounter first(pdh, L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec");
    const OneCounter second(pdh, L"\\PhysicalDisk(1 D:)\\Disk Bytes/sec");
    const OneCounter total(pdh, L"\\PhysicalDisk(_Total)\\Disk Bytes/sec");
    const auto collect = [&]
    {
        REQUIRE(first.Collect() == ERROR_SUCCESS);
        REQUIRE(second.Collect() == ERROR_SUCCESS);
        REQUIRE(total.Collect() == ERROR_SUCCESS);
    };
    collect();
    disks.Write(DiskLine("sda", 1300, 2100) + DiskLine("sdb", 10, 60));
    llTicks += 2 * llTicksPerSecond;
    collect();
    CHECK(first.ReadDouble() == Approx(400 * 512 / 2.0));
    CHECK(second.ReadDouble() == Approx(40 * 512 / 2.0));
    CHECK(total.ReadDouble() == Approx(440 * 512 / 2.0));

    disks.Write(DiskLine("sda", 1301, 2100) + DiskLine("sdb", 10, 60));
    llTicks += llTicksPerSecond / 2;
    collect();
    CHECK(first.ReadDouble() == Approx(1024.0));
    CHECK(second.ReadDouble() == 0.0);
}

TEST_CASE_METHOD(Fixture, "disk bytes in no time are none")
{
    const OneCounter counter(pdh, L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec");
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    disks.Write(DiskLine("sda", 900000, 0));
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    CHECK(counter.ReadDouble() == 0.0);
}

TEST_CASE_METHOD(Fixture, "a disk that counts from the start again gives no value for that once")
{
    disks.Write(DiskLine("sda", 1000, 0));
    const OneCounter counter(pdh, L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec");
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    disks.Write(DiskLine("sda", 10, 0));
    llTicks += llTicksPerSecond;
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    PDH_FMT_COUNTERVALUE value{};
    CHECK(counter.Read(PDH_FMT_DOUBLE, value) == PDH_CALC_NEGATIVE_VALUE);
    CHECK(value.CStatus == PDH_CALC_NEGATIVE_VALUE);
    disks.Write(DiskLine("sda", 12, 0));
    llTicks += llTicksPerSecond;
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    CHECK(counter.ReadDouble() == Approx(1024.0));
}

TEST_CASE_METHOD(Fixture, "a disk that is not there yet gives no value until two collections after it has come")
{
    disks.Write(DiskLine("sda", 1000, 0));
    const OneCounter counter(pdh, L"\\PhysicalDisk(1 D:)\\Disk Bytes/sec");
    CHECK(counter.Collect() == PDH_NO_DATA);
    CHECK(counter.ReadRefusal() == PDH_CSTATUS_NO_INSTANCE);
    disks.Write(DiskLine("sda", 1000, 0) + DiskLine("sdb", 1000, 0));
    CHECK(counter.Collect() == ERROR_SUCCESS);
    CHECK(counter.ReadRefusal() == PDH_CSTATUS_INVALID_DATA);
    CHECK(counter.Collect() == ERROR_SUCCESS);
    CHECK(counter.ReadDouble() == 0.0);
}

TEST_CASE_METHOD(Fixture, "a disk that is away gives no value until two collections after it is back")
{
    disks.Write(DiskLine("sda", 1000, 0) + DiskLine("sdb", 1000, 0));
    const OneCounter counter(pdh, L"\\PhysicalDisk(1 D:)\\Disk Bytes/sec");
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    CHECK(counter.ReadDouble() == 0.0);
    disks.Write(DiskLine("sda", 1000, 0));
    CHECK(counter.Collect() == PDH_NO_DATA);
    CHECK(counter.ReadRefusal() == PDH_CSTATUS_NO_INSTANCE);
    disks.Remove();
    CHECK(counter.Collect() == PDH_NO_DATA);
    CHECK(counter.ReadRefusal() == PDH_CSTATUS_NO_OBJECT);
    disks.Write(DiskLine("sda", 1000, 0) + DiskLine("sdb", 1000, 0));
    CHECK(counter.Collect() == ERROR_SUCCESS);
    CHECK(counter.ReadRefusal() == PDH_CSTATUS_INVALID_DATA);
    CHECK(counter.Collect() == ERROR_SUCCESS);
    CHECK(counter.ReadDouble() == 0.0);
}

// ---- values

TEST_CASE_METHOD(Fixture, "a rate needs two collections")
{
    const OneCounter counter(pdh, L"\\Processor(0)\\% Processor Time");
    CHECK(counter.ReadRefusal() == PDH_CSTATUS_INVALID_DATA);
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    CHECK(counter.ReadRefusal() == PDH_CSTATUS_INVALID_DATA);
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    CHECK(counter.ReadDouble() == 0.0);
}

TEST_CASE_METHOD(Fixture, "a value comes in the format that was asked for, whole numbers truncated")
{
    const OneCounter counter(pdh, L"\\Processor(0)\\% Processor Time");
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    processors.Write(szTwoProcessorsLater);
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    PDH_FMT_COUNTERVALUE value{};
    CHECK(counter.Read(PDH_FMT_DOUBLE, value) == ERROR_SUCCESS);
    CHECK(value.doubleValue == Approx(66.6667));
    value.largeValue = -1;
    CHECK(counter.Read(PDH_FMT_LONG, value) == ERROR_SUCCESS);
    CHECK(value.longValue == 66);
    value.largeValue = -1;
    CHECK(counter.Read(PDH_FMT_LARGE | PDH_FMT_NOSCALE, value) == ERROR_SUCCESS);
    CHECK(value.largeValue == 66);
    CHECK(counter.Read(PDH_FMT_LARGE | PDH_FMT_1000, value) == ERROR_SUCCESS);
    CHECK(value.largeValue == 66666);
}

TEST_CASE_METHOD(Fixture, "a value that a format cannot hold is the largest that it can")
{
    disks.Write(DiskLine("sda", 0, 0));
    const OneCounter counter(pdh, L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec");
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    disks.Write(DiskLine("sda", 10000000, 0));
    llTicks += llTicksPerSecond;
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    PDH_FMT_COUNTERVALUE value{};
    CHECK(counter.Read(PDH_FMT_LONG, value) == ERROR_SUCCESS);
    CHECK(value.longValue == MAXLONG);
    CHECK(counter.Read(PDH_FMT_LARGE, value) == ERROR_SUCCESS);
    CHECK(value.largeValue == 5120000000);
}

TEST_CASE_METHOD(Fixture, "a format that is not one kind of number is refused")
{
    const OneCounter counter(pdh, L"\\Processor(0)\\% Processor Time");
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    REQUIRE(counter.Collect() == ERROR_SUCCESS);
    const DWORD dwFormat = GENERATE(as<DWORD>{}, 0, PDH_FMT_LONG | PDH_FMT_DOUBLE, PDH_FMT_RAW, PDH_FMT_NOSCALE,
                                    PDH_FMT_DOUBLE | PDH_FMT_UNICODE);
    PDH_FMT_COUNTERVALUE value{};
    CHECK(counter.Read(dwFormat, value) == PDH_INVALID_ARGUMENT);
}

TEST_CASE_METHOD(Fixture, "the counter's type comes with its value")
{
    DWORD dwType = 0;
    PDH_FMT_COUNTERVALUE value{};
    const OneCounter processor(pdh, L"\\Processor(0)\\% Processor Time");
    pdh.GetValue(processor.Counter(), PDH_FMT_DOUBLE, &dwType, &value);
    CHECK(dwType == PERF_100NSEC_TIMER_INV);
    const OneCounter disk(pdh, L"\\PhysicalDisk(_Total)\\Disk Bytes/sec");
    pdh.GetValue(disk.Counter(), PDH_FMT_DOUBLE, &dwType, &value);
    CHECK(dwType == PERF_COUNTER_BULK_COUNT);
}

TEST_CASE_METHOD(Fixture, "all counters of an object are collected from one reading")
{
    const OneCounter query(pdh, L"\\Processor(0)\\% Processor Time");
    PDH_HCOUNTER hSecond = nullptr;
    PDH_HCOUNTER hDisk = nullptr;
    REQUIRE(pdh.AddCounterW(query.Query(), L"\\Processor(1)\\% Processor Time", 0, &hSecond) == ERROR_SUCCESS);
    REQUIRE(pdh.AddCounterW(query.Query(), L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec", 0, &hDisk) == ERROR_SUCCESS);
    redirector.CountCalls("_wfopen");
    const ULONGLONG ullBefore = redirector.Calls("_wfopen");
    REQUIRE(query.Collect() == ERROR_SUCCESS);
    CHECK(redirector.Calls("_wfopen") - ullBefore == 2);
}

TEST_CASE_METHOD(Fixture, "a collection succeeds when any counter has data")
{
    const OneCounter query(pdh, L"\\Processor(0)\\% Processor Time");
    PDH_HCOUNTER hDisk = nullptr;
    REQUIRE(pdh.AddCounterW(query.Query(), L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec", 0, &hDisk) == ERROR_SUCCESS);
    disks.Remove();
    CHECK(query.Collect() == ERROR_SUCCESS);
    processors.Remove();
    CHECK(query.Collect() == PDH_NO_DATA);
}

// ---- paths

TEST_CASE_METHOD(Fixture, "a path is taken apart and each part is checked")
{
    const auto [path, dwStatus] = GENERATE(table<const wchar_t*, DWORD>({
        {L"\\Processor(0)\\% Processor Time", ERROR_SUCCESS},
        {L"\\PROCESSOR(_total)\\% processor time", ERROR_SUCCESS},
        {L"\\\\.\\Processor(0)\\% Processor Time", ERROR_SUCCESS},
        {L"\\PhysicalDisk(1 D:)\\Disk Bytes/sec", ERROR_SUCCESS},
        {L"\\\\elsewhere\\Processor(0)\\% Processor Time", PDH_CSTATUS_NO_MACHINE},
        {L"\\Memory(0)\\% Processor Time", PDH_CSTATUS_NO_OBJECT},
        {L"\\Processor(0)\\Disk Bytes/sec", PDH_CSTATUS_NO_COUNTER},
        {L"\\Processor(2)\\% Processor Time", ERROR_SUCCESS}, // an instance may come later
        {L"\\Processor\\% Processor Time", PDH_CSTATUS_NO_INSTANCE},
        {L"\\PhysicalDisk(2 E:)\\Disk Bytes/sec", ERROR_SUCCESS},
        {L"Processor(0)\\% Processor Time", PDH_CSTATUS_BAD_COUNTERNAME},
        {L"\\Processor(0)% Processor Time", PDH_CSTATUS_BAD_COUNTERNAME},
        {L"\\Processor(0\\% Processor Time", PDH_CSTATUS_BAD_COUNTERNAME},
        {L"\\Processor()\\% Processor Time", PDH_CSTATUS_BAD_COUNTERNAME},
        {L"\\(0)\\% Processor Time", PDH_CSTATUS_BAD_COUNTERNAME},
        {L"\\Processor(0)\\", PDH_CSTATUS_BAD_COUNTERNAME},
        {L"\\Processor(0)", PDH_CSTATUS_BAD_COUNTERNAME},
        {L"\\Processor", PDH_CSTATUS_BAD_COUNTERNAME},
        {L"\\\\machine", PDH_CSTATUS_BAD_COUNTERNAME},
        {L"\\\\\\Processor(0)\\% Processor Time", PDH_CSTATUS_BAD_COUNTERNAME},
        {L"\\", PDH_CSTATUS_BAD_COUNTERNAME},
        {L"", PDH_CSTATUS_NO_COUNTERNAME},
    }));
    CAPTURE(Utf8FromWide(path));
    CHECK(AddPath(pdh, path) == dwStatus);
}

TEST_CASE_METHOD(Fixture, "this computer may be named in a path")
{
    wchar_t wszComputer[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD cchComputer = ARRAYSIZE(wszComputer);
    REQUIRE(GetComputerNameW(wszComputer, &cchComputer));
    const std::wstring path = std::wstring(L"\\\\") + wszComputer + L"\\Processor(0)\\% Processor Time";
    CHECK(AddPath(pdh, path.c_str()) == ERROR_SUCCESS);
}

// ---- names in the system's language

namespace
{

struct Language
{
    LANGID wId;
    const wchar_t* pwszProcessor;
    const wchar_t* pwszProcessorTime;
    const wchar_t* pwszDisk;
    const wchar_t* pwszDiskBytes;
};

constexpr Language english{MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_UK), L"Processor", L"% Processor Time",
                           L"PhysicalDisk", L"Disk Bytes/sec"};

const std::array<Language, 10> languages{{
    english,
    {MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN), L"Prozessor", L"Prozessorzeit (%)", L"physikalischer Datentr\u00E4ger",
     L"Bytes auf Festplatte/Sek"},
    {MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN_SWISS), L"Prozessor", L"Prozessorzeit (%)",
     L"physikalischer Datentr\u00E4ger", L"Bytes auf Festplatte/Sek"},
    {MAKELANGID(LANG_SPANISH, SUBLANG_SPANISH_MODERN), L"Procesador", L"% de tiempo de procesador", L"DiscoF\u00EDsico",
     L"Bytes de s."},
    {MAKELANGID(LANG_FRENCH, SUBLANG_FRENCH), L"Processeur", L"% Temps processeur", L"Disque physique",
     L"Octets disque/s"},
    {MAKELANGID(LANG_ITALIAN, SUBLANG_ITALIAN), L"Processore", L"% Tempo processore", L"Disco fisico",
     L"Byte da/a disco/sec"},
    {MAKELANGID(LANG_PORTUGUESE, SUBLANG_PORTUGUESE), L"Processador", L"% tempo de processador", L"PhysicalDisk",
     L"Bytes de disco/s"},
    {MAKELANGID(LANG_PORTUGUESE, SUBLANG_PORTUGUESE_BRAZILIAN), L"Processador", L"% tempo de processador",
     L"PhysicalDisk", L"Bytes de disco/s"},
    {MAKELANGID(LANG_JAPANESE, SUBLANG_DEFAULT), L"Processor", L"% Processor Time", L"PhysicalDisk", L"Disk Bytes/sec"},
    {MAKELANGID(LANG_RUSSIAN, SUBLANG_DEFAULT), L"Processor", L"% Processor Time", L"PhysicalDisk", L"Disk Bytes/sec"},
}};

std::wstring MakePath(const wchar_t* pwszObject, const wchar_t* pwszInstance, const wchar_t* pwszCounter)
{
    return std::wstring(L"\\") + pwszObject + L"(" + pwszInstance + L")\\" + pwszCounter;
}

} // namespace

TEST_CASE_METHOD(Fixture, "names are those of the system's language")
{
    for (const Language& language : languages)
    {
        CAPTURE(language.wId);
        wLanguage = language.wId;
        CHECK(EnumItems(pdh, language.pwszProcessor).counters == Names{language.pwszProcessorTime});
        CHECK(EnumItems(pdh, language.pwszDisk).counters == Names{language.pwszDiskBytes});
        CHECK(EnumItems(pdh, language.pwszDisk).instances == Names{L"0 C:", L"1 D:", L"_Total"});
        CHECK(AddPath(pdh, MakePath(language.pwszProcessor, L"0", language.pwszProcessorTime).c_str()) ==
              ERROR_SUCCESS);
        CHECK(AddPath(pdh, MakePath(language.pwszDisk, L"1 D:", language.pwszDiskBytes).c_str()) == ERROR_SUCCESS);
    }
}

TEST_CASE_METHOD(Fixture, "names of another language are not known")
{
    wLanguage = MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN);
    CHECK(EnumItems(pdh, english.pwszProcessor).dwStatus == PDH_CSTATUS_NO_OBJECT);
    CHECK(AddPath(pdh, L"\\Processor(0)\\% Processor Time") == PDH_CSTATUS_NO_OBJECT);
    CHECK(AddPath(pdh, L"\\Prozessor(0)\\% Processor Time") == PDH_CSTATUS_NO_COUNTER);
    wLanguage = english.wId;
    CHECK(EnumItems(pdh, L"Prozessor").dwStatus == PDH_CSTATUS_NO_OBJECT);
}

TEST_CASE_METHOD(Fixture, "the narrow calls take accented names in the system's code page")
{
    if (GetACP() != 1252)
    {
        WARN("this machine's code page is not 1252");
        return;
    }
    wLanguage = MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN);
    char szCounters[64];
    char szInstances[64];
    DWORD cchCounters = sizeof(szCounters);
    DWORD cchInstances = sizeof(szInstances);
    CHECK(pdh.EnumA(nullptr, nullptr, "physikalischer Datentr\xE4ger", szCounters, &cchCounters, szInstances,
                    &cchInstances, PERF_DETAIL_ADVANCED, 0) == ERROR_SUCCESS);
    CHECK(std::string(szCounters) == "Bytes auf Festplatte/Sek");

    PDH_HQUERY hQuery = nullptr;
    PDH_HCOUNTER hCounter = nullptr;
    REQUIRE(pdh.OpenQueryA(nullptr, 0, &hQuery) == ERROR_SUCCESS);
    CHECK(pdh.AddCounterA(hQuery, "\\physikalischer Datentr\xE4ger(0 C:)\\Bytes auf Festplatte/Sek", 0, &hCounter) ==
          ERROR_SUCCESS);
    wLanguage = MAKELANGID(LANG_SPANISH, SUBLANG_SPANISH);
    CHECK(pdh.AddCounterA(hQuery, "\\DiscoF\xEDsico(0 C:)\\Bytes de s.", 0, &hCounter) == ERROR_SUCCESS);
    CHECK(pdh.CloseQuery(hQuery) == ERROR_SUCCESS);
}

// ---- arguments and handles

TEST_CASE_METHOD(Fixture, "null arguments are refused")
{
    CHECK(static_cast<DWORD>(pdh.OpenQueryA(nullptr, 0, nullptr)) == PDH_INVALID_ARGUMENT);
    CHECK(static_cast<DWORD>(pdh.OpenQueryW(nullptr, 0, nullptr)) == PDH_INVALID_ARGUMENT);
    const OneCounter counter(pdh, L"\\Processor(0)\\% Processor Time");
    PDH_HCOUNTER hCounter = nullptr;
    CHECK(static_cast<DWORD>(pdh.AddCounterA(counter.Query(), nullptr, 0, &hCounter)) == PDH_INVALID_ARGUMENT);
    CHECK(static_cast<DWORD>(pdh.AddCounterW(counter.Query(), nullptr, 0, &hCounter)) == PDH_INVALID_ARGUMENT);
    CHECK(static_cast<DWORD>(pdh.AddCounterW(counter.Query(), L"\\Processor(0)\\% Processor Time", 0, nullptr)) ==
          PDH_INVALID_ARGUMENT);
    CHECK(static_cast<DWORD>(pdh.GetValue(counter.Counter(), PDH_FMT_DOUBLE, nullptr, nullptr)) ==
          PDH_INVALID_ARGUMENT);
}

TEST_CASE_METHOD(Fixture, "log files are no source")
{
    PDH_HQUERY hQuery = &hQuery;
    CHECK(static_cast<DWORD>(pdh.OpenQueryA("log.blg", 0, &hQuery)) == PDH_NOT_IMPLEMENTED);
    CHECK(hQuery == nullptr);
}

TEST_CASE_METHOD(Fixture, "a query without counters has no data")
{
    PDH_HQUERY hQuery = nullptr;
    REQUIRE(pdh.OpenQueryW(nullptr, 0, &hQuery) == ERROR_SUCCESS);
    CHECK(static_cast<DWORD>(pdh.Collect(hQuery)) == PDH_NO_DATA);
    CHECK(pdh.CloseQuery(hQuery) == ERROR_SUCCESS);
}

TEST_CASE_METHOD(Fixture, "handles that name nothing, or something else, are refused")
{
    const OneCounter counter(pdh, L"\\Processor(0)\\% Processor Time");
    PDH_HCOUNTER hAdded = nullptr;
    PDH_FMT_COUNTERVALUE value{};
    for (const HANDLE hWrong : {HANDLE(nullptr), HANDLE(&value), HANDLE(counter.Counter())})
    {
        CHECK(static_cast<DWORD>(pdh.Collect(hWrong)) == PDH_INVALID_HANDLE);
        CHECK(static_cast<DWORD>(pdh.CloseQuery(hWrong)) == PDH_INVALID_HANDLE);
        CHECK(static_cast<DWORD>(pdh.AddCounterA(hWrong, "\\Processor(0)\\% Processor Time", 0, &hAdded)) ==
              PDH_INVALID_HANDLE);
    }
    for (const HANDLE hWrong : {HANDLE(nullptr), HANDLE(&value), HANDLE(counter.Query())})
    {
        CHECK(static_cast<DWORD>(pdh.GetValue(hWrong, PDH_FMT_DOUBLE, nullptr, &value)) == PDH_INVALID_HANDLE);
        CHECK(static_cast<DWORD>(pdh.RemoveCounter(hWrong)) == PDH_INVALID_HANDLE);
    }
}

TEST_CASE_METHOD(Fixture, "a removed counter is gone, its query lives on")
{
    const OneCounter counter(pdh, L"\\Processor(0)\\% Processor Time");
    PDH_HCOUNTER hOther = nullptr;
    REQUIRE(pdh.AddCounterA(counter.Query(), "\\Processor(1)\\% Processor Time", 0, &hOther) == ERROR_SUCCESS);
    CHECK(pdh.RemoveCounter(hOther) == ERROR_SUCCESS);
    CHECK(static_cast<DWORD>(pdh.RemoveCounter(hOther)) == PDH_INVALID_HANDLE);
    CHECK(counter.Collect() == ERROR_SUCCESS);
    CHECK(pdh.RemoveCounter(counter.Counter()) == ERROR_SUCCESS);
    CHECK(counter.Collect() == PDH_NO_DATA);
}

TEST_CASE_METHOD(Fixture, "a closed query takes its counters along, and no handle comes back")
{
    PDH_HQUERY hQuery = nullptr;
    PDH_HCOUNTER hCounter = nullptr;
    PDH_FMT_COUNTERVALUE value{};
    REQUIRE(pdh.OpenQueryA(nullptr, 0, &hQuery) == ERROR_SUCCESS);
    REQUIRE(pdh.AddCounterA(hQuery, "\\Processor(0)\\% Processor Time", 0, &hCounter) == ERROR_SUCCESS);
    CHECK(pdh.CloseQuery(hQuery) == ERROR_SUCCESS);
    const OneCounter other(pdh, L"\\Processor(0)\\% Processor Time");
    CHECK(static_cast<DWORD>(pdh.CloseQuery(hQuery)) == PDH_INVALID_HANDLE);
    CHECK(static_cast<DWORD>(pdh.Collect(hQuery)) == PDH_INVALID_HANDLE);
    CHECK(static_cast<DWORD>(pdh.GetValue(hCounter, PDH_FMT_DOUBLE, nullptr, &value)) == PDH_INVALID_HANDLE);
    CHECK(static_cast<DWORD>(pdh.RemoveCounter(hCounter)) == PDH_INVALID_HANDLE);
}

namespace
{

struct QueryRounds
{
    const WinePdh* pPdh;
    HANDLE hStart;
    unsigned uFailures;
};

DWORD WINAPI OpenAndCloseQueries(void* pArgument)
{
    QueryRounds& rounds = *static_cast<QueryRounds*>(pArgument);
    WaitForSingleObject(rounds.hStart, INFINITE);
    for (unsigned uRound = 0; uRound < 100000; ++uRound)
    {
        PDH_HQUERY hQuery = nullptr;
        rounds.uFailures += rounds.pPdh->OpenQueryW(nullptr, 0, &hQuery) != ERROR_SUCCESS;
        rounds.uFailures += static_cast<DWORD>(rounds.pPdh->Collect(hQuery)) != PDH_NO_DATA;
        rounds.uFailures += rounds.pPdh->CloseQuery(hQuery) != ERROR_SUCCESS;
    }
    return 0;
}

} // namespace

TEST_CASE("threads with queries of their own do not disturb each other")
{
    const WinePdh pdh;
    const UniqueHandle start(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    REQUIRE(start);
    std::array<QueryRounds, 4> rounds;
    rounds.fill({&pdh, start.Get(), 0});
    std::array<UniqueHandle, rounds.size()> threads;
    for (std::size_t nThread = 0; nThread < threads.size(); ++nThread)
    {
        threads[nThread].Reset(CreateThread(nullptr, 0, &OpenAndCloseQueries, &rounds[nThread], 0, nullptr));
        REQUIRE(threads[nThread]);
    }
    SetEvent(start.Get());
    for (std::size_t nThread = 0; nThread < threads.size(); ++nThread)
    {
        CHECK(WaitForSingleObject(threads[nThread].Get(), 60000) == WAIT_OBJECT_0);
        CHECK(rounds[nThread].uFailures == 0);
    }
}

// ---- the live machine

TEST_CASE("the machine's own numbers are in their ranges")
{
    WinePdh pdh;
    LANGID wLanguage = english.wId;
    ImportRedirector redirector(pdh.Handle());
    redirector.Replace<decltype(::GetSystemDefaultLangID)>("GetSystemDefaultLangID", [&] { return wLanguage; });

    const Items processors = EnumItems(pdh, L"Processor");
    REQUIRE(processors.dwStatus == ERROR_SUCCESS);
    REQUIRE(processors.instances.size() >= 2);
    CHECK(processors.instances.front() == L"0");
    CHECK(processors.instances.back() == L"_Total");
    const OneCounter load(pdh, L"\\Processor(_Total)\\% Processor Time");
    REQUIRE(load.Collect() == ERROR_SUCCESS);
    for (const ULONGLONG ullEnd = GetTickCount64() + 500; GetTickCount64() < ullEnd;)
    {
        // This thread is the load: without it an idle machine could show 0.
    }
    REQUIRE(load.Collect() == ERROR_SUCCESS);
    CHECK(load.ReadDouble() > 0.0);
    CHECK(load.ReadDouble() <= 100.0);

    const Items disks = EnumItems(pdh, L"PhysicalDisk");
    if (disks.dwStatus != ERROR_SUCCESS)
    {
        WARN("this machine shows no disk statistics");
        return;
    }
    REQUIRE_FALSE(disks.instances.empty());
    CHECK(disks.instances.back() == L"_Total");
    const std::wstring path = MakePath(L"PhysicalDisk", disks.instances.front().c_str(), L"Disk Bytes/sec");
    const OneCounter throughput(pdh, path.c_str());
    REQUIRE(throughput.Collect() == ERROR_SUCCESS);
    Sleep(100);
    REQUIRE(throughput.Collect() == ERROR_SUCCESS);
    CHECK(throughput.ReadDouble() >= 0.0);
}

} // namespace varnex::test
