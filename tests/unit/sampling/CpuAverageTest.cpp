#include "sampling/CpuSampling.h"

#include "support/ChildProcess.h"
#include "support/ScriptedExports.h"
#include "support/ScriptedSystemTimes.h"
#include "unit/sampling/SamplingTest.h"

#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

// The ticks go on from test to test, because the module keeps the tick of its last reading.
DWORD g_dwTick = 200;

class CpuAverageTest : public SamplingTest
{
protected:
    CpuAverageTest() : m_exports(m_redirector), m_times(m_exports)
    {
        m_redirector.Replace<decltype(::GetTickCount)>("GetTickCount", [] { return g_dwTick; });
    }

    // A reading that leaves all three times at zero, as they are when the module has just been loaded.
    void StartFromZero()
    {
        m_times.SetTimes(0, 0, 0);
        ReadAfter(1000);
    }
    static int ReadAfter(DWORD dwMilliseconds)
    {
        g_dwTick += dwMilliseconds;
        return GetCPUUtlAverage();
    }

    ScriptedExports m_exports;
    ScriptedSystemTimes m_times;
};

} // namespace

TEST_CASE("the first reading gives the average since the system started")
{
    const ChildProcess child = ChildProcess::OfTestCase("child: takes the first reading of its process");
    REQUIRE(child.WaitForEnd(20000));
    INFO(child.Output());
    CHECK(child.ExitCode() == 0);
}

TEST_CASE_METHOD(CpuAverageTest, "child: takes the first reading of its process", "[.]")
{
    m_times.SetTimes(600, 800, 200);
    CHECK(ReadAfter(0) == 0); // 200 ms after the start of the system there is none yet
    CHECK(m_times.Reads() == 0);
    CHECK(ReadAfter(1) == 40);
    CHECK(m_times.Reads() == 1);
}

TEST_CASE_METHOD(CpuAverageTest, "the utilization is the busy part of the kernel and user times")
{
    struct Load
    {
        ULONGLONG ullIdle;
        ULONGLONG ullKernel; // with the idle time
        ULONGLONG ullUser;
        int nPercent;
    };
    const auto load = GENERATE(values<Load>({
        {600, 800, 200, 40},
        {1000, 1000, 0, 0},
        {0, 1000, 0, 100},
        {0, 0, 1000, 100},
        {1, 3, 0, 66},     // 66.67
        {999, 1000, 0, 0}, // 0.1
        {1, 900, 100, 99}, // 99.9
        {10'000'000'000'000, 15'000'000'000'000, 5'000'000'000'000, 50},
        {4, 3, 0, -33}, // more idle than all time: the caller sees that it is no percentage
        {0, 0, 0, 0},
    }));
    CAPTURE(load.ullIdle, load.ullKernel, load.ullUser);
    StartFromZero();
    m_times.SetTimes(load.ullIdle, load.ullKernel, load.ullUser);
    CHECK(ReadAfter(1000) == load.nPercent);
}

TEST_CASE_METHOD(CpuAverageTest, "the times of many processors that have run for many years have an average")
{
    constexpr ULONGLONG TICKS_PER_YEAR = 365ULL * 24 * 3600 * 10'000'000;
    const auto ullTime = GENERATE(64 * 5 * TICKS_PER_YEAR, 1024 * 10 * TICKS_PER_YEAR);
    const auto nPercent = GENERATE(0, 25, 99, 100);
    CAPTURE(ullTime, nPercent);
    StartFromZero();
    m_times.SetTimes(ullTime - ullTime / 100 * static_cast<ULONGLONG>(nPercent), ullTime, 0);
    CHECK(ReadAfter(1000) == nPercent);
}

TEST_CASE_METHOD(CpuAverageTest, "each reading counts from the one before")
{
    StartFromZero();
    m_times.SetTimes(100, 150, 50); // 100 of 200
    CHECK(ReadAfter(1000) == 50);
    m_times.SetTimes(190, 240, 60); // 10 of 100
    CHECK(ReadAfter(1000) == 10);
    m_times.SetTimes(200, 300, 100); // 90 of 100
    CHECK(ReadAfter(1000) == 90);
}

TEST_CASE_METHOD(CpuAverageTest, "within 200 ms the last result is given again without reading the times")
{
    struct Repetition
    {
        DWORD dwMilliseconds;
        ULONGLONG ullReads;
        int nPercent;
    };
    const auto repetition =
        GENERATE(values<Repetition>({{0, 0, 40}, {150, 0, 40}, {200, 0, 40}, {201, 1, 70}, {100'000, 1, 70}}));
    CAPTURE(repetition.dwMilliseconds);
    StartFromZero();
    m_times.SetTimes(600, 800, 200);
    REQUIRE(ReadAfter(1000) == 40);
    const ULONGLONG ullBefore = m_times.Reads();
    m_times.SetTimes(900, 1800, 200); // 700 of 1000 more
    CHECK(ReadAfter(repetition.dwMilliseconds) == repetition.nPercent);
    CHECK(m_times.Reads() - ullBefore == repetition.ullReads);
}

TEST_CASE_METHOD(CpuAverageTest, "calls that repeat a result do not put the next reading off")
{
    StartFromZero();
    m_times.SetTimes(600, 800, 200);
    REQUIRE(ReadAfter(1000) == 40);
    m_times.SetTimes(900, 1800, 200);
    CHECK(ReadAfter(150) == 40);
    CHECK(ReadAfter(51) == 70);
}

TEST_CASE_METHOD(CpuAverageTest, "the 200 ms are counted across the wrap of the tick count")
{
    struct Wrap
    {
        DWORD dwTick;
        int nPercent;
    };
    const auto wrap = GENERATE(values<Wrap>({{99, 40}, {100, 40}, {101, 70}}));
    CAPTURE(wrap.dwTick);
    StartFromZero();
    g_dwTick = 0xFFFFFFFF - 99; // 100 ms before the wrap
    m_times.SetTimes(600, 800, 200);
    REQUIRE(ReadAfter(0) == 40);
    m_times.SetTimes(900, 1800, 200);
    CHECK(ReadAfter(wrap.dwTick - g_dwTick) == wrap.nPercent);
}

TEST_CASE_METHOD(CpuAverageTest, "the 200 ms count from the end of a reading")
{
    StartFromZero();
    int nReads = 0;
    m_exports.Replace<decltype(::GetSystemTimes)>("GetSystemTimes",
                                                  [&](PFILETIME, PFILETIME, PFILETIME)
                                                  {
                                                      ++nReads;
                                                      g_dwTick += 500; // a slow reading
                                                      return TRUE;
                                                  });
    ReadAfter(1000);
    ReadAfter(200);
    CHECK(nReads == 1);
    ReadAfter(1);
    CHECK(nReads == 2);
}

TEST_CASE_METHOD(CpuAverageTest, "no time accounted between two readings is a utilization of 0")
{
    StartFromZero();
    m_times.SetTimes(600, 800, 200);
    REQUIRE(ReadAfter(1000) == 40);
    CHECK(ReadAfter(1000) == 0);
    CHECK(ReadAfter(100) == 0);
}

TEST_CASE_METHOD(CpuAverageTest, "without the function all three times are zero")
{
    StartFromZero();
    m_exports.Hide("GetSystemTimes");
    CHECK(ReadAfter(1000) == 0);
    CheckNoLog();
}

TEST_CASE_METHOD(CpuAverageTest, "a function that vanishes reads as a step back to zero")
{
    StartFromZero();
    m_times.SetTimes(500, 800, 200);
    REQUIRE(ReadAfter(1000) == 50);
    m_exports.Hide("GetSystemTimes");
    CHECK(ReadAfter(1000) == 50); // -500 of -1000
    CHECK(ReadAfter(1000) == 0);
}

TEST_CASE_METHOD(CpuAverageTest, "the function is looked up at every call and the library stays loaded")
{
    std::vector<std::string> libraries;
    m_redirector.Replace<decltype(::LoadLibraryA)>("LoadLibraryA",
                                                   [&](LPCSTR pszName)
                                                   {
                                                       libraries.emplace_back(pszName);
                                                       return LoadLibraryA(pszName);
                                                   });
    m_redirector.CountCalls("FreeLibrary");
    StartFromZero();
    ReadAfter(0);
    CHECK(libraries == std::vector<std::string>{"Kernel32.dll", "Kernel32.dll"});
    CHECK(m_exports.LookUps("GetSystemTimes") == 2);
    CHECK(m_redirector.Calls("FreeLibrary") == 0);
}

TEST_CASE_METHOD(CpuAverageTest, "a library without the function is freed")
{
    StartFromZero();
    m_exports.Hide("GetSystemTimes");
    HMODULE hFreed = nullptr;
    m_redirector.Replace<decltype(::FreeLibrary)>("FreeLibrary",
                                                  [&](HMODULE hModule)
                                                  {
                                                      hFreed = hModule;
                                                      return FreeLibrary(hModule);
                                                  });
    ReadAfter(1000);
    CHECK(hFreed == GetModuleHandleW(L"kernel32.dll"));
    CHECK(m_redirector.Calls("FreeLibrary") == 1);
}

TEST_CASE_METHOD(CpuAverageTest, "without the library nothing is looked up and the times are zero")
{
    StartFromZero();
    const ULONGLONG ullLookUps = m_exports.LookUps("GetSystemTimes");
    const ULONGLONG ullReads = m_times.Reads();
    m_redirector.FailCall("LoadLibraryA", 1, FailMode::Once, ERROR_MOD_NOT_FOUND);
    m_times.SetTimes(600, 800, 200);
    CHECK(ReadAfter(1000) == 0);
    CHECK(m_exports.LookUps("GetSystemTimes") == ullLookUps);
    CHECK(m_times.Reads() == ullReads);
    CHECK(ReadAfter(1000) == 40); // the library is back
}

TEST_CASE("the utilization of this very machine is a percentage")
{
    GetCPUUtlAverage();
    Sleep(250); // real time: the system accounts it
    const int nPercent = GetCPUUtlAverage();
    CHECK(nPercent >= 0);
    CHECK(nPercent <= 100);
}

} // namespace varnex::test
