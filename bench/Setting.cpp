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
    wchar_t wszToday[DATE_CHARS];
    FormatLocalDateW(SecondsNow(), wszToday);
    config.SetCounter("Date", test::AnsiFromWide(wszToday));
    for (const char* pszCount : {"CPU", "PH", "PF", "Disk", "Network"})
    {
        config.SetCounter(pszCount, "0");
    }
    config.SetLogLevel(0);
    tree.WriteConfig(config);
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
