#include "sampling/CpuSampling.h"

#include "sampling/CounterNames.h"
#include "unit/sampling/PdhTest.h"
#include "unit/sampling/SystemLanguages.h"

#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

constexpr char FINISH[] = "GetCPUNameListW -- get processor name instance finish.";

class CpuNameListTest : public PdhTest
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
};

} // namespace

TEST_CASE_METHOD(CpuNameListTest, "processors are listed in the order of the system without the aggregate one")
{
    m_pdh.SetInstances(L"Processor", {L"2", L"0", L"_Total", L"1"});
    CHECK(Enumerate() == std::vector<std::wstring>{L"2", L"0", L"1"});
    CheckLog({{3, FINISH}});
}

TEST_CASE_METHOD(CpuNameListTest, "the aggregate processor alone gives an empty list and still a finish")
{
    m_pdh.SetInstances(L"Processor", {L"_Total"});
    CHECK(Enumerate().empty());
    CheckLog({{3, FINISH}});
}

TEST_CASE_METHOD(CpuNameListTest, "processors are looked for under the name in the system language")
{
    const auto language = GENERATE(from_range(SystemLanguages()));
    INFO(language.name);
    SetSystemLanguage(language.ids.back());
    m_pdh.SetInstances(language.WideName(IDS_PROCESSOR_OBJECT), {L"0", L"_Total"});
    CHECK(Enumerate() == std::vector<std::wstring>{L"0"});
    CheckLog({{3, FINISH}});
}

TEST_CASE_METHOD(CpuNameListTest, "processors are enumerated on this machine at the advanced level of detail")
{
    const EnumerationScript<wchar_t> script(m_redirector, "PdhEnumObjectItemsW");
    CHECK(Enumerate() == std::vector<std::wstring>{L"0"});
    script.CheckAsked();
}

TEST_CASE_METHOD(CpuNameListTest, "processors that cannot be enumerated are logged with the status")
{
    m_pdh.SetStatus("PdhEnumObjectItemsW", PdhStatus(0xC0000BB8));
    CHECK(Enumerate().empty());
    CheckLog({{2, "GetCPUNameListW -- ERROR to get processor interface instance[1],"
                  "PdhEnumObjectItemsHA(0xc0000bb8)."}});
}

TEST_CASE_METHOD(CpuNameListTest, "a list that does not fit its buffer is no list")
{
    m_pdh.SetInstances(L"Processor", std::vector<std::wstring>(700, L"10"));
    CHECK(Enumerate().empty());
    CheckLog({{2, "GetCPUNameListW -- ERROR to get processor interface instance[1],"
                  "PdhEnumObjectItemsHA(0x800007d2)."}});
}

TEST_CASE_METHOD(CpuNameListTest, "an enumeration without processors is logged as an error of 0")
{
    m_pdh.SetInstances(L"Processor", {});
    CHECK(Enumerate().empty());
    CheckLog({{2, "GetCPUNameListW -- ERROR to get processor interface instance[2], "
                  "PdhEnumObjectItemsHA(0x00000000)."}});
}

TEST_CASE_METHOD(CpuNameListTest, "without the processor object name nothing is enumerated")
{
    FailConversion(1);
    CHECK(Enumerate().empty());
    CHECK(m_pdh.Calls().empty());
    CheckLog({{1, "VNXGetStringW -- MultiByteToWideChar fail, return error(1113), szAnsiString[Processor], "
                  "limit(256)."},
              {2, "GetCPUNameListW -- fail to get processor interface name from resource[-1], exit...."}});
}

TEST_CASE_METHOD(CpuNameListTest, "without the name of the aggregate instance nothing is enumerated")
{
    FailConversion(2);
    CHECK(Enumerate().empty());
    CHECK(m_pdh.Calls().empty());
    CheckLog({{1, "VNXGetStringW -- MultiByteToWideChar fail, return error(1113), szAnsiString[Total], "
                  "limit(64)."},
              {2, "GetCPUNameListW -- fail to get processor total resource string[-1], exit...."}});
}

} // namespace varnex::test
