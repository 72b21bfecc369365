#include "sampling/CpuSampling.h"

#include "sampling/CounterNames.h"
#include "support/TestText.h"
#include "support/VirtualClock.h"
#include "unit/sampling/PdhTest.h"
#include "unit/sampling/SystemLanguages.h"

#include <climits>
#include <limits>
#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

constexpr wchar_t PATH[] = L"\\Processor(0)\\% Processor Time";
constexpr PDH_STATUS READ_FAILURE = PdhStatus(0xC0000BC6);
constexpr char READ_FAILED[] = "GetCPUUtilization -- PdhGetFormattedCounterValue failed, CPU counter name(0), "
                               "error code(0xc0000bc6)";
constexpr char TOO_MANY_FAILED[] =
    "GetCPUUtilization -- PdhGetFormattedCounterValue fail too many times(0xc0000bc6), exit...";

class SpecialCpuTest : public PdhTest
{
protected:
    SpecialCpuTest() { m_pdh.SetValue(PATH, 0.0); }
    // Each reading asks for the value twice and takes the second answer.
    void QueueReading(double fValue) { m_pdh.QueueValues(PATH, {fValue, fValue}); }
    void QueueFailedReading()
    {
        m_pdh.QueueReadStatus(PATH, READ_FAILURE);
        m_pdh.QueueReadStatus(PATH, READ_FAILURE);
    }
    std::size_t Readings() const { return m_pdh.CountCalls("PdhGetFormattedCounterValue") / 2; }
    std::size_t LaterCollections() const { return m_pdh.CountCalls("PdhCollectQueryData") - 2; }

    VirtualClock m_clock{m_redirector};
};

} // namespace

TEST_CASE_METHOD(SpecialCpuTest, "a processor's time is its counter truncated towards zero")
{
    struct Reading
    {
        double fValue;
        int nPercent;
    };
    const auto reading = GENERATE(values<Reading>({{42.0, 42},
                                                   {42.99, 42},
                                                   {100.0, 100},
                                                   {0.4, 0}, // not exactly zero
                                                   {-5.7, -5},
                                                   {101.5, 101},
                                                   {2147483647.9, 2147483647},
                                                   {-2147483648.9, INT_MIN}}));
    CAPTURE(reading.fValue);
    QueueReading(reading.fValue);
    CHECK(GetSpecialCPUUtilization(L"0") == reading.nPercent);
    CHECK(Readings() == 1);
    CHECK(LaterCollections() == 0);
    CHECK(m_clock.ElapsedMs() == 0);
    CheckCleanedUp();
    CheckNoLog();
}

TEST_CASE_METHOD(SpecialCpuTest, "a counter that is no number or no 32-bit one is a failed sample")
{
    const double fValue = GENERATE(std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                                   -std::numeric_limits<double>::infinity(), 1e300, 2147483648.0, -2147483649.0);
    CAPTURE(fValue);
    QueueReading(fValue);
    CHECK(GetSpecialCPUUtilization(L"0") == -1);
    CHECK(Readings() == 1); // it is not zero, so it is not read again
    CheckCleanedUp();
}

TEST_CASE_METHOD(SpecialCpuTest, "a processor's query is opened and filled and collected twice in this order")
{
    QueueReading(42.0);
    GetSpecialCPUUtilization(L"0");
    CHECK(PdhFunctions() == std::vector<std::string>{"PdhOpenQueryW", "PdhAddCounterW", "PdhCollectQueryData",
                                                     "PdhCollectQueryData", "PdhGetFormattedCounterValue",
                                                     "PdhGetFormattedCounterValue", "PdhRemoveCounter",
                                                     "PdhCloseQuery"});
    CHECK(m_pdh.Calls()[1].subject == PATH);
}

TEST_CASE_METHOD(SpecialCpuTest, "a processor's query has no data source and its reading no type")
{
    bool bPlainQuery = false;
    bool bPlainReading = false;
    m_redirector.Replace<decltype(::PdhOpenQueryW)>("PdhOpenQueryW",
                                                    [&](LPCWSTR pwszSource, DWORD_PTR nUserData, PDH_HQUERY* phQuery)
                                                    {
                                                        bPlainQuery = pwszSource == nullptr && nUserData == 0;
                                                        *phQuery = &bPlainQuery;
                                                        return PDH_STATUS{ERROR_SUCCESS};
                                                    });
    m_redirector.Replace<decltype(::PdhAddCounterW)>(
        "PdhAddCounterW",
        [&](PDH_HQUERY hQuery, LPCWSTR, DWORD_PTR nUserData, PDH_HCOUNTER* phCounter)
        {
            bPlainQuery = bPlainQuery && hQuery == &bPlainQuery && nUserData == 0;
            *phCounter = &bPlainReading;
            return PDH_STATUS{ERROR_SUCCESS};
        });
    m_redirector.Replace<decltype(::PdhCollectQueryData)>("PdhCollectQueryData",
                                                          [](PDH_HQUERY) { return PDH_STATUS{ERROR_SUCCESS}; });
    m_redirector.Replace<decltype(::PdhGetFormattedCounterValue)>(
        "PdhGetFormattedCounterValue",
        [&](PDH_HCOUNTER hCounter, DWORD dwFormat, LPDWORD pdwType, PPDH_FMT_COUNTERVALUE pValue)
        {
            bPlainReading = hCounter == &bPlainReading && dwFormat == 0x200 && pdwType == nullptr;
            pValue->doubleValue = 42.0;
            return PDH_STATUS{ERROR_SUCCESS};
        });
    CHECK(GetSpecialCPUUtilization(L"0") == 42);
    CHECK(bPlainQuery);
    CHECK(bPlainReading);
}

TEST_CASE_METHOD(SpecialCpuTest, "a processor's counter path is in the system language")
{
    const auto language = GENERATE(from_range(SystemLanguages()));
    INFO(language.name);
    SetSystemLanguage(language.ids.back());
    m_pdh.SetValue(L"\\" + language.WideName(IDS_PROCESSOR_OBJECT) + L"(1)\\" + language.WideName(IDS_PROCESSOR_TIME),
                   17.0);
    CHECK(GetSpecialCPUUtilization(L"1") == 17);
    CheckNoLog();
}

TEST_CASE_METHOD(SpecialCpuTest, "a processor's counter path is cut at 1023 characters")
{
    const std::wstring name(2000, L'x');
    GetSpecialCPUUtilization(name.c_str());
    REQUIRE(m_pdh.Calls().size() >= 2);
    CHECK(m_pdh.Calls()[1].subject == (L"\\Processor(" + name).substr(0, 1023));
}

TEST_CASE_METHOD(SpecialCpuTest, "a null processor name is refused with a line that ends in an empty one")
{
    CHECK(GetSpecialCPUUtilization(nullptr) == -1);
    CHECK(m_pdh.Calls().empty());
    CHECK_THAT(ReadLog(),
               HasLine(2, "GetCPUUtilization -- checking parameters fail, pwszCPUName(0000000000000000), exit..."));
    CHECK_THAT(ReadLog().Bytes(), Catch::EndsWith("exit...\r\n\r\n"));
}

TEST_CASE_METHOD(SpecialCpuTest, "without the processor object name no query is opened")
{
    FailConversion(1);
    CHECK(GetSpecialCPUUtilization(L"0") == -1);
    CHECK(m_pdh.Calls().empty());
    CheckLog(
        {{1, "VNXGetStringW -- MultiByteToWideChar fail, return error(1113), szAnsiString[Processor], limit(256)."},
         {2, "GetSpecialCPUUtilization -- fail to get processor interface name from resource[-1], exit...."}});
}

TEST_CASE_METHOD(SpecialCpuTest, "without the processor time counter name no query is opened")
{
    FailConversion(2);
    CHECK(GetSpecialCPUUtilization(L"0") == -1);
    CHECK(m_pdh.Calls().empty());
    CheckLog({{1, "VNXGetStringW -- MultiByteToWideChar fail, return error(1113), szAnsiString[% Processor Time], "
                  "limit(64)."},
              {2, "GetSpecialCPUUtilization -- fail to get processor time resource string[-1], exit...."}});
}

TEST_CASE_METHOD(SpecialCpuTest, "a processor query that does not open is logged with the last error")
{
    m_redirector.FailCall("PdhOpenQueryW", 1, FailMode::Once, ERROR_NO_SYSTEM_RESOURCES, 0xC0000BBB);
    CHECK(GetSpecialCPUUtilization(L"0") == PdhStatus(0xC0000BBB));
    CHECK(m_pdh.Calls().empty());
    CheckLog({{2, "GetCPUUtilization -- Open PDH failed(0x000005aa), exit..."}});
    CHECK_THAT(ReadLog().Bytes(), Catch::EndsWith("exit...\r\n\r\n"));
}

TEST_CASE_METHOD(SpecialCpuTest, "a processor counter that cannot be added is logged with its path")
{
    m_pdh.QueueStatus("PdhAddCounterW", {PdhStatus(0xC0000BB9)});
    CHECK(GetSpecialCPUUtilization(L"0") == PdhStatus(0xC0000BB9));
    CHECK(m_pdh.CountCalls("PdhRemoveCounter") == 0);
    CHECK(m_pdh.CountCalls("PdhCollectQueryData") == 0);
    CheckNothingOpen();
    CheckLog({{2, "GetSpecialCPUUtilization -- PdhAddCounterW(\\Processor(0)\\% Processor Time) "
                  "failed[0xc0000bb9], exit...."}});
}

TEST_CASE_METHOD(SpecialCpuTest,
                 "the result of the first collection does not count, but the next one is then the first")
{
    m_pdh.QueueStatus("PdhCollectQueryData", {PdhStatus(0x800007D5)});
    QueueReading(42.0);
    CHECK(GetSpecialCPUUtilization(L"0") == 42);
    CHECK(m_pdh.CountCalls("PdhCollectQueryData") == 3);
    CheckLog({{4, "GetCPUUtilization -- PdhGetFormattedCounterValue failed, CPU counter name(0), error "
                  "code(0xc0000bc6)"}});
}

TEST_CASE_METHOD(SpecialCpuTest, "a failed second collection is logged and returned")
{
    m_pdh.QueueStatus("PdhCollectQueryData", {ERROR_SUCCESS, PdhStatus(0x800007D5)});
    CHECK(GetSpecialCPUUtilization(L"0") == PdhStatus(0x800007D5));
    CHECK(Readings() == 0);
    CheckCleanedUp();
    CheckLog({{2, "GetSpecialCPUUtilization -- PdhCollectQueryData failed[0x800007d5], exit...."}});
}

TEST_CASE_METHOD(SpecialCpuTest, "a zero is read again after a second and one more collection")
{
    QueueReading(0.0);
    QueueReading(0.0);
    QueueReading(37.5);
    CHECK(GetSpecialCPUUtilization(L"0") == 37);
    CHECK(Readings() == 3);
    CHECK(LaterCollections() == 2);
    CHECK(m_clock.SleepCount(1000) == 2);
    CHECK(m_clock.ElapsedMs() == 2000);
    CheckCleanedUp();
    CheckNoLog();
}

TEST_CASE_METHOD(SpecialCpuTest, "an idle processor gives 0 after six readings and five seconds")
{
    CHECK(GetSpecialCPUUtilization(L"0") == 0);
    CHECK(Readings() == 6);
    CHECK(LaterCollections() == 5);
    CHECK(m_clock.SleepCount(1000) == 5);
    CHECK(m_clock.ElapsedMs() == 5000);
    CheckCleanedUp();
    CheckNoLog();
}

TEST_CASE_METHOD(SpecialCpuTest, "six failed readings give -1 without a pause and leave the query open")
{
    for (int i = 0; i < 6; ++i)
    {
        QueueFailedReading();
    }
    CHECK(GetSpecialCPUUtilization(L"0") == -1);
    CHECK(Readings() == 6);
    CHECK(LaterCollections() == 5);
    CHECK(m_clock.ElapsedMs() == 0);
    CHECK(m_pdh.CountCalls("PdhRemoveCounter") == 0);
    CHECK(m_pdh.CountCalls("PdhCloseQuery") == 0);
    const LogFile log = ReadLog();
    CHECK(log.Lines().size() == 7);
    CHECK(log.Count(4, READ_FAILED) == 6);
    CHECK(log.Find(4, TOO_MANY_FAILED) == 6);
    CHECK_THAT(log.Bytes(), Catch::EndsWith("exit...\r\n\r\n"));
}

TEST_CASE_METHOD(SpecialCpuTest, "a failed reading is tried again at once")
{
    QueueFailedReading();
    QueueReading(64.0);
    CHECK(GetSpecialCPUUtilization(L"0") == 64);
    CHECK(m_clock.ElapsedMs() == 0);
    CHECK(LaterCollections() == 1);
    CheckCleanedUp();
    CheckLog({{4, READ_FAILED}});
}

TEST_CASE_METHOD(SpecialCpuTest, "failed readings and zeros share the six tries")
{
    for (int i = 0; i < 3; ++i)
    {
        QueueFailedReading();
    }
    CHECK(GetSpecialCPUUtilization(L"0") == 0); // three failures, three zeros
    CHECK(Readings() == 6);
    CHECK(m_clock.SleepCount(1000) == 2);
    CHECK(ReadLog().Count(4, READ_FAILED) == 3);
    CheckCleanedUp();
}

TEST_CASE_METHOD(SpecialCpuTest, "a failure at the sixth reading is final whatever came before")
{
    for (int i = 0; i < 5; ++i)
    {
        QueueReading(0.0);
    }
    QueueFailedReading();
    CHECK(GetSpecialCPUUtilization(L"0") == -1);
    CHECK(ReadLog().Count(4, READ_FAILED) == 1);
    CHECK(ReadLog().Count(4, TOO_MANY_FAILED) == 1);
    CHECK(m_pdh.OpenQueries() == 1);
}

TEST_CASE_METHOD(SpecialCpuTest, "of the two answers of a reading only the second counts")
{
    SECTION("a failed first one is not noticed")
    {
        m_pdh.QueueReadStatus(PATH, READ_FAILURE);
        m_pdh.QueueValues(PATH, {25.0});
        CHECK(GetSpecialCPUUtilization(L"0") == 25);
        CheckNoLog();
    }
    SECTION("a good first one does not help")
    {
        m_pdh.QueueValues(PATH, {99.0});
        m_pdh.QueueReadStatus(PATH, READ_FAILURE);
        QueueReading(25.0);
        CHECK(GetSpecialCPUUtilization(L"0") == 25);
        CHECK(ReadLog().Count(4, READ_FAILED) == 1);
    }
    SECTION("they may differ")
    {
        m_pdh.QueueValues(PATH, {0.0, 25.0});
        CHECK(GetSpecialCPUUtilization(L"0") == 25);
        CHECK(Readings() == 1);
    }
}

TEST_CASE_METHOD(SpecialCpuTest, "a failed later collection gives 0 without a line")
{
    SECTION("after a zero")
    {
        m_pdh.QueueStatus("PdhCollectQueryData", {ERROR_SUCCESS, ERROR_SUCCESS, PdhStatus(0x800007D5)});
        CHECK(GetSpecialCPUUtilization(L"0") == 0);
        CHECK(m_clock.SleepCount(1000) == 1);
        CheckNoLog();
    }
    SECTION("at the last try")
    {
        std::vector<PDH_STATUS> statuses(6, ERROR_SUCCESS);
        statuses.push_back(PdhStatus(0x800007D5));
        m_pdh.QueueStatus("PdhCollectQueryData", statuses);
        CHECK(GetSpecialCPUUtilization(L"0") == 0);
        CHECK(Readings() == 5);
        CheckNoLog();
    }
    SECTION("after a failed reading")
    {
        QueueFailedReading();
        m_pdh.QueueStatus("PdhCollectQueryData", {ERROR_SUCCESS, ERROR_SUCCESS, PdhStatus(0x800007D5)});
        CHECK(GetSpecialCPUUtilization(L"0") == 0);
        CHECK(ReadLog().Count(4, READ_FAILED) == 1);
    }
    CheckCleanedUp();
}

TEST_CASE_METHOD(SpecialCpuTest, "the name of a processor with foreign letters stands in its failure line")
{
    const std::wstring path = L"\\Processor(K\u00E4rn)\\% Processor Time";
    m_pdh.QueueReadStatus(path, READ_FAILURE);
    m_pdh.QueueReadStatus(path, READ_FAILURE);
    m_pdh.SetValue(path, 5.0);
    CHECK(GetSpecialCPUUtilization(L"K\u00E4rn") == 5);
    CHECK_THAT(ReadLog(), HasLine(4, "GetCPUUtilization -- PdhGetFormattedCounterValue failed, CPU counter name(" +
                                         AnsiFromWide(L"K\u00E4rn") + "), error code(0xc0000bc6)"));
}

} // namespace varnex::test
