#include "MonitoredModule.h"

#include "support/AlertLines.h"
#include "support/LogFile.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <array>
#include <cctype>

namespace varnex::test
{

namespace
{

constexpr LocalTime BEGINNING = {2026, 1, 31, 12, 0, 0};

bool StartsWith(const std::string& text, const std::string& beginning)
{
    return text.compare(0, beginning.size(), beginning) == 0;
}

// Lines of the layers below and above the monitors, which have tests of their own. The last line of a start may come
// before or after the monitor's first.
bool IsForeign(const std::string& text)
{
    static const std::array<const char*, 9> beginnings = {
        "GetAlertNumFromLocal --", "SaveAlertNumIntoLocal --", "GetAlertConfValue --",
        "GetXMLNodeValue --",      "SetXMLNodeValue --",       "StartWorkingThread -- S",
        "StopWorkingThread -- ",   "SaveLocalAlertInfo --",    "Create Monitor "};
    return std::any_of(beginnings.begin(), beginnings.end(),
                       [&](const char* pszBeginning) { return StartsWith(text, pszBeginning); });
}

std::string WithoutThreadId(const std::string& text)
{
    constexpr char szBeginning[] = "[ID:";
    const std::size_t nEnd = text.find(']');
    if (!StartsWith(text, szBeginning) || nEnd == std::string::npos)
    {
        return text;
    }
    const bool bNumber = std::all_of(text.begin() + 4, text.begin() + static_cast<std::ptrdiff_t>(nEnd),
                                     [](unsigned char c) { return std::isdigit(c) != 0; });
    return bNumber ? szBeginning + ("#" + text.substr(nEnd)) : text;
}

const char* ExistsLine(unsigned nAlertType)
{
    static const std::array<const char*, 4> lines = {
        "StartWorkingThread -- CPU Monitor thread has exist. exist...",
        "StartWorkingThread -- Available Memory Monitor thread has exist. exist...",
        "StartWorkingThread -- Physical disk throughput Monitor thread has exist. exist...",
        "StartWorkingThread -- Network utilization Monitor thread has exist. exist..."};
    return lines.at(nAlertType - 1);
}

} // namespace

MonitoredModule::ReadyTree::ReadyTree(const ConfigBuilder& config)
{
    CopyModule();
    WriteConfig(config);
}

MonitoredModule::MonitoredModule(const ConfigBuilder& config)
    : tree(config), module(tree, LoadedModule::Start::Later), imports(module.Handle()), mutexes(imports),
      clock(imports), exports(imports), memory(exports), pdh(imports), wmi(imports), interfaces(imports)
{
    REQUIRE(module.Attach());
    clock.Set(BEGINNING);
    imports.CountCalls("CoInitialize");
    imports.CountCalls("CoUninitialize");
    ForgetLog();
}

MonitoredModule::~MonitoredModule()
{
    // A test that failed half-way leaves monitors behind; none may outlive the module's code.
    module.Export<decltype(::StopWorkingThread)>("StopWorkingThread")(VARNEX_ALERT_ALL);
    (void)clock.AdvanceUntil([this] { return clock.Workers() == 0; }, 600);
}

void MonitoredModule::LogEverything()
{
    StartAndRun(VARNEX_ALERT_CPU);
    StopAndEnd(VARNEX_ALERT_CPU, 60);
    clock.Set(BEGINNING);
    ForgetLog();
}

void MonitoredModule::Start(unsigned nAlertType)
{
    REQUIRE(module.Export<decltype(::StartWorkingThread)>("StartWorkingThread")(nAlertType) == VARNEX_OK);
}

void MonitoredModule::Stop(unsigned nAlertType)
{
    REQUIRE(module.Export<decltype(::StopWorkingThread)>("StopWorkingThread")(nAlertType) == VARNEX_OK);
}

void MonitoredModule::StartAndRun(unsigned nAlertType)
{
    Start(nAlertType);
    clock.WaitUntilAllAsleep();
}

void MonitoredModule::StopAndEnd(unsigned nAlertType, unsigned nMaxSeconds)
{
    Stop(nAlertType);
    clock.AdvanceUntilWorkersEnd(nMaxSeconds);
}

bool MonitoredModule::IsStartRefused(unsigned nAlertType)
{
    const std::size_t nBefore = LogFile(tree).Count(1, ExistsLine(nAlertType));
    Start(nAlertType);
    return LogFile(tree).Count(1, ExistsLine(nAlertType)) > nBefore;
}

Lines MonitoredModule::Log() const
{
    const LogFile log(tree);
    Lines lines;
    for (std::size_t i = m_nForgotten; i < log.Lines().size(); ++i)
    {
        const LogLine& line = log.Lines()[i];
        if (!IsForeign(line.text))
        {
            lines.push_back(std::to_string(line.nLevel) + " " + WithoutThreadId(line.text));
        }
    }
    return lines;
}

Lines MonitoredModule::LogOf(const std::string& part) const
{
    Lines lines = Log();
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [&](const std::string& line) { return line.find(part) == std::string::npos; }),
                lines.end());
    return lines;
}

void MonitoredModule::ForgetLog()
{
    m_nForgotten = LogFile(tree).Lines().size();
}

std::string MonitoredModule::Counter(const std::string& name) const
{
    return Utf8FromWide(tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/" + WideFromUtf8(name)).value_or(L""));
}

Lines MonitoredModule::Alerts() const
{
    Lines lines;
    for (const AlertLine& alert : ReadAlertLines(tree))
    {
        lines.push_back(std::to_string(alert.nType) + ";" + std::to_string(alert.nThreshold) + ";" +
                        std::to_string(alert.nValue) + ";" + alert.resource);
    }
    return lines;
}

std::vector<FetchedAlert> FetchAlerts(MonitoredModule& host)
{
    constexpr int nMaxCount = 20;
    constexpr unsigned cchText = 512;
    int anTypes[nMaxCount + 1] = {};
    int anThresholds[nMaxCount + 1] = {};
    int anValues[nMaxCount + 1] = {};
    std::vector<std::wstring> texts(nMaxCount + 1, std::wstring(cchText, L'\0'));
    std::vector<wchar_t*> pointers;
    for (std::wstring& text : texts)
    {
        pointers.push_back(text.data());
    }
    const int nCount = host.module.Export<decltype(::GetAlertRecord)>("GetAlertRecord")(
        anTypes, pointers.data(), cchText, anThresholds, anValues, nMaxCount);
    std::vector<FetchedAlert> alerts;
    for (int i = 0; i < nCount; ++i)
    {
        alerts.push_back({anTypes[i], anThresholds[i], anValues[i], pointers[static_cast<std::size_t>(i)]});
    }
    return alerts;
}

HeldAtUninitialize::HeldAtUninitialize(MonitoredModule& host)
    : m_host(host), m_hGo(CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    REQUIRE(m_hGo != nullptr);
    host.imports.Replace<decltype(::CoUninitialize)>("CoUninitialize",
                                                     [&clock = host.clock, hGo = m_hGo]
                                                     {
                                                         clock.Block(hGo);
                                                         CoUninitialize();
                                                     });
}

HeldAtUninitialize::~HeldAtUninitialize()
{
    LetGo();
    (void)m_host.clock.AdvanceUntil([this] { return m_host.clock.Workers() == 0; }, 600);
    m_host.imports.Restore("CoUninitialize");
    CloseHandle(m_hGo);
}

void HeldAtUninitialize::LetGo()
{
    SetEvent(m_hGo);
}

} // namespace varnex::test
