#include "support/ScriptedPdh.h"
#include "support/ChildProcess.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <pdhmsg.h>

#include <string>

namespace varnex::test
{

namespace
{

PDH_STATUS Status(unsigned nCode)
{
    return static_cast<PDH_STATUS>(nCode);
}

PDH_STATUS ReadDouble(PDH_HCOUNTER hCounter, double& dValue)
{
    PDH_FMT_COUNTERVALUE value{};
    const PDH_STATUS status = PdhGetFormattedCounterValue(hCounter, PDH_FMT_DOUBLE, nullptr, &value);
    dValue = value.doubleValue;
    return status;
}

} // namespace

TEST_CASE("the instances of an object are listed in order, in both widths")
{
    ImportRedirector redirector;
    ScriptedPdh pdh(redirector);
    pdh.SetInstances(L"Processor", {L"0", L"1", L"_Total"});
    wchar_t wszCounters[100];
    wchar_t wszInstances[100];
    DWORD cchCounters = 100;
    DWORD cchInstances = 100;
    CHECK(PdhEnumObjectItemsW(nullptr, nullptr, L"Processor", wszCounters, &cchCounters, wszInstances, &cchInstances,
                              PERF_DETAIL_ADVANCED, 0) == ERROR_SUCCESS);
    CHECK(std::wstring(wszInstances, cchInstances) == std::wstring(L"0\0001\0_Total\0\0", 12));
    char szCounters[100];
    char szInstances[100];
    cchCounters = cchInstances = 100;
    CHECK(PdhEnumObjectItemsA(nullptr, nullptr, "Processor", szCounters, &cchCounters, szInstances, &cchInstances,
                              PERF_DETAIL_ADVANCED, 0) == ERROR_SUCCESS);
    CHECK(std::string(szInstances, cchInstances) == std::string("0\0001\0_Total\0\0", 12));
    CHECK(pdh.Calls().at(1).function == "PdhEnumObjectItemsA");
    CHECK(pdh.Calls().at(1).subject == L"Processor");
}

TEST_CASE("a buffer that is too small gets the length that it needs")
{
    ImportRedirector redirector;
    ScriptedPdh pdh(redirector);
    pdh.SetInstances(L"Processor", {L"0"});
    wchar_t wszCounters[100];
    wchar_t wszInstances[2];
    DWORD cchCounters = 100;
    DWORD cchInstances = 2;
    CHECK(PdhEnumObjectItemsW(nullptr, nullptr, L"Processor", wszCounters, &cchCounters, wszInstances, &cchInstances,
                              PERF_DETAIL_ADVANCED, 0) == Status(PDH_MORE_DATA));
    CHECK(cchInstances == 3);
}

TEST_CASE("an unknown object and an unknown counter are refused")
{
    ImportRedirector redirector;
    ScriptedPdh pdh(redirector);
    pdh.SetInstances(L"Processor", {L"0"});
    pdh.SetValue(L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec", 1.0);
    wchar_t wszText[10];
    DWORD cchCounters = 10;
    DWORD cchInstances = 10;
    CHECK(PdhEnumObjectItemsW(nullptr, nullptr, L"Nothing", wszText, &cchCounters, wszText, &cchInstances,
                              PERF_DETAIL_ADVANCED, 0) == Status(PDH_CSTATUS_NO_OBJECT));
    PDH_HQUERY hQuery = nullptr;
    PDH_HCOUNTER hCounter = nullptr;
    REQUIRE(PdhOpenQueryW(nullptr, 0, &hQuery) == ERROR_SUCCESS);
    CHECK(PdhAddCounterW(hQuery, L"\\Nothing(0)\\None", 0, &hCounter) == Status(PDH_CSTATUS_NO_OBJECT));
    CHECK(PdhAddCounterW(hQuery, L"\\Processor(0)\\None", 0, &hCounter) == Status(PDH_CSTATUS_NO_COUNTER));
    CHECK(PdhAddCounterW(hQuery, L"\\PhysicalDisk(0 C:)\\None", 0, &hCounter) == Status(PDH_CSTATUS_NO_COUNTER));
    for (const wchar_t* pwszPath : {L"", L"\\PhysicalDisk(0 C:", L"PhysicalDisk(0 C:)\\Time", L"\\PhysicalDisk\\Time"})
    {
        CHECK(PdhAddCounterW(hQuery, pwszPath, 0, &hCounter) == Status(PDH_CSTATUS_BAD_COUNTERNAME));
    }
    CHECK(hCounter == nullptr);
    CHECK(PdhCloseQuery(hQuery) == ERROR_SUCCESS);
}

namespace
{

void CheckThatQueryWithoutCounterHasNoData()
{
    PDH_HQUERY hQuery = nullptr;
    PDH_HCOUNTER hCounter = nullptr;
    REQUIRE(PdhOpenQueryW(nullptr, 0, &hQuery) == ERROR_SUCCESS);
    CHECK(PdhCollectQueryData(hQuery) == Status(PDH_NO_DATA));
    CHECK(PdhAddCounterW(hQuery, L"\\Nothing(0)\\None", 0, &hCounter) != ERROR_SUCCESS);
    CHECK(PdhCollectQueryData(hQuery) == Status(PDH_NO_DATA));
    CHECK(PdhCloseQuery(hQuery) == ERROR_SUCCESS);
}

} // namespace

TEST_CASE("a query whose counter was refused has no data, by the script as by the system")
{
    CheckThatQueryWithoutCounterHasNoData();
    ImportRedirector redirector;
    const ScriptedPdh pdh(redirector);
    CheckThatQueryWithoutCounterHasNoData();
}

TEST_CASE("a query whose only counter was removed has no data")
{
    ImportRedirector redirector;
    ScriptedPdh pdh(redirector);
    pdh.SetValue(L"\\A(b)\\c", 1.0);
    PDH_HQUERY hQuery = nullptr;
    PDH_HCOUNTER hCounter = nullptr;
    PdhOpenQueryW(nullptr, 0, &hQuery);
    PdhAddCounterW(hQuery, L"\\A(b)\\c", 0, &hCounter);
    CHECK(PdhCollectQueryData(hQuery) == ERROR_SUCCESS);
    PdhRemoveCounter(hCounter);
    CHECK(PdhCollectQueryData(hQuery) == Status(PDH_NO_DATA));
    PdhCloseQuery(hQuery);
}

TEST_CASE("a counter of an instance that is not there is taken, and has data once the instance has come")
{
    ImportRedirector redirector;
    ScriptedPdh pdh(redirector);
    pdh.SetValue(L"\\A(b)\\c", 1.0);
    PDH_HQUERY hQuery = nullptr;
    PDH_HCOUNTER hCounter = nullptr;
    PdhOpenQueryW(nullptr, 0, &hQuery);
    CHECK(PdhAddCounterW(hQuery, L"\\A(later)\\c", 0, &hCounter) == ERROR_SUCCESS);
    CHECK(PdhCollectQueryData(hQuery) == Status(PDH_NO_DATA));
    double dValue = -1.0;
    CHECK(ReadDouble(hCounter, dValue) == Status(PDH_INVALID_DATA));
    pdh.SetValue(L"\\A(later)\\c", 2.0);
    CHECK(PdhCollectQueryData(hQuery) == ERROR_SUCCESS);
    CHECK(ReadDouble(hCounter, dValue) == Status(PDH_INVALID_DATA)); // a rate lies between two samples
    CHECK(PdhCollectQueryData(hQuery) == ERROR_SUCCESS);
    CHECK(ReadDouble(hCounter, dValue) == ERROR_SUCCESS);
    CHECK(dValue == 2.0);
    PdhCloseQuery(hQuery);
}

TEST_CASE("a counter reads its queue first and its value afterwards")
{
    ImportRedirector redirector;
    ScriptedPdh pdh(redirector);
    pdh.QueueValues(L"\\P(0 C:)\\B", {0.0, 7.5});
    pdh.QueueReadStatus(L"\\P(0 C:)\\B", Status(PDH_INVALID_DATA));
    pdh.SetValue(L"\\P(0 C:)\\B", 42.0);
    PDH_HQUERY hQuery = nullptr;
    PDH_HCOUNTER hCounter = nullptr;
    REQUIRE(PdhOpenQueryA(nullptr, 0, &hQuery) == ERROR_SUCCESS);
    REQUIRE(PdhAddCounterA(hQuery, "\\P(0 C:)\\B", 0, &hCounter) == ERROR_SUCCESS);
    CHECK(PdhCollectQueryData(hQuery) == ERROR_SUCCESS);
    CHECK(PdhCollectQueryData(hQuery) == ERROR_SUCCESS);
    double dValue = -1.0;
    CHECK(ReadDouble(hCounter, dValue) == ERROR_SUCCESS);
    CHECK(dValue == 0.0);
    CHECK(ReadDouble(hCounter, dValue) == ERROR_SUCCESS);
    CHECK(dValue == 7.5);
    CHECK(ReadDouble(hCounter, dValue) == Status(PDH_INVALID_DATA));
    CHECK(ReadDouble(hCounter, dValue) == ERROR_SUCCESS);
    CHECK(dValue == 42.0);
    CHECK(pdh.CountCalls("PdhGetFormattedCounterValue") == 4);
    CHECK(pdh.OpenQueries() == 1);
    CHECK(pdh.OpenCounters() == 1);
    CHECK(PdhRemoveCounter(hCounter) == ERROR_SUCCESS);
    CHECK(PdhCloseQuery(hQuery) == ERROR_SUCCESS);
    CHECK(pdh.OpenQueries() == 0);
    CHECK(pdh.WrongHandles() == 0);
}

TEST_CASE("statuses can be scripted for single calls and for good")
{
    ImportRedirector redirector;
    ScriptedPdh pdh(redirector);
    pdh.SetValue(L"\\A(b)\\c", 1.0);
    PDH_HQUERY hQuery = nullptr;
    PDH_HCOUNTER hCounter = nullptr;
    pdh.QueueStatus("PdhOpenQueryW", {Status(PDH_INVALID_ARGUMENT)});
    CHECK(PdhOpenQueryW(nullptr, 0, &hQuery) == Status(PDH_INVALID_ARGUMENT));
    CHECK(pdh.OpenQueries() == 0);
    CHECK(PdhOpenQueryW(nullptr, 0, &hQuery) == ERROR_SUCCESS);
    CHECK(PdhAddCounterW(hQuery, L"\\A(b)\\c", 0, &hCounter) == ERROR_SUCCESS);
    pdh.QueueStatus("PdhCollectQueryData", {ERROR_SUCCESS, Status(PDH_NO_DATA)});
    CHECK(PdhCollectQueryData(hQuery) == ERROR_SUCCESS);
    CHECK(PdhCollectQueryData(hQuery) == Status(PDH_NO_DATA));
    CHECK(PdhCollectQueryData(hQuery) == ERROR_SUCCESS);
    pdh.SetStatus("PdhCollectQueryData", Status(PDH_NO_DATA));
    CHECK(PdhCollectQueryData(hQuery) == Status(PDH_NO_DATA));
    CHECK(PdhCollectQueryData(hQuery) == Status(PDH_NO_DATA));
    PdhCloseQuery(hQuery);
}

TEST_CASE("a query that is closed twice and a counter that went with its query are found out")
{
    ImportRedirector redirector;
    ScriptedPdh pdh(redirector);
    pdh.SetValue(L"\\A(b)\\c", 1.0);
    PDH_HQUERY hQuery = nullptr;
    PDH_HCOUNTER hCounter = nullptr;
    PdhOpenQueryW(nullptr, 0, &hQuery);
    PdhAddCounterW(hQuery, L"\\A(b)\\c", 0, &hCounter);
    PdhCloseQuery(hQuery);
    CHECK(pdh.OpenCounters() == 0);
    CHECK(PdhCloseQuery(hQuery) == Status(PDH_INVALID_HANDLE));
    CHECK(PdhRemoveCounter(hCounter) == Status(PDH_INVALID_HANDLE));
    CHECK(pdh.WrongHandles() == 2);
}

TEST_CASE("child: scripts a counter function that does not exist", "[.]")
{
    ImportRedirector redirector;
    ScriptedPdh pdh(redirector);
    pdh.SetStatus("PdhCollectQuery", Status(PDH_NO_DATA));
}

TEST_CASE("scripting a counter function that does not exist fails the test")
{
    const ChildProcess child = ChildProcess::OfTestCase("child: scripts a counter function that does not exist");
    REQUIRE(child.WaitForEnd(20000));
    CHECK(child.ExitCode() == 1);
    CHECK_THAT(child.Output(), Catch::Contains("does not answer for PdhCollectQuery"));
}

} // namespace varnex::test
