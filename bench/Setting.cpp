#include "Setting.h"

#include "alerting/AlertStore.h"
#include "common/LocalTime.h"
#include "diag/SPLogger.h"
#include "entry/ModuleState.h"
#include "reporting/ReportHandOff.h"
#include "support/ConfigBuilder.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <objbase.h>

namespace varnex::bench
{

namespace
{

constexpr const char* COUNTS[] = {"CPU", "PH", "PF", "Disk", "Network"};

std::string Today()
{
    wchar_t wszToday[DATE_CHARS];
    FormatLocalDateW(SecondsNow(), wszToday);
    return test::AnsiFromWide(wszToday);
}

// Fails the run when the text is not there.
void Replace(std::string& text, const std::string& old, const std::string& replacement)
{
    const std::size_t nAt = text.find(old);
    INFO(old);
    REQUIRE(nAt != std::string::npos);
    text.replace(nAt, old.size(), replacement);
}

} // namespace

Setting::Setting(const Effort& chosenEffort) : effort(chosenEffort)
{
    tree.CopyModule();
    // Mapped only, so that it has a path: nothing of it runs.
    m_hModule = LoadLibraryExW(tree.ModulePath().c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    REQUIRE(m_hModule != nullptr);
    g_hModule = m_hModule;
    Log()->Configure(test::AnsiFromWide(tree.LogsPath()).c_str(), "Varnex");
    Log()->Level = 0;
    REQUIRE(PrePKIAlertInf() == 0);
    PrepareSendingMMFAndEvent();
    WriteConfig();
}

Setting::~Setting()
{
    Log()->Level = 0;
    g_hModule = nullptr;
    FreeLibrary(m_hModule);
}

void Setting::WriteConfig()
{
    test::ConfigBuilder config;
    for (const char* pszResource : {"CPU", "Memory", "Disk", "Network"})
    {
        config.SetPolicy(pszResource, 1, 1000, 5, 5); // a threshold that nothing reaches
    }
    config.SetCounter("Date", Today());
    for (const char* pszCount : COUNTS)
    {
        config.SetCounter(pszCount, "0");
    }
    config.SetLogLevel(0);
    tree.WriteConfig(config);
}

void Setting::WriteExampleConfig()
{
    std::string text = test::ReadFileBytes(test::ProgramDirectory() + L"\\KpmCfg.xml");
    std::string counts = "<PkiAlertNum><Date>" + Today() + "</Date>";
    for (const char* pszCount : COUNTS)
    {
        counts += std::string("<") + pszCount + ">0</" + pszCount + ">";
    }
    Replace(text, "<PkiAlertNum></PkiAlertNum>", counts + "</PkiAlertNum>");
    Replace(text, "<CPUThreshold>85</CPUThreshold>", "<CPUThreshold>101</CPUThreshold>");
    Replace(text, "<MemoryThreshold>85</MemoryThreshold>", "<MemoryThreshold>101</MemoryThreshold>");
    tree.WriteConfigText(text);
}

ComScope::ComScope()
{
    REQUIRE(SUCCEEDED(CoInitialize(nullptr)));
}

ComScope::~ComScope()
{
    CoUninitialize();
}

} // namespace varnex::bench
