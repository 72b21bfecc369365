#include "support/ImportRedirector.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <cstring>
#include <utility>

namespace varnex::test
{

namespace
{

bool IsNamed(const Import& import, const char* pszImport)
{
    const char* pszName = std::strchr(pszImport, '!');
    if (pszName == nullptr)
    {
        return import.name == pszImport;
    }
    const std::string dll(pszImport, pszName);
    return import.name == pszName + 1 && _stricmp(import.dll.c_str(), dll.c_str()) == 0;
}

} // namespace

ImportRedirector::ImportRedirector(HMODULE hModule) : m_hModule(hModule)
{
    const UnscriptedScope unscripted;
    for (Import& import : ReadImports(hModule))
    {
        m_slots.push_back({std::move(import), nullptr});
    }
}

ImportRedirector::~ImportRedirector()
{
    const UnscriptedScope unscripted;
    for (Slot& slot : m_slots)
    {
        Disengage(slot);
    }
    for (const std::string& text : TakeScriptTroubles())
    {
        try
        {
            FAIL_CHECK("A script threw: " << text);
        }
        catch (...)
        {
            // With the option to stop at a failure, Catch throws even here; it has noted the failure before.
        }
    }
}

CallGate& ImportRedirector::Gate(const char* pszImport)
{
    const UnscriptedScope unscripted;
    Slot* pSlot = Find(pszImport);
    if (pSlot == nullptr)
    {
        FAIL("The module does not import " << pszImport << ", so nothing can answer for it");
    }
    return Engage(*pSlot);
}

CallGate& ImportRedirector::Engage(Slot& slot)
{
    if (slot.pGate == nullptr)
    {
        slot.pGate = &CallGate::Take(*slot.import.ppSlot);
        WriteImportSlot(slot.import.ppSlot, slot.pGate->Code());
    }
    return *slot.pGate;
}

void ImportRedirector::Disengage(Slot& slot) noexcept
{
    if (slot.pGate == nullptr)
    {
        return;
    }
    CallGate& gate = *std::exchange(slot.pGate, nullptr);
    // The slot is not ours any more when the module was loaded anew at the same place, or when somebody redirected it
    // after us and will write our gate's address back: that gate stays out of the pool, open for good.
    if (!IsModuleLoaded())
    {
        gate.GiveBack();
    }
    else if (*slot.import.ppSlot == gate.Code())
    {
        WriteImportSlot(slot.import.ppSlot, gate.Original());
        gate.GiveBack();
    }
    else
    {
        gate.ClearFailure();
        gate.ClearScript();
    }
}

ImportRedirector::Slot* ImportRedirector::Find(const char* pszImport) noexcept
{
    const auto found =
        std::find_if(m_slots.begin(), m_slots.end(), [&](const Slot& slot) { return IsNamed(slot.import, pszImport); });
    return found == m_slots.end() ? nullptr : &*found;
}

bool ImportRedirector::IsModuleLoaded() const noexcept
{
    HMODULE hFound = nullptr;
    return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                              reinterpret_cast<LPCWSTR>(m_hModule), &hFound) != FALSE &&
           hFound == m_hModule;
}

void ImportRedirector::FailCall(const char* pszImport, ULONGLONG ullCall, FailMode mode, DWORD dwLastError,
                                ULONGLONG ullResult)
{
    FailCall(pszImport, ullCall, mode, CallFailure{dwLastError, ullResult, false});
}

void ImportRedirector::FailCall(const char* pszImport, ULONGLONG ullCall, FailMode mode, const CallFailure& failure)
{
    Gate(pszImport).SetFailure(ullCall, mode, failure);
}

void ImportRedirector::StopFailing(const char* pszImport)
{
    Gate(pszImport).ClearFailure();
}

ULONGLONG ImportRedirector::Failures(const char* pszImport)
{
    return Gate(pszImport).Failures();
}

void ImportRedirector::CountCalls(const char* pszImport)
{
    Gate(pszImport);
}

void ImportRedirector::CountEveryCall()
{
    const UnscriptedScope unscripted;
    for (Slot& slot : m_slots)
    {
        Engage(slot);
    }
}

ULONGLONG ImportRedirector::Calls(const char* pszImport)
{
    return Gate(pszImport).Calls();
}

std::map<std::string, ULONGLONG> ImportRedirector::CallCounts() const
{
    const UnscriptedScope unscripted;
    std::map<std::string, ULONGLONG> counts;
    for (const Slot& slot : m_slots)
    {
        if (slot.pGate != nullptr && slot.pGate->Calls() != 0)
        {
            counts[slot.import.name] += slot.pGate->Calls();
        }
    }
    return counts;
}

void ImportRedirector::Restore(const char* pszImport) noexcept
{
    const UnscriptedScope unscripted;
    Slot* pSlot = Find(pszImport);
    if (pSlot != nullptr)
    {
        Disengage(*pSlot);
    }
}

bool ImportRedirector::Has(const char* pszImport) const
{
    const UnscriptedScope unscripted;
    return std::any_of(m_slots.begin(), m_slots.end(),
                       [&](const Slot& slot) { return IsNamed(slot.import, pszImport); });
}

std::vector<std::string> ImportRedirector::Names() const
{
    const UnscriptedScope unscripted;
    std::vector<std::string> names;
    for (const Slot& slot : m_slots)
    {
        names.push_back(slot.import.name);
    }
    return names;
}

RestoredImports::~RestoredImports()
{
    for (const std::string& name : m_names)
    {
        m_redirector.Restore(name.c_str());
    }
}

} // namespace varnex::test
