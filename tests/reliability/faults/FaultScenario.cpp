#include "FaultScenario.h"

#include "ImportFaults.h"

#include "common/Com.h"
#include "support/AlertLines.h"
#include "support/ConfigBuilder.h"
#include "support/HostAgent.h"
#include "support/ScriptScope.h"
#include "support/TestFiles.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <msxml2.h>

#include <array>
#include <cstring>
#include <memory>

namespace varnex::test
{

namespace
{

constexpr unsigned WORK_SECONDS = 5; // three samples of each monitor: the network one's take a second each
constexpr int THRESHOLD = 50;        // of all policies
constexpr unsigned REPORT_SECONDS = 30;

ConfigBuilder FaultConfig(int nLogLevel)
{
    return ConfigBuilder()
        .SetPolicy("CPU", 2, THRESHOLD, 3, 5)
        .SetPolicy("Memory", 2, THRESHOLD, 3, 5)
        .SetPolicy("Disk", 2, THRESHOLD, 3, 5)
        .Set("NetworkInterval", 1)
        .Set("NetworkThreshold", THRESHOLD)
        .Set("NetworkSamplingAmount", 3) // and no maximum: that is told by a line of wide characters
        .SetLogLevel(nLogLevel)
        .SetCounter("Date", "2026-01-30"); // the first alert begins a new day
}

int DefaultThreshold(int nAlertType)
{
    static const std::array<int, 6> defaults = {0, 85, 85, 50, 60, 85};
    return defaults.at(static_cast<std::size_t>(nAlertType));
}

const char* NameOfDomMethod(DomMethod method)
{
    static const std::array<const char*, DOM_METHODS> names = {"IXMLDOMDocument::QueryInterface",
                                                               "IXMLDOMDocument::load",
                                                               "IXMLDOMDocument::selectSingleNode",
                                                               "IXMLDOMDocument::get_documentElement",
                                                               "IXMLDOMDocument::createNode",
                                                               "IXMLDOMDocument::appendChild",
                                                               "IXMLDOMElement::appendChild",
                                                               "IXMLDOMElement::get_text",
                                                               "IXMLDOMElement::put_text",
                                                               "IXMLDOMDocument::get_readyState",
                                                               "IXMLDOMDocument::get_parseError",
                                                               "IXMLDOMParseError::get_errorCode",
                                                               "IXMLDOMDocument::abort",
                                                               "IXMLDOMDocument::get_xml",
                                                               "IXMLDOMElement::get_attributes",
                                                               "IXMLDOMAttribute::put_text",
                                                               "IXMLDOMNamedNodeMap::setNamedItem"};
    return names.at(static_cast<std::size_t>(method));
}

// A document's own way to a file leads through monikers and a window, and took most of a life's time. This one hands the
// file's bytes over; what the module sees is the same.
HRESULT LoadBytes(IXMLDOMDocument* pDocument, const VARIANT& path, VARIANT_BOOL* pbLoaded)
{
    const std::string bytes = ReadFileBytes(path.bstrVal);
    ScopedVariant source;
    VARIANT* const pSource = source.Receive();
    pSource->parray = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
    pSource->vt = VT_ARRAY | VT_UI1;
    std::memcpy(pSource->parray->pvData, bytes.data(), bytes.size());
    return pDocument->load(source.Get(), pbLoaded);
}

bool EventExists(const wchar_t* pwszName, const std::wstring& key)
{
    return static_cast<bool>(UniqueHandle(OpenEventW(EVENT_ALL_ACCESS, FALSE, PrivateName(pwszName, key).c_str())));
}

bool CanAsk(const std::wstring& key)
{
    const UnscriptedScope unscripted;
    const UniqueHandle section(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, PrivateName(SECTION_NAME, key).c_str()));
    return section && EventExists(BEGIN_NAME, key) && EventExists(FINISH_NAME, key);
}

} // namespace

FaultScenario::ReadyTree::ReadyTree(int nLogLevel)
{
    // The build leaves a copy without debug information.
    const std::wstring lean = ProgramDirectory() + L"\\reliability_faults\\Varnex.dll";
    const bool bOther = GetEnvironmentVariableW(L"VARNEX_DLL_PATH", nullptr, 0) != 0;
    if (bOther || !FileExists(lean))
    {
        CopyModule();
    }
    else
    {
        CopyModule(lean);
    }
    WriteConfig(FaultConfig(nLogLevel));
}

FaultScenario::FaultScenario(int nLogLevel)
    : tree(nLogLevel), module(tree, LoadedModule::Start::Later), imports(module.Handle()), handles(imports),
      mutexes(imports), names(imports, MakePrivateKey()), registry(imports), clock(imports), exports(imports),
      memory(exports), cpu(exports), pdh(imports), wmi(imports), table(imports),
      wmiMethods((wmi.SetObjects({WmiAdapter(L"Card", 2, WmiText(L"1000000000"))}), module.Handle())),
      m_nLogLevel(nLogLevel)
{
    dom.Replace<HRESULT(IXMLDOMDocument*, VARIANT, VARIANT_BOOL*)>(DomMethod::Load, LoadBytes);
    // The disk itself is not at stake, and waiting for it costs more than all else that a save does.
    imports.Replace<decltype(::FlushFileBuffers)>("FlushFileBuffers", [](HANDLE) -> BOOL { return TRUE; });
    registry.SetSwitch(1);
    cpu.Restart();
    cpu.SetUtilization(90);
    memory.SetUtilization(90, 90);
    pdh.SetInstances(L"Processor", {L"0", L"_Total"});
    pdh.SetValue(L"\\Processor(0)\\% Processor Time", 42.0);
    pdh.SetInstances(L"PhysicalDisk", {L"0 C:", L"_Total"});
    pdh.SetValue(L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec", 100.0 * 1024 * 1024);
    table.AddRow(2);
    table.SetOctets(2, 1, 1);
    table.MoveAtEachRead(2, 112'500'000, 0); // nine tenths of the link
}

std::vector<FaultTarget> FaultScenario::Targets()
{
    std::vector<FaultTarget> targets = ImportTargets(imports);
    targets.push_back(handles.CloseTarget());
    for (const char* pszExport : EXPORTS_LOOKED_UP)
    {
        targets.push_back({pszExport,
                           [this, pszExport](ULONGLONG ullCall, FailMode mode)
                           { exports.FailCall(pszExport, ullCall, mode, ERROR_NOT_SUPPORTED); },
                           [this, pszExport] { return exports.Calls(pszExport); },
                           [this, pszExport] { return exports.Failures(pszExport); }});
    }
    for (const FaultTarget& target : wmiMethods.Targets())
    {
        targets.push_back(target);
    }
    for (std::size_t i = 0; i < DOM_METHODS; ++i)
    {
        const auto method = static_cast<DomMethod>(i);
        targets.push_back(
            {NameOfDomMethod(method),
             [this, method](ULONGLONG ullCall, FailMode mode) { dom.FailCall(method, ullCall, mode, E_FAIL); },
             [this, method] { return dom.Calls(method); }, [this, method] { return dom.Failures(method); }});
    }
    return targets;
}

ScenarioOutcome FaultScenario::Run()
{
    ScenarioOutcome outcome;
    HostCall("load", LOG_MUTEX_SECONDS, [this, &outcome] { outcome.bLoaded = module.Attach(); });
    if (outcome.bLoaded)
    {
        Work(outcome);
        EndWorkers(outcome);
    }
    HostCall("unload", LOG_MUTEX_SECONDS, [this] { CHECK(module.Unload()); });
    outcome.nKept += handles.Kept();
    CheckFiles();
    CheckHoldings();
    return outcome;
}

void FaultScenario::Work(ScenarioOutcome& outcome)
{
    HostCall("StartWorkingThread", CONFIGURATION_SECONDS,
             [this] { module.Export<decltype(::StartWorkingThread)>("StartWorkingThread")(VARNEX_ALERT_ALL); });
    HostCall("StartPKIUtlThread", CONFIGURATION_SECONDS,
             [this] { module.Export<decltype(::StartPKIUtlThread)>("StartPKIUtlThread")(); });
    clock.Advance(WORK_SECONDS);
    outcome.nStored = CountAlerts(L"LocalAlt.dat");
    HostCall("GetAlertRecord", STORE_MUTEX_SECONDS + STORE_FILE_SECONDS,
             [this, &outcome] { outcome.nFetched = Fetch(); });
    outcome.bReport = CanAsk(names.Key()) && AskForReport();
    HostCall("StopWorkingThread", CONFIGURATION_SECONDS,
             [this] { module.Export<decltype(::StopWorkingThread)>("StopWorkingThread")(VARNEX_ALERT_ALL); });
    const ULONGLONG ullForced = imports.Calls("TerminateThread");
    HostCall("StopPKIUtlThread", STOP_SECONDS,
             [this] { module.Export<decltype(::StopPKIUtlThread)>("StopPKIUtlThread")(); });
    // A thread that is ended by force leaves what it had open: the report thread the event that it waits for. Where it
    // waits for a mutex in the middle of a report it has the section open, too, and seldom one thing more.
    const std::size_t nLeftByEach = failing == "ReleaseMutex" && m_nLogLevel > 1 ? 3 : 1;
    outcome.nKept += nLeftByEach * static_cast<std::size_t>(imports.Calls("TerminateThread") - ullForced);
}

void FaultScenario::HostCall(const char* pszName, unsigned nMaxSeconds, const std::function<void()>& call)
{
    const ULONGLONG ullBegan = clock.ElapsedMs();
    call();
    INFO(pszName);
    CHECK((clock.ElapsedMs() - ullBegan) / 1000 <= nMaxSeconds + nMoreSeconds);
}

int FaultScenario::Fetch()
{
    constexpr int nMaxCount = 1; // the rest is rewritten
    constexpr unsigned cchText = 512;
    int anTypes[nMaxCount + 1] = {};
    int anThresholds[nMaxCount + 1] = {};
    int anValues[nMaxCount + 1] = {};
    wchar_t awszTexts[nMaxCount + 1][cchText] = {};
    wchar_t* apwszTexts[nMaxCount + 1] = {awszTexts[0], awszTexts[1]};
    const int nCount = module.Export<decltype(::GetAlertRecord)>("GetAlertRecord")(anTypes, apwszTexts, cchText,
                                                                                   anThresholds, anValues, nMaxCount);
    REQUIRE(nCount <= nMaxCount + 1);
    for (int i = 0; i < nCount; ++i)
    {
        CHECK((anTypes[i] >= 1 && anTypes[i] <= 5));
        // The policy's threshold, or where it could not be read the default one.
        CHECK((anThresholds[i] == THRESHOLD || anThresholds[i] == DefaultThreshold(anTypes[i])));
        CHECK(anValues[i] >= anThresholds[i]);
    }
    return nCount;
}

bool FaultScenario::AskForReport()
{
    const auto agent = std::make_shared<HostAgent>(names.Key());
    // A request that could not be answered, or not be taken back, stays set and is looked at again at once. It is the
    // asking process that ends this: it withdraws what is looked at for the second time.
    const auto looks = std::make_shared<int>(0);
    names.OnAsked(
        [agent, looks](const std::wstring& call)
        {
            if (call == std::wstring(L"OpenEvent ") + BEGIN_NAME && ++*looks > 1)
            {
                agent->ResetBegin();
            }
        });
    agent->Ask(60, 1);
    const bool bFinished = clock.AdvanceUntil([&agent] { return agent->TakeFinish(); }, REPORT_SECONDS);
    names.OnAsked({});
    // Without the finish event the length is whatever Ask left there.
    CHECK((!bFinished || agent->Length() * sizeof(wchar_t) <= SECTION_BYTES - TEXT_OFFSET));
    return bFinished && agent->Length() != 0;
}

void FaultScenario::EndWorkers(ScenarioOutcome& outcome)
{
    const ULONGLONG ullStopped = clock.ElapsedMs();
    clock.AdvanceUntilWorkersEnd(STOP_SECONDS + nMoreSeconds);
    outcome.nSecondsToEnd = static_cast<unsigned>((clock.ElapsedMs() - ullStopped) / 1000);
}

// Reads the whole file and fails the test at the first line that has not its form. One whose end could not be looked at
// is given a line end all the same, and so an empty line.
std::size_t FaultScenario::CountAlerts(const std::wstring& file) const
{
    constexpr char LINE_END[] = "\r\n";
    const UnscriptedScope unscripted;
    std::string bytes = LINE_END + ReadFileBytes(tree.InBin(file));
    if (failing == "ReadFile" || failing == "SetFilePointerEx")
    {
        for (std::size_t n = bytes.find("\r\n\r\n"); n != std::string::npos; n = bytes.find("\r\n\r\n", n))
        {
            bytes.erase(n, std::strlen(LINE_END));
        }
    }
    return ParseAlertLines(bytes.substr(std::strlen(LINE_END))).size();
}

void FaultScenario::CheckFiles() const
{
    const UnscriptedScope unscripted;
    CountAlerts(L"LocalAlt.dat");
    CountAlerts(L"LocalAlt_Backup.dat");
    for (const wchar_t* pwszName : {L"CPUThreshold", L"MemoryThreshold", L"DiskThreshold", L"NetworkThreshold"})
    {
        CHECK(tree.ConfigNode(L"KPMConfiguration/PkiAlert/" + std::wstring(pwszName)) == L"50");
    }
    CHECK(tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/Date").has_value());
}

void FaultScenario::CheckHoldings() const
{
    CHECK(wmi.LiveObjects() == 0);
    // Whoever is refused to give back what he holds cannot but keep it.
    CHECK((failing == "VariantClear" || wmi.LiveTexts() == 0));
    CHECK((failing == "RegCloseKey" || registry.LiveKeys() == 0));
    CHECK(pdh.WrongHandles() == 0); // a counter that was refused is not read: its query has no data
}

} // namespace varnex::test
