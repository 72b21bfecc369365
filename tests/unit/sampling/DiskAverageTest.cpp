#include "sampling/DiskSampling.h"

#include "support/CapturedOutput.h"
#include "support/VirtualClock.h"
#include "unit/sampling/PdhTest.h"

#include <climits>
#include <cstdint>
#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

constexpr wchar_t PATH[] = L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec";
constexpr double MB = 1048576.0;
constexpr std::uint32_t UNTOUCHED = 4711;
using Samples = std::vector<std::uint32_t>;

struct Pass
{
    int nStatus;
    std::uint32_t nAverage;
};

bool operator==(const Pass& left, const Pass& right)
{
    return left.nStatus == right.nStatus && left.nAverage == right.nAverage;
}

std::ostream& operator<<(std::ostream& stream, const Pass& pass)
{
    return stream << '{' << pass.nStatus << ", " << pass.nAverage << '}';
}

class DiskAverageTest : public PdhTest
{
protected:
    DiskAverageTest() { m_pdh.SetValue(PATH, 0.0); }
    Pass Average(int nSamplingAmount)
    {
        Pass pass{0, UNTOUCHED};
        pass.nStatus = GetDiskAverageThroughput("0 C:", &m_history, nSamplingAmount, &pass.nAverage);
        return pass;
    }
    Pass AverageAfter(double fBytesPerSecond, int nSamplingAmount)
    {
        m_pdh.QueueValues(PATH, {fBytesPerSecond});
        return Average(nSamplingAmount);
    }
    Pass AverageOfMB(double fMegabytes, int nSamplingAmount) { return AverageAfter(fMegabytes * MB, nSamplingAmount); }

    VirtualClock m_clock{m_redirector};
    SampleHistory m_history;
};

std::string PointerText(const void* pPointer)
{
    char szText[32];
    sprintf_s(szText, "%p", pPointer);
    return szText;
}

} // namespace

TEST_CASE_METHOD(DiskAverageTest, "a throughput is counted in whole megabytes rounded towards zero")
{
    struct Throughput
    {
        double fBytes;
        std::uint32_t nMegabytes;
    };
    const auto throughput = GENERATE(values<Throughput>({
        {1.0, 0},
        {1048575.0, 0},
        {1048576.0, 1},
        {2097151.0, 1},
        {-1.0, 0},
        {-1048577.0, 0xFFFFFFFF},
        {(4294967296.0 + 7) * MB, 7}, // the low 32 bits are kept
    }));
    CAPTURE(throughput.fBytes);
    CHECK(AverageAfter(throughput.fBytes, 1) == Pass{0, throughput.nMegabytes});
    CHECK(m_history.Samples() == Samples{throughput.nMegabytes});
}

TEST_CASE_METHOD(DiskAverageTest, "there is no average before the history holds the sampling amount")
{
    for (int i = 1; i <= 4; ++i)
    {
        CHECK(AverageOfMB(10 * i, 5) == Pass{-3, 0});
    }
    CHECK(AverageOfMB(50, 5) == Pass{0, 30});
    CHECK(AverageOfMB(110, 5) == Pass{0, 50}); // the five newest: 20, 30, 40, 50, 110
    CHECK(m_history.Samples() == Samples{20, 30, 40, 50, 110});
    CheckNoLog();
}

TEST_CASE_METHOD(DiskAverageTest, "an average is truncated")
{
    AverageOfMB(1, 3);
    AverageOfMB(1, 3);
    CHECK(AverageOfMB(2, 3) == Pass{0, 1});
}

TEST_CASE_METHOD(DiskAverageTest, "a lowered sampling amount drops the oldest values at once")
{
    for (const int nMegabytes : {90, 80, 10, 20})
    {
        AverageOfMB(nMegabytes, 5);
    }
    CHECK(AverageOfMB(30, 3) == Pass{0, 20});
    CHECK(m_history.Samples() == Samples{10, 20, 30});
}

TEST_CASE_METHOD(DiskAverageTest, "a raised sampling amount waits for more values")
{
    CHECK(AverageOfMB(10, 1) == Pass{0, 10});
    CHECK(AverageOfMB(20, 3) == Pass{-3, 0});
    CHECK(AverageOfMB(30, 3) == Pass{0, 20});
}

TEST_CASE_METHOD(DiskAverageTest, "the sum wraps at 32 bits and is divided as a signed number")
{
    AverageOfMB(1'500'000'000, 2);
    CHECK(AverageOfMB(1'500'000'000, 2) == Pass{0, 0xD9682F00}); // -1294967296 / 2
}

TEST_CASE_METHOD(DiskAverageTest, "an idle disk is a value of 0")
{
    CHECK(Average(1) == Pass{0, 0});
    CHECK(m_history.Samples() == Samples{0});
    CHECK_THAT(ReadLog(), HasLine(4, "GetSingleDiskThroughput -- PdhGetFormattedCounterValuefail too many times(5), "
                                     "diskName(0 C:), exit..."));
}

TEST_CASE_METHOD(DiskAverageTest, "a disk whose collection fails is a value of 0")
{
    m_pdh.QueueStatus("PdhCollectQueryData", {ERROR_SUCCESS, PdhStatus(0x800007D5)});
    CHECK(Average(1) == Pass{0, 0});
    CHECK(m_history.Samples() == Samples{0});
}

TEST_CASE_METHOD(DiskAverageTest, "a failed measurement is logged with a 0 and leaves the history alone")
{
    AverageOfMB(10, 1);
    m_redirector.FailCall("PdhOpenQueryA", 1, FailMode::Once, ERROR_NO_SYSTEM_RESOURCES, 0xC0000BBB);
    Pass pass{};
    const std::string output = CaptureOutput([&] { pass = Average(1); });
    CHECK(pass == Pass{-2, UNTOUCHED});
    CHECK(output == "GetSingleDiskThroughput -- Open PDH failed(0x000005aa), exit!\n");
    CHECK(m_history.Samples() == Samples{10});
    CheckLog({{1, "GetDiskAverageThroughput -- get disk(0 C:) Throughput fail(0)"}});
}

TEST_CASE_METHOD(DiskAverageTest, "a bad argument is logged and nothing is measured")
{
    struct Arguments
    {
        bool bName;
        bool bHistory;
        int nAmount;
        bool bAverage;
    };
    const auto arguments = GENERATE(values<Arguments>({{false, true, 5, true},
                                                       {true, false, 5, true},
                                                       {true, true, 5, false},
                                                       {true, true, 0, true},
                                                       {true, true, -1, true},
                                                       {true, true, INT_MIN, true}}));
    CAPTURE(arguments.bName, arguments.bHistory, arguments.nAmount, arguments.bAverage);
    std::uint32_t nAverage = UNTOUCHED;
    const char* const pszName = arguments.bName ? "0 C:" : nullptr;
    SampleHistory* const pHistory = arguments.bHistory ? &m_history : nullptr;
    std::uint32_t* const pnAverage = arguments.bAverage ? &nAverage : nullptr;
    CHECK(GetDiskAverageThroughput(pszName, pHistory, arguments.nAmount, pnAverage) == -1);
    CHECK(nAverage == UNTOUCHED);
    CHECK(m_history.Samples().empty());
    CHECK(m_pdh.Calls().empty());
    CheckLog({{1, "GetDiskAverageThroughput -- checking parameters fail, pszDiskName(" + PointerText(pszName) +
                      "), pvnDiskThroughputList(" + PointerText(pHistory) + "), nSamplingAmount(" +
                      std::to_string(arguments.nAmount) + "), pnAveragevalue(" + PointerText(pnAverage) + "), exit!"}});
}

} // namespace varnex::test
