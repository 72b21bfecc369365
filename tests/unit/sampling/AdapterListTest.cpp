#include "sampling/NetworkUtilizationCollector.h"

#include "support/ProcessMeter.h"
#include "support/ScriptedInterfaceTable.h"
#include "support/ScriptedWmi.h"
#include "unit/reporting/ComScope.h"
#include "unit/sampling/ArrayFailure.h"
#include "unit/sampling/SamplingTest.h"

#include <wbemidl.h>

#include <cstdint>
#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

constexpr HRESULT FAILURE = E_ACCESSDENIED;
using Step = ScriptedWmi::Step;

class AdapterListTest : public SamplingTest
{
protected:
    ~AdapterListTest()
    {
        // No test may leave anything of WMI behind, whichever step failed.
        CHECK(m_wmi.LiveObjects() == 0);
        CHECK(m_wmi.LiveTexts() == 0);
    }

    // The only card of a system with that adapter.
    NetworkCard CardOf(const WmiObject& adapter)
    {
        m_wmi.SetObjects({adapter});
        REQUIRE(m_collector.RefreshCardList() == 0);
        REQUIRE(m_collector.CardList().size() == 1);
        return m_collector.CardList().front();
    }
    static WmiObject With(const wchar_t* pwszProperty, const WmiValue& value)
    {
        WmiObject adapter = WmiAdapter(L"Ethernet", 7, WmiText(L"1000000000"));
        adapter[pwszProperty] = value;
        return adapter;
    }
    std::vector<std::wstring> Names() const
    {
        std::vector<std::wstring> names;
        for (const NetworkCard& card : m_collector.CardList())
        {
            names.emplace_back(card.Name);
        }
        return names;
    }

    const ComScope m_com;
    ScriptedWmi m_wmi{m_redirector};
    ScriptedInterfaceTable m_table{m_redirector};
    NetworkUtilizationCollector m_collector;
};

} // namespace

TEST_CASE_METHOD(AdapterListTest, "adapters are listed in the order of WMI with what it says of them")
{
    WmiObject first = WmiAdapter(L"First", 12, WmiText(L"1000000000"));
    first[L"MACAddress"] = WmiText(L"00:15:5D:01:02:03");
    m_wmi.SetObjects({first, WmiAdapter(L"Second", 3, WmiText(L"100000000"))});
    CHECK(m_collector.RefreshCardList() == 0);
    REQUIRE(Names() == std::vector<std::wstring>{L"First", L"Second"});

    const NetworkCard& card = m_collector.CardList().front();
    CHECK(std::wstring(card.MACAddress) == L"00:15:5D:01:02:03");
    CHECK(card.InterfaceIndex == 12);
    CHECK(card.Speed == 1'000'000'000);
    CHECK(m_collector.CardList().back().InterfaceIndex == 3);
    CheckNoLog();
}

TEST_CASE_METHOD(AdapterListTest, "a new card has no readings and a missing utilization")
{
    const NetworkCard card = CardOf(WmiAdapter(L"Ethernet", 7, WmiText(L"1000000000")));
    CHECK(card.LastInOctets == 0);
    CHECK(card.LastOutOctets == 0);
    CHECK(card.Utilization == 0xFFFFFFFF);
    CHECK(card.DeltaBytes == 0);
}

TEST_CASE_METHOD(AdapterListTest, "a system without Ethernet adapters has an empty list")
{
    CHECK(m_collector.RefreshCardList() == 0);
    CHECK(m_collector.CardList().empty());
}

TEST_CASE_METHOD(AdapterListTest, "WMI is asked step by step and each adapter property by property")
{
    m_wmi.SetObjects({WmiAdapter(L"Ethernet", 7, WmiText(L"1000000000"))});
    m_collector.RefreshCardList();
    CHECK(m_wmi.Calls() == std::vector<std::string>{"CoCreateInstance", "ConnectServer", "CoSetProxyBlanket",
                                                    "ExecQuery", "Next", "Get(MACAddress)", "Get(InterfaceIndex)",
                                                    "Get(Speed)", "Get(Name)", "Next"});
}

TEST_CASE_METHOD(AdapterListTest, "WMI is asked for Ethernet adapters only")
{
    m_collector.RefreshCardList();
    const WmiRequest request = m_wmi.Request();
    CHECK(request.dwContext == CLSCTX_INPROC_SERVER);
    CHECK(IsEqualIID(request.iid, IID_IWbemLocator));
    CHECK(request.space == L"ROOT\\CIMV2");
    CHECK(request.bPlainConnection);
    CHECK(request.bPlainBlanket);
    CHECK(request.dwAuthentication == 10);
    CHECK(request.dwAuthorization == 0);
    CHECK(request.dwLevel == 3);
    CHECK(request.dwImpersonation == 3);
    CHECK(request.dwCapabilities == 0);
    CHECK(request.language == L"WQL");
    CHECK(request.query == L"SELECT * FROM Win32_NetworkAdapter where adapterTypeId = 0");
    CHECK(request.nFlags == 48);
    CHECK(request.nTimeout == -1);
    CHECK(request.nCount == 1);
}

TEST_CASE_METHOD(AdapterListTest, "a step of WMI that fails ends the refresh with its status")
{
    struct Failure
    {
        Step step;
        std::size_t nCalls;
    };
    const auto failure = GENERATE(
        values<Failure>({{Step::CreateLocator, 1}, {Step::Connect, 2}, {Step::SetBlanket, 3}, {Step::Query, 4}}));
    CAPTURE(failure.nCalls);
    m_wmi.SetObjects({WmiAdapter(L"Ethernet", 7, WmiText(L"1000000000"))});
    m_wmi.Fail(failure.step, FAILURE);
    CHECK(m_collector.RefreshCardList() == FAILURE);
    CHECK(m_wmi.Calls().size() == failure.nCalls);
    CHECK(m_collector.CardList().empty());
    CheckNoLog();

    m_wmi.Succeed(failure.step);
    CHECK(m_collector.RefreshCardList() == 0);
    CHECK(m_collector.CardList().size() == 1);
}

TEST_CASE_METHOD(AdapterListTest, "no memory for a text to WMI is a failure of the refresh")
{
    const ULONGLONG ullText = GENERATE(1U, 2U, 3U); // the namespace, the language, the query
    CAPTURE(ullText);
    m_redirector.FailCall("SysAllocString", ullText, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
    CHECK(m_collector.RefreshCardList() == E_OUTOFMEMORY);
    CHECK(m_redirector.Failures("SysAllocString") == 1);
}

TEST_CASE_METHOD(AdapterListTest, "an enumeration ends at the first status that is not 0 or without an object")
{
    struct End
    {
        HRESULT nStatus;
        HRESULT nResult;
    };
    const auto end = GENERATE(values<End>({{WBEM_S_FALSE, 0},
                                           {WBEM_S_NO_ERROR, 0}, // a success without an object
                                           {FAILURE, FAILURE}}));
    CAPTURE(end.nStatus);
    m_wmi.SetObjects({WmiAdapter(L"First", 1, WmiText(L"1")), WmiAdapter(L"Second", 2, WmiText(L"2"))});
    m_wmi.EndAfter(1, end.nStatus);
    CHECK(m_collector.RefreshCardList() == end.nResult);
    CHECK(Names() == std::vector<std::wstring>{L"First"});
    CHECK(m_wmi.Calls().back() == "Next");
}

TEST_CASE_METHOD(AdapterListTest, "an object that comes with a status that is not 0 is left out and released")
{
    struct End
    {
        HRESULT nStatus;
        HRESULT nResult;
    };
    const auto end = GENERATE(values<End>({{WBEM_S_FALSE, 0}, {WBEM_S_TIMEDOUT, 0}, {FAILURE, FAILURE}}));
    CAPTURE(end.nStatus);
    m_wmi.SetObjects({WmiAdapter(L"First", 1, WmiText(L"1")), WmiAdapter(L"Second", 2, WmiText(L"2"))});
    m_wmi.EndWithObject(1, end.nStatus);
    CHECK(m_collector.RefreshCardList() == end.nResult);
    CHECK(Names() == std::vector<std::wstring>{L"First"});
}

TEST_CASE_METHOD(AdapterListTest, "a refresh adds to the list until it is cleared")
{
    m_wmi.SetObjects({WmiAdapter(L"Ethernet", 7, WmiText(L"1000000000"))});
    m_collector.RefreshCardList();
    m_collector.RefreshCardList();
    CHECK(Names() == std::vector<std::wstring>{L"Ethernet", L"Ethernet"});
    m_collector.ClearCardList();
    CHECK(m_collector.CardList().empty());
    m_collector.RefreshCardList();
    CHECK(m_collector.CardList().size() == 1);
    CHECK(m_collector.EmptyCardList().empty());
}

TEST_CASE_METHOD(AdapterListTest, "a MAC address is taken from a text and cut at 63 characters")
{
    struct Address
    {
        WmiValue value;
        std::wstring address;
    };
    const auto address = GENERATE(values<Address>({{WmiText(L"00:11:22:33:44:55"), L"00:11:22:33:44:55"},
                                                   {WmiText(std::wstring(63, L'a')), std::wstring(63, L'a')},
                                                   {WmiText(std::wstring(64, L'a')), std::wstring(63, L'a')},
                                                   {WmiNullText(), L""},
                                                   {WmiOfType(VT_NULL), L""},
                                                   {WmiNumber(5), L""},
                                                   {WmiUnreadable(FAILURE), L""}}));
    const NetworkCard card = CardOf(With(L"MACAddress", address.value));
    CHECK(std::wstring(card.MACAddress) == address.address);
    CHECK(card.InterfaceIndex == 7); // the next field is unharmed
    CHECK(std::wstring(card.Name) == L"Ethernet");
}

TEST_CASE_METHOD(AdapterListTest, "an interface index is taken from a 32-bit integer")
{
    struct Index
    {
        WmiValue value;
        DWORD dwIndex;
    };
    const auto index = GENERATE(values<Index>({{WmiNumber(12), 12},
                                               {WmiNumber(-1), 0xFFFFFFFF},
                                               {WmiOfType(VT_NULL), 0},
                                               {WmiOfType(VT_I2, 12), 0},
                                               {WmiText(L"12"), 0},
                                               {WmiUnreadable(FAILURE), 0}}));
    CAPTURE(index.value.nType, index.value.nNumber);
    CHECK(CardOf(With(L"InterfaceIndex", index.value)).InterfaceIndex == index.dwIndex);
}

TEST_CASE_METHOD(AdapterListTest, "a name is taken from a text and cut at 255 characters")
{
    struct Name
    {
        WmiValue value;
        std::wstring name;
    };
    const auto name = GENERATE(values<Name>({{WmiText(L"Drahtlos \u4E2D"), L"Drahtlos \u4E2D"},
                                             {WmiText(std::wstring(255, L'n')), std::wstring(255, L'n')},
                                             {WmiText(std::wstring(256, L'n')), std::wstring(255, L'n')},
                                             {WmiNullText(), L""},
                                             {WmiOfType(VT_NULL), L""},
                                             {WmiNumber(5), L""}}));
    CHECK(std::wstring(CardOf(With(L"Name", name.value)).Name) == name.name);
}

TEST_CASE_METHOD(AdapterListTest, "an adapter whose name cannot be read is left out")
{
    m_wmi.SetObjects({WmiAdapter(L"First", 1, WmiText(L"1")), With(L"Name", WmiUnreadable(FAILURE)),
                      WmiAdapter(L"Last", 3, WmiText(L"3"))});
    CHECK(m_collector.RefreshCardList() == 0);
    CHECK(Names() == std::vector<std::wstring>{L"First", L"Last"});
}

TEST_CASE_METHOD(AdapterListTest, "a speed in words is a decimal number that saturates into -1")
{
    struct Speed
    {
        WmiValue value;
        std::int64_t nSpeed;
    };
    const auto speed = GENERATE(values<Speed>({{WmiText(L"1000000000"), 1'000'000'000},
                                               {WmiText(L"10000000000"), 10'000'000'000},
                                               {WmiText(L"1410065408"), 1'410'065'408}, // only the table's is cut
                                               {WmiText(L"9223372036854775806"), 9'223'372'036'854'775'806},
                                               {WmiText(L"9223372036854775807"), -1},
                                               {WmiText(L"9223372036854775808"), -1},
                                               {WmiText(L"99999999999999999999"), -1},
                                               {WmiText(L"0"), 0},
                                               {WmiText(L"-5"), -5},
                                               {WmiText(L"0100"), 100},
                                               {WmiText(L"unknown"), 0},
                                               {WmiText(L""), 0},
                                               {WmiNullText(), 0}}));
    m_table.AddRow(7, 77);
    CAPTURE(speed.nSpeed);
    CHECK(CardOf(With(L"Speed", speed.value)).Speed == speed.nSpeed);
    CHECK(m_table.Calls().empty());
}

TEST_CASE_METHOD(AdapterListTest, "a speed that WMI does not tell comes from the interface table")
{
    const WmiValue value = GENERATE(values<WmiValue>({WmiOfType(VT_NULL), WmiNumber(5), WmiUnreadable(FAILURE)}));
    m_table.AddRow(6, 66);
    m_table.AddRow(7, 77);
    m_table.AddRow(7, 88); // the first row of an index counts
    CHECK(CardOf(With(L"Speed", value)).Speed == 77);
    CheckNoLog();
}

TEST_CASE_METHOD(AdapterListTest, "the interface table's speed column stands for these speeds")
{
    struct Speed
    {
        DWORD dwColumn;
        std::int64_t nSpeed;
    };
    const auto speed = GENERATE(values<Speed>({{0, 0},
                                               {100'000'000, 100'000'000},
                                               {1'410'065'407, 1'410'065'407},
                                               {1'410'065'408, 10'000'000'000},
                                               {1'410'065'409, 1'410'065'409},
                                               {4'294'967'295, 4'294'967'295}}));
    CAPTURE(speed.dwColumn);
    m_table.AddRow(7, speed.dwColumn);
    CHECK(CardOf(With(L"Speed", WmiOfType(VT_NULL))).Speed == speed.nSpeed);
}

TEST_CASE_METHOD(AdapterListTest, "an adapter without a row in the interface table has no speed")
{
    m_table.AddRow(6, 66);
    CHECK(CardOf(With(L"Speed", WmiOfType(VT_NULL))).Speed == 0);
    CheckNoLog();
}

TEST_CASE_METHOD(AdapterListTest, "an adapter without an index takes the speed of interface 0")
{
    WmiObject adapter = With(L"Speed", WmiOfType(VT_NULL));
    adapter.erase(L"InterfaceIndex");
    m_table.AddRow(7, 77);
    m_table.AddRow(0, 5);
    CHECK(CardOf(adapter).Speed == 5);
}

TEST_CASE_METHOD(AdapterListTest, "the interface table is asked for its size first and read into zeroed memory")
{
    m_table.AddRow(7, 77);
    CardOf(With(L"Speed", WmiOfType(VT_NULL)));
    const std::vector<InterfaceTableCall> calls = m_table.Calls();
    REQUIRE(calls.size() == 2);
    CHECK(calls[0].cbBuffer == 0);
    CHECK_FALSE(calls[0].bSorted);
    CHECK(calls[0].dwStatus == ERROR_INSUFFICIENT_BUFFER);
    CHECK(calls[1].cbBuffer == 4 + 860);
    CHECK(calls[1].bZeroed);
    CHECK_FALSE(calls[1].bSorted);
    CHECK(calls[1].dwStatus == NO_ERROR);
}

TEST_CASE_METHOD(AdapterListTest, "an interface table that cannot be read is logged and the speed unknown")
{
    // The size, or the table itself, or one that has grown meanwhile.
    struct Failure
    {
        ULONGLONG ullCall;
        DWORD dwStatus;
    };
    const auto failure =
        GENERATE(values<Failure>({{1, ERROR_NOT_SUPPORTED}, {2, ERROR_INVALID_DATA}, {2, ERROR_INSUFFICIENT_BUFFER}}));
    CAPTURE(failure.ullCall, failure.dwStatus);
    m_table.AddRow(7, 77);
    m_redirector.FailCall("GetIfTable", failure.ullCall, FailMode::FromThereOn, ERROR_GEN_FAILURE, failure.dwStatus);
    CHECK(CardOf(With(L"Speed", WmiOfType(VT_NULL))).Speed == 0);
    CheckLog({{1, "GetNICSpeed::GetIfTable()failed! Error code=31"}}); // the last error, not the status
}

TEST_CASE_METHOD(AdapterListTest, "no memory for the interface table is logged and the speed unknown")
{
    m_table.AddRow(7, 77);
    const ArrayFailure failure(1);
    CHECK(CardOf(With(L"Speed", WmiOfType(VT_NULL))).Speed == 0);
    CHECK(failure.IsMet());
    CHECK(m_table.Calls().size() == 1);
    CheckLog({{1, "GetNICSpeed::ifTable: memory allocate failed! Error code=8"}});
}

TEST_CASE_METHOD(AdapterListTest, "a failed look at the interface table spoils only its own adapter")
{
    m_table.AddRow(1, 11);
    m_table.AddRow(2, 22);
    m_wmi.SetObjects({WmiAdapter(L"First", 1, WmiOfType(VT_NULL)), WmiAdapter(L"Second", 2, WmiOfType(VT_NULL))});
    m_redirector.FailCall("GetIfTable", 2, FailMode::Once, ERROR_GEN_FAILURE, ERROR_INVALID_DATA);
    CHECK(m_collector.RefreshCardList() == 0);
    REQUIRE(m_collector.CardList().size() == 2);
    CHECK(m_collector.CardList()[0].Speed == 0);
    CHECK(m_collector.CardList()[1].Speed == 22);
}

TEST_CASE_METHOD(SamplingTest, "ten thousand refreshes leave handles, WMI objects, texts and memory where they were")
{
    const ComScope com;
    NetworkUtilizationCollector collector;
    // The scripts keep what they were called with, so each hundred refreshes have scripts of their own.
    const auto refreshHundredTimes = [&]
    {
        ScriptedWmi wmi(m_redirector);
        ScriptedInterfaceTable table(m_redirector);
        table.AddRow(2, 1000);
        wmi.SetObjects({WmiAdapter(L"With a speed", 1, WmiText(L"1000000000")),
                        WmiAdapter(L"With the interface table's", 2, WmiOfType(VT_NULL))});
        for (int i = 0; i < 100; ++i)
        {
            collector.ClearCardList();
            if (collector.RefreshCardList() != 0 || collector.CardList().size() != 2)
            {
                return false;
            }
        }
        return table.Calls().size() == 200 && wmi.LiveObjects() == 0 && wmi.LiveTexts() == 0;
    };
    REQUIRE(refreshHundredTimes()); // the first ones make what stays
    const std::size_t nHandles = CountHandles();
    const std::size_t cbMemory = PrivateBytes();
    for (int i = 0; i < 100; ++i)
    {
        REQUIRE(refreshHundredTimes());
    }
    CHECK(CountHandles() == nHandles);
    // A text or a table left behind by each refresh would be 300 kB and more.
    CHECK(PrivateBytes() < cbMemory + 128 * 1024);
}

TEST_CASE("the adapters of this very machine can be listed and measured")
{
    REQUIRE(SUCCEEDED(CoInitialize(nullptr)));
    {
        NetworkUtilizationCollector collector;
        CHECK(collector.RefreshCardList() == 0);
        CHECK(collector.CollectUtilization() == 0);
        for (const NetworkCard& card : collector.CardList())
        {
            CHECK(std::wstring(card.Name) != L"");
            const bool bMeasured = card.Utilization <= 100;
            CHECK((bMeasured || card.Utilization == NetworkCard::UTILIZATION_MISSING));
        }
    }
    CoUninitialize();
}

} // namespace varnex::test
