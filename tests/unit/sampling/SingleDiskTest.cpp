#include "sampling/DiskSampling.h"

#include "support/CapturedOutput.h"
#include "support/VirtualClock.h"
#include "unit/sampling/PdhTest.h"

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

constexpr wchar_t PATH[] = L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec";
constexpr PDH_STATUS READ_FAILURE = PdhStatus(0xC0000BC6);
constexpr PDH_STATUS COLLECT_FAILURE = PdhStatus(0x800007D5);
constexpr std::int64_t UNTOUCHED = -4711;
constexpr char GIVEN_UP[] = "GetSingleDiskThroughput -- PdhGetFormattedCounterValuefail too many times(5), "
                            "diskName(0 C:), exit...";

struct Measurement
{
    int nStatus = 0;
    std::int64_t nBytes = UNTOUCHED;
};

class SingleDiskTest : public PdhTest
{
protected:
    SingleDiskTest() { m_pdh.SetValue(PATH, 0.0); }
    static Measurement Measure(const char* pszDiskName = "0 C:")
    {
        Measurement measurement;
        measurement.nStatus = GetSingleDiskThroughput(pszDiskName, &measurement.nBytes);
        return measurement;
    }
    std::size_t Readings() const { return m_pdh.CountCalls("PdhGetFormattedCounterValue"); }
    // The nCall-th collection, counted from 1, fails.
    void FailCollection(std::size_t nCall)
    {
        std::vector<PDH_STATUS> statuses(nCall - 1, ERROR_SUCCESS);
        statuses.push_back(COLLECT_FAILURE);
        m_pdh.QueueStatus("PdhCollectQueryData", statuses);
    }

    VirtualClock m_clock{m_redirector};
};

} // namespace

TEST_CASE_METHOD(SingleDiskTest, "a disk's throughput is its counter truncated towards zero after 100 ms")
{
    struct Reading
    {
        double fValue;
        std::int64_t nBytes;
    };
    const auto reading = GENERATE(values<Reading>({{1048576.0, 1048576},
                                                   {1048575.9, 1048575},
                                                   {1.0, 1},
                                                   {-3.7, -3},
                                                   {9007199254740992.0, 9007199254740992},
                                                   {-9223372036854775808.0, INT64_MIN}}));
    CAPTURE(reading.fValue);
    m_pdh.QueueValues(PATH, {reading.fValue});
    const Measurement measurement = Measure();
    CHECK(measurement.nStatus == 0);
    CHECK(measurement.nBytes == reading.nBytes);
    CHECK(Readings() == 1);
    CHECK(m_clock.SleepCount(100) == 1);
    CHECK(m_clock.ElapsedMs() == 100);
    CheckCleanedUp();
    CheckNoLog();
}

TEST_CASE_METHOD(SingleDiskTest, "a disk's query is opened and filled and collected twice in this order")
{
    m_pdh.QueueValues(PATH, {1.0});
    Measure();
    CHECK(PdhFunctions() == std::vector<std::string>{"PdhOpenQueryA", "PdhAddCounterA", "PdhCollectQueryData",
                                                     "PdhCollectQueryData", "PdhGetFormattedCounterValue",
                                                     "PdhRemoveCounter", "PdhCloseQuery"});
    CHECK(m_pdh.Calls()[1].subject == PATH);
}

TEST_CASE_METHOD(SingleDiskTest, "a disk's counter path is in the system language")
{
    SetSystemLanguage(MAKELANGID(LANG_FRENCH, SUBLANG_FRENCH));
    m_pdh.SetValue(L"\\Disque physique(0 C:)\\Octets disque/s", 77.0);
    CHECK(Measure().nBytes == 77);
}

TEST_CASE_METHOD(SingleDiskTest, "a disk's counter path is cut at 511 characters")
{
    const std::string name(1000, 'x');
    Measure(name.c_str());
    REQUIRE(m_pdh.Calls().size() >= 2);
    CHECK(m_pdh.Calls()[1].subject == (L"\\PhysicalDisk(" + std::wstring(1000, L'x')).substr(0, 511));
}

TEST_CASE_METHOD(SingleDiskTest, "the value's block is 16 zeroed bytes and is not needed")
{
    SECTION("as it is asked for")
    {
        UINT nFlags = 0;
        SIZE_T cbBlock = 0;
        m_redirector.Replace<decltype(::GlobalAlloc)>("GlobalAlloc",
                                                      [&](UINT nAskedFlags, SIZE_T cbAsked)
                                                      {
                                                          nFlags = nAskedFlags;
                                                          cbBlock = cbAsked;
                                                          return GlobalAlloc(nAskedFlags, cbAsked);
                                                      });
        m_pdh.QueueValues(PATH, {5.0});
        CHECK(Measure().nBytes == 5);
        CHECK(nFlags == GPTR);
        CHECK(cbBlock == 16);
        CHECK(m_redirector.Calls("GlobalAlloc") == 1);
    }
    SECTION("when there is no memory for it")
    {
        m_redirector.FailCall("GlobalAlloc", 1, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
        m_pdh.QueueValues(PATH, {5.0});
        CHECK(Measure().nBytes == 5);
        CHECK(m_redirector.Failures("GlobalAlloc") == 1);
    }
}

TEST_CASE_METHOD(SingleDiskTest, "a null argument is printed under the averaging operation's name")
{
    std::int64_t nBytes = UNTOUCHED;
    int nStatus = 0;
    char szPointer[32];
    SECTION("no name")
    {
        sprintf_s(szPointer, "%p", static_cast<void*>(&nBytes));
        CHECK(CaptureOutput([&] { nStatus = GetSingleDiskThroughput(nullptr, &nBytes); }) ==
              "GetDiskAverageThroughput -- checking parameters fail, pszDiskName(0000000000000000), "
              "pnDiskThroughput(" +
                  std::string(szPointer) + "), exit!\n");
    }
    SECTION("no result")
    {
        const char szName[] = "0 C:";
        sprintf_s(szPointer, "%p", static_cast<const void*>(szName));
        CHECK(CaptureOutput([&] { nStatus = GetSingleDiskThroughput(szName, nullptr); }) ==
              "GetDiskAverageThroughput -- checking parameters fail, pszDiskName(" + std::string(szPointer) +
                  "), pnDiskThroughput(0000000000000000), exit!\n");
    }
    CHECK(nStatus == -1);
    CHECK(nBytes == UNTOUCHED);
    CHECK(m_pdh.Calls().empty());
    CheckNoLog();
}

TEST_CASE_METHOD(SingleDiskTest, "a disk query that does not open is printed with the last error")
{
    m_redirector.FailCall("PdhOpenQueryA", 1, FailMode::Once, ERROR_NO_SYSTEM_RESOURCES, 0xC0000BBB);
    Measurement measurement;
    CHECK(CaptureOutput([&] { measurement = Measure(); }) ==
          "GetSingleDiskThroughput -- Open PDH failed(0x000005aa), exit!\n");
    CHECK(measurement.nStatus == PdhStatus(0xC0000BBB));
    CHECK(measurement.nBytes == UNTOUCHED);
    CHECK(m_pdh.Calls().empty());
    CheckNoLog();
}

TEST_CASE_METHOD(SingleDiskTest, "a disk counter that cannot be added ends the reading after 100 ms without a word")
{
    m_pdh.QueueStatus("PdhAddCounterA", {PdhStatus(0xC0000BB9)});
    Measurement measurement;
    CHECK(CaptureOutput([&] { measurement = Measure(); }).empty());
    CHECK(measurement.nStatus == 0);
    CHECK(measurement.nBytes == UNTOUCHED);
    CHECK(Readings() == 0);
    CHECK(m_clock.ElapsedMs() == 100);
    CHECK(PdhFunctions() == std::vector<std::string>{"PdhOpenQueryA", "PdhAddCounterA", "PdhCollectQueryData",
                                                     "PdhCollectQueryData", "PdhCloseQuery"});
    CheckNothingOpen();
    CheckNoLog();
}

TEST_CASE_METHOD(SingleDiskTest, "a disk that is not there ends the reading after 100 ms without a word")
{
    const Measurement measurement = Measure("7 X:");
    CHECK(measurement.nStatus == 0);
    CHECK(measurement.nBytes == UNTOUCHED);
    CHECK(Readings() == 0);
    CHECK(m_clock.ElapsedMs() == 100);
    CheckCleanedUp();
    CheckNoLog();
}

TEST_CASE_METHOD(SingleDiskTest, "a disk's first collection that fails costs a second: a rate lies between two")
{
    FailCollection(1);
    m_pdh.QueueValues(PATH, {5.0});
    CHECK(Measure().nBytes == 5);
    CHECK(Readings() == 2);
    CHECK(m_clock.ElapsedMs() == 1100);
    CheckNoLog();
}

TEST_CASE_METHOD(SingleDiskTest, "a failed second collection leaves the result alone without a word")
{
    FailCollection(2);
    Measurement measurement;
    CHECK(CaptureOutput([&] { measurement = Measure(); }).empty());
    CHECK(measurement.nStatus == 0);
    CHECK(measurement.nBytes == UNTOUCHED);
    CHECK(Readings() == 0);
    CHECK(m_clock.ElapsedMs() == 100);
    CheckCleanedUp();
    CheckNoLog();
}

TEST_CASE_METHOD(SingleDiskTest, "an idle disk costs six readings and six seconds and gives 0")
{
    const Measurement measurement = Measure();
    CHECK(measurement.nStatus == 0);
    CHECK(measurement.nBytes == 0);
    CHECK(Readings() == 6);
    CHECK(m_pdh.CountCalls("PdhCollectQueryData") == 2 + 6);
    CHECK(m_clock.SleepCount(1000) == 6);
    CHECK(m_clock.ElapsedMs() == 6100);
    CheckCleanedUp();
    CheckLog({{4, GIVEN_UP}});
}

TEST_CASE_METHOD(SingleDiskTest, "a value without a whole byte is missing and is read again")
{
    const double fValue =
        GENERATE(0.0, 0.99, -0.99, std::numeric_limits<double>::quiet_NaN(), 9223372036854775808.0, 1e300, -1e300);
    CAPTURE(fValue);
    m_pdh.QueueValues(PATH, {fValue, 12.0});
    CHECK(Measure().nBytes == 12);
    CHECK(m_clock.SleepCount(1000) == 1);
    CHECK(m_pdh.CountCalls("PdhCollectQueryData") == 3);
    CheckCleanedUp();
    CheckNoLog();
}

TEST_CASE_METHOD(SingleDiskTest, "a failed reading is missing and is read again after a second")
{
    m_pdh.QueueReadStatus(PATH, READ_FAILURE);
    m_pdh.QueueValues(PATH, {12.0});
    CHECK(Measure().nBytes == 12);
    CHECK(m_clock.SleepCount(1000) == 1);
    CheckNoLog();
}

TEST_CASE_METHOD(SingleDiskTest, "a value at the sixth reading still counts")
{
    m_pdh.QueueValues(PATH, {0.0, 0.0, 0.0, 0.0, 0.0, 12.0});
    CHECK(Measure().nBytes == 12);
    CHECK(m_clock.SleepCount(1000) == 5);
    CheckNoLog();
}

TEST_CASE_METHOD(SingleDiskTest, "a failed later collection leaves the result alone without a word")
{
    const std::size_t nRetry = GENERATE(1U, 3U, 5U);
    CAPTURE(nRetry);
    FailCollection(2 + nRetry);
    const Measurement measurement = Measure();
    CHECK(measurement.nStatus == 0);
    CHECK(measurement.nBytes == UNTOUCHED);
    CHECK(Readings() == nRetry);
    CHECK(m_clock.SleepCount(1000) == nRetry);
    CheckCleanedUp();
    CheckNoLog();
}

TEST_CASE_METHOD(SingleDiskTest, "a collection that fails after the last retry changes nothing")
{
    FailCollection(2 + 6);
    const Measurement measurement = Measure();
    CHECK(measurement.nStatus == 0);
    CHECK(measurement.nBytes == 0);
    CHECK_THAT(ReadLog(), HasLine(4, GIVEN_UP));
    CheckCleanedUp();
}

} // namespace varnex::test
