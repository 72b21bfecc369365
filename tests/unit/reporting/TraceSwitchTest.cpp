#include "ReportingBench.h"

#include "diag/SPLogger.h"
#include "reporting/TraceSwitch.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

constexpr wchar_t WINDOWS_KEY[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion";
constexpr wchar_t TRACE_KEY[] = L"SOFTWARE\\Quellmark\\QM Tessary Backup\\Kaltrop\\Trace";

} // namespace

TEST_CASE("tracing is on while the registry value is greater than 0")
{
    struct Rule
    {
        DWORD dwSwitch;
        bool bOn;
    };
    const Rule rule = GENERATE(
        values<Rule>({{0, false}, {1, true}, {2, true}, {0x7FFFFFFF, true}, {0x80000000, true}, {0xFFFFFFFF, true}}));
    CAPTURE(rule.dwSwitch);
    ReportingBench bench;
    bench.registry.SetSwitch(rule.dwSwitch);
    CHECK(NeedToOutputCurrentUtil() == rule.bOn);
    CHECK(bench.ReadLog().Lines().empty());
    CHECK(bench.registry.LiveKeys() == 0);
    CHECK(bench.registry.WrongCalls() == 0);
}

TEST_CASE("the trace key is read in the 64-bit view of a system that has a directory for 32-bit programs")
{
    struct Rule
    {
        std::optional<std::wstring> directory;
        REGSAM nView;
    };
    const Rule rule = GENERATE(values<Rule>({
        {L"C:\\Program Files (x86)", KEY_WOW64_64KEY},
        {L"x", KEY_WOW64_64KEY},
        {L"", 0},
        {std::nullopt, 0},
        {std::wstring(129, L'x'), KEY_WOW64_64KEY}, // 260 bytes
        {std::wstring(130, L'x'), 0},               // does not fit: as if it were not there
    }));
    ReportingBench bench;
    bench.registry.SetSwitch(1);
    bench.registry.SetProgramsDirectory(rule.directory);
    CHECK(NeedToOutputCurrentUtil());
    const auto opened = bench.registry.OpenedKeys();
    REQUIRE(opened.size() == 2);
    CHECK(opened[0].key == WINDOWS_KEY);
    CHECK(opened[0].nAccess == KEY_READ);
    CHECK(opened[1].key == TRACE_KEY);
    CHECK(opened[1].nAccess == (KEY_READ | rule.nView));
    CHECK(bench.registry.LiveKeys() == 0);
    CHECK(bench.ReadLog().Lines().empty());
}

TEST_CASE("a Windows key that cannot be opened is logged, and the default view is used")
{
    ReportingBench bench;
    bench.registry.SetSwitch(1);
    bench.registry.RemoveWindowsKey();
    CHECK(NeedToOutputCurrentUtil());
    const auto opened = bench.registry.OpenedKeys();
    REQUIRE(opened.size() == 2);
    CHECK(opened[1].nAccess == KEY_READ);
    const LogFile log = bench.ReadLog();
    CHECK(log.Lines().size() == 1);
    CHECK_THAT(log, HasLine(2, "Is64BitSystem: RegOpenKeyEx failed!"));
}

TEST_CASE("without the trace key tracing is off")
{
    ReportingBench bench;
    CHECK_FALSE(NeedToOutputCurrentUtil());
    const LogFile log = bench.ReadLog();
    CHECK(log.Lines().size() == 1);
    CHECK_THAT(log, HasLine(4, "[NeedToOutputCurrentUtil]failed to open registry (2)"));
    CHECK(bench.registry.LiveKeys() == 0);
}

TEST_CASE("without the trace value tracing is off")
{
    ReportingBench bench;
    bench.registry.RemoveSwitch();
    CHECK_FALSE(NeedToOutputCurrentUtil());
    const LogFile log = bench.ReadLog();
    CHECK(log.Lines().size() == 1);
    CHECK_THAT(log, HasLine(2, "[NeedToOutputCurrentUtil]failed to query registry value(2)"));
    CHECK(bench.registry.LiveKeys() == 0);
}

namespace
{

// The real key, removed with all that this test had to make for it.
class LiveTraceKey
{
public:
    LiveTraceKey()
    {
        DWORD dwDisposition = 0;
        if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, TRACE_KEY, 0, nullptr, 0, KEY_ALL_ACCESS | KEY_WOW64_64KEY, nullptr,
                            m_key.Receive(), &dwDisposition) == ERROR_SUCCESS)
        {
            m_bMade = dwDisposition == REG_CREATED_NEW_KEY;
        }
    }
    ~LiveTraceKey()
    {
        m_key.Reset();
        if (m_bMade)
        {
            for (const wchar_t* pwszKey : {TRACE_KEY, L"SOFTWARE\\Quellmark\\QM Tessary Backup\\Kaltrop",
                                           L"SOFTWARE\\Quellmark\\QM Tessary Backup", L"SOFTWARE\\Quellmark"})
            {
                RegDeleteKeyExW(HKEY_LOCAL_MACHINE, pwszKey, KEY_WOW64_64KEY, 0);
            }
        }
    }
    bool IsMadeHere() const { return m_bMade; }
    void Set(DWORD dwSwitch)
    {
        RegSetValueExW(m_key.Get(), L"OutputUtilToFile", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&dwSwitch),
                       sizeof dwSwitch);
    }

private:
    UniqueRegistryKey m_key;
    bool m_bMade = false;
};

} // namespace

TEST_CASE("the switch is read from this machine's registry, anew at each call")
{
    Log()->Level = 0;
    CHECK_FALSE(NeedToOutputCurrentUtil());
    {
        LiveTraceKey key;
        REQUIRE(key.IsMadeHere());
        CHECK_FALSE(NeedToOutputCurrentUtil());
        key.Set(1);
        CHECK(NeedToOutputCurrentUtil());
        key.Set(0);
        CHECK_FALSE(NeedToOutputCurrentUtil());
        key.Set(7);
        CHECK(NeedToOutputCurrentUtil());
    }
    CHECK_FALSE(NeedToOutputCurrentUtil());
}

} // namespace varnex::test
