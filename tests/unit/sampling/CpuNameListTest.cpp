#include "sampling/CpuSampling.h"

#include "support/ScriptedPdh.h"
#include "unit/sampling/SamplingTest.h"

#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

constexpr char FINISH[] = "GetCPUNameListW -- get processor name instance finish.";

class CpuNameListTest : public SamplingTest
{
protected:
    static std::vector<std::wstring> Enumerate()
    {
        std::vector<std::wstring> names;
        for (const auto& name : GetCPUNameListW())
        {
            names.emplace_back(name.get());
        }
        return names;
    }
    // One line, and no other.
    void CheckOnlyLine(int nLevel, const std::string& text) const
    {
        const LogFile log = ReadLog();
        CHECK(log.Lines().size() == 1);
        CHECK_THAT(log, HasLine(nLevel, text));
    }

    ScriptedPdh m_pdh{m_redirector};
};

} // namespace

TEST_CASE_METHOD(CpuNameListTest, "processors are listed in the order of the system without the aggregate one")
{
    m_pdh.SetInstances(L"Processor", {L"2", L"0", L"_Total", L"1"});
    CHECK(Enumerate() == std::vector<std::wstring>{L"2", L"0", L"1"});
    CheckOnlyLine(3, FINISH);
}

TEST_CASE_METHOD(CpuNameListTest, "the aggregate processor alone gives an empty list and still a finish")
{
    m_pdh.SetInstances(L"Processor", {L"_Total"});
    CHECK(Enumerate().empty());
    CheckOnlyLine(3, FINISH);
}

TEST_CASE_METHOD(CpuNameListTest, "processors are looked for under the name in the system language")
{
    SetSystemLanguage(MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN_AUSTRIAN));
    m_pdh.SetInstances(L"Prozessor", {L"0", L"_Total"});
    CHECK(Enumerate() == std::vector<std::wstring>{L"0"});
}

TEST_CASE_METHOD(CpuNameListTest, "processors are enumerated on this machine at the advanced level of detail")
{
    struct Arguments
    {
        bool bLocal = false;
        DWORD cchCounters = 0;
        DWORD cchInstances = 0;
        DWORD dwDetail = 0;
        DWORD dwFlags = 1;
    };
    Arguments asked;
    m_redirector.Replace<decltype(::PdhEnumObjectItemsW)>(
        "PdhEnumObjectItemsW",
        [&](LPCWSTR pwszSource, LPCWSTR pwszMachine, LPCWSTR, LPWSTR, LPDWORD pcchCounters, LPWSTR pwszInstances,
            LPDWORD pcchInstances, DWORD dwDetail, DWORD dwFlags)
        {
            asked = {pwszSource == nullptr && pwszMachine == nullptr, *pcchCounters, *pcchInstances, dwDetail, dwFlags};
            wmemcpy(pwszInstances, L"0\0", 3);
            return PDH_STATUS{ERROR_SUCCESS};
        });
    CHECK(Enumerate() == std::vector<std::wstring>{L"0"});
    CHECK(asked.bLocal);
    CHECK(asked.cchCounters == 2048);
    CHECK(asked.cchInstances == 2048);
    CHECK(asked.dwDetail == 200);
    CHECK(asked.dwFlags == 0);
}

TEST_CASE_METHOD(CpuNameListTest, "processors that cannot be enumerated are logged with the status")
{
    m_pdh.SetStatus("PdhEnumObjectItemsW", PdhStatus(0xC0000BB8));
    CHECK(Enumerate().empty());
    CheckOnlyLine(2, "GetCPUNameListW -- ERROR to get processor interface instance[1],"
                     "PdhEnumObjectItemsHA(0xc0000bb8).");
}

TEST_CASE_METHOD(CpuNameListTest, "a list that does not fit its buffer is no list")
{
    m_pdh.SetInstances(L"Processor", std::vector<std::wstring>(700, L"10"));
    CHECK(Enumerate().empty());
    CheckOnlyLine(2, "GetCPUNameListW -- ERROR to get processor interface instance[1],"
                     "PdhEnumObjectItemsHA(0x800007d2).");
}

TEST_CASE_METHOD(CpuNameListTest, "an enumeration without processors is logged as an error of 0")
{
    m_pdh.SetInstances(L"Processor", {});
    CHECK(Enumerate().empty());
    CheckOnlyLine(2, "GetCPUNameListW -- ERROR to get processor interface instance[2], "
                     "PdhEnumObjectItemsHA(0x00000000).");
}

TEST_CASE_METHOD(CpuNameListTest, "without the processor object name nothing is enumerated")
{
    FailConversion(1);
    CHECK(Enumerate().empty());
    CHECK(m_pdh.Calls().empty());
    CHECK(ReadLog().Lines().size() == 2);
    CHECK_THAT(
        ReadLog(),
        HasLinesInOrder({{1, "VNXGetStringW -- MultiByteToWideChar fail, return error(1113), szAnsiString[Processor], "
                             "limit(256)."},
                         {2, "GetCPUNameListW -- fail to get processor interface name from resource[-1], exit...."}}));
}

TEST_CASE_METHOD(CpuNameListTest, "without the name of the aggregate instance nothing is enumerated")
{
    FailConversion(2);
    CHECK(Enumerate().empty());
    CHECK(m_pdh.Calls().empty());
    CHECK(ReadLog().Lines().size() == 2);
    CHECK_THAT(
        ReadLog(),
        HasLinesInOrder({{1, "VNXGetStringW -- MultiByteToWideChar fail, return error(1113), szAnsiString[Total], "
                             "limit(64)."},
                         {2, "GetCPUNameListW -- fail to get processor total resource string[-1], exit...."}}));
}

} // namespace varnex::test
