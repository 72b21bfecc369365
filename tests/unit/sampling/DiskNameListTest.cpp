#include "sampling/DiskSampling.h"

#include "sampling/CounterNames.h"
#include "support/CapturedOutput.h"
#include "support/TestText.h"
#include "unit/sampling/PdhTest.h"
#include "unit/sampling/SystemLanguages.h"

#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

std::wstring AsWide(const char* pszText)
{
    return WideFromAnsi(pszText);
}
std::wstring AsWide(const wchar_t* pwszText)
{
    return pwszText;
}

// One enumeration: the names, and what it printed.
struct Enumeration
{
    std::vector<std::wstring> names;
    std::string output;
};

class DiskNameListTest : public PdhTest
{
protected:
    template <class Operation>
    static Enumeration Enumerate(const Operation& operation)
    {
        Enumeration result;
        result.output = CaptureOutput(
            [&]
            {
                for (const auto& name : operation())
                {
                    result.names.push_back(AsWide(name.get()));
                }
            });
        return result;
    }
    static Enumeration EnumerateA() { return Enumerate(&GetDiskNameList); }
    static Enumeration EnumerateW() { return Enumerate(&GetDiskNameListW); }
    static void CheckFailed(const Enumeration& enumeration, const std::string& output = "")
    {
        CHECK(enumeration.names.empty());
        CHECK(enumeration.output == output);
    }
};

} // namespace

TEST_CASE_METHOD(DiskNameListTest, "disks are listed in the order of the system without the aggregate one")
{
    m_pdh.SetInstances(L"PhysicalDisk", {L"0 C:", L"1 D:", L"_Total"});
    const std::vector<std::wstring> wanted{L"0 C:", L"1 D:"};
    CHECK(EnumerateA().names == wanted);
    CHECK(EnumerateW().names == wanted);
    CHECK(EnumerateA().output.empty());
    CheckNoLog();
}

TEST_CASE_METHOD(DiskNameListTest, "the aggregate disk alone gives an empty list without a message")
{
    m_pdh.SetInstances(L"PhysicalDisk", {L"_Total"});
    CheckFailed(EnumerateA());
    CheckFailed(EnumerateW());
    CheckNoLog();
}

TEST_CASE_METHOD(DiskNameListTest, "disks are looked for under the name in the system language")
{
    const auto language = GENERATE(from_range(SystemLanguages()));
    INFO(language.name);
    SetSystemLanguage(language.ids.back());
    m_pdh.SetInstances(language.WideName(IDS_PHYSICAL_DISK_OBJECT), {L"0 C:", L"_Total"});
    CHECK(EnumerateA().names == std::vector<std::wstring>{L"0 C:"});
    CHECK(EnumerateW().names == std::vector<std::wstring>{L"0 C:"});
}

TEST_CASE_METHOD(DiskNameListTest, "disks are enumerated on this machine at the advanced level of detail")
{
    SECTION("in narrow text")
    {
        const EnumerationScript<char> script(m_redirector, "PdhEnumObjectItemsA");
        CHECK(EnumerateA().names == std::vector<std::wstring>{L"0"});
        script.CheckAsked();
    }
    SECTION("in wide text")
    {
        const EnumerationScript<wchar_t> script(m_redirector, "PdhEnumObjectItemsW");
        CHECK(EnumerateW().names == std::vector<std::wstring>{L"0"});
        script.CheckAsked();
    }
}

TEST_CASE_METHOD(DiskNameListTest, "a failed narrow enumeration is printed and not logged")
{
    SECTION("with its status")
    {
        m_pdh.SetStatus("PdhEnumObjectItemsA", PdhStatus(0xC0000BB8));
        CheckFailed(EnumerateA(), "GetDiskNameList -- ERROR to get physical disk interface[1], "
                                  "PdhEnumObjectItemsHA(0xc0000bb8).\n");
    }
    SECTION("as an error of 0 when there is no instance")
    {
        m_pdh.SetInstances(L"PhysicalDisk", {});
        CheckFailed(EnumerateA(), "GetDiskNameList -- ERROR to get physical disk interface[2], "
                                  "PdhEnumObjectItemsHA(0x00000000).\n");
    }
    CheckNoLog();
}

TEST_CASE_METHOD(DiskNameListTest, "a failed wide enumeration is logged and not printed")
{
    SECTION("with its status")
    {
        m_pdh.SetStatus("PdhEnumObjectItemsW", PdhStatus(0xC0000BB8));
        CheckFailed(EnumerateW());
        CheckLog({{1, "GetDiskNameListW -- ERROR to get physical disk interface[1],"
                      "PdhEnumObjectItemsHA(0xc0000bb8)."}});
    }
    SECTION("as an error of 0 when there is no instance")
    {
        m_pdh.SetInstances(L"PhysicalDisk", {});
        CheckFailed(EnumerateW());
        CheckLog({{1, "GetDiskNameListW -- ERROR to get physical disk interface[2],"
                      "PdhEnumObjectItemsHA(0x00000000)."}});
    }
    CHECK_THAT(ReadLog().Bytes(), !Catch::Contains("\r\n\r\n")); // no line end of its own in the message
}

TEST_CASE_METHOD(DiskNameListTest, "without the disk object name nothing is enumerated")
{
    FailConversion(1);
    CheckFailed(EnumerateW());
    CHECK(m_pdh.Calls().empty());
    CheckLog({{1, "VNXGetStringW -- MultiByteToWideChar fail, return error(1113), szAnsiString[PhysicalDisk], "
                  "limit(256)."},
              {2, "GetDiskNameList -- fail to get physical disk interface name from resource[-1], exit...."}});
}

TEST_CASE_METHOD(DiskNameListTest, "without the name of the aggregate disk nothing is enumerated")
{
    FailConversion(2);
    CheckFailed(EnumerateW());
    CHECK(m_pdh.Calls().empty());
    CheckLog({{1, "VNXGetStringW -- MultiByteToWideChar fail, return error(1113), szAnsiString[Total], "
                  "limit(64)."},
              {2, "GetDiskNameList -- fail to get physical disk total resource string[-1], exit...."}});
}

TEST_CASE_METHOD(DiskNameListTest, "the narrow enumeration converts nothing")
{
    m_pdh.SetInstances(L"PhysicalDisk", {L"0 C:"});
    m_redirector.FailCall("MultiByteToWideChar", 1, FailMode::FromThereOn, ERROR_NO_UNICODE_TRANSLATION);
    CHECK(EnumerateA().names == std::vector<std::wstring>{L"0 C:"});
    CHECK(m_redirector.Failures("MultiByteToWideChar") == 0);
}

} // namespace varnex::test
