#include "support/TraceRegistry.h"

#include "common/Locks.h"
#include "support/ScriptScope.h"

#include <cstring>

namespace varnex::test
{

namespace
{

constexpr wchar_t TRACE_KEY[] = L"SOFTWARE\\Quellmark\\QM Tessary Backup\\Kaltrop\\Trace";
constexpr wchar_t WINDOWS_KEY[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion";

const HKEY TRACE_HANDLE = reinterpret_cast<HKEY>(0x1111);
const HKEY WINDOWS_HANDLE = reinterpret_cast<HKEY>(0x2222);

} // namespace

struct TraceRegistry::State
{
    SlimLock lock;
    bool bTraceKey = false;
    bool bWindowsKey = true;
    std::optional<DWORD> trace;
    std::optional<std::wstring> directory = L"C:\\Programs";
    std::vector<Opened> opened;
    long nLive = 0;
    int nWrong = 0;

    LSTATUS Open(HKEY hRoot, LPCWSTR pwszKey, DWORD dwOptions, REGSAM nAccess, PHKEY phKey)
    {
        const SlimLockHold hold(lock);
        nWrong += hRoot == HKEY_LOCAL_MACHINE && dwOptions == 0 ? 0 : 1;
        opened.push_back({pwszKey, nAccess});
        const bool bTrace = _wcsicmp(pwszKey, TRACE_KEY) == 0;
        nWrong += bTrace || _wcsicmp(pwszKey, WINDOWS_KEY) == 0 ? 0 : 1;
        if (!(bTrace ? bTraceKey : bWindowsKey))
        {
            return ERROR_FILE_NOT_FOUND;
        }
        *phKey = bTrace ? TRACE_HANDLE : WINDOWS_HANDLE;
        ++nLive;
        return ERROR_SUCCESS;
    }
    static LSTATUS Give(const void* pData, std::size_t cbData, BYTE* pTarget, DWORD* pcbTarget)
    {
        const bool bFits = pTarget == nullptr || *pcbTarget >= cbData;
        *pcbTarget = static_cast<DWORD>(cbData);
        if (!bFits)
        {
            return ERROR_MORE_DATA;
        }
        if (pTarget != nullptr)
        {
            std::memcpy(pTarget, pData, cbData);
        }
        return ERROR_SUCCESS;
    }
    LSTATUS Query(HKEY hKey, LPCWSTR pwszValue, DWORD* pdwType, BYTE* pTarget, DWORD* pcbTarget)
    {
        const SlimLockHold hold(lock);
        DWORD dwIgnored = 0;
        DWORD& dwType = pdwType != nullptr ? *pdwType : dwIgnored;
        if (hKey == TRACE_HANDLE && _wcsicmp(pwszValue, L"OutputUtilToFile") == 0 && trace)
        {
            dwType = REG_DWORD;
            nWrong += *pcbTarget == 4 ? 0 : 1;
            return Give(&*trace, sizeof *trace, pTarget, pcbTarget);
        }
        if (hKey == WINDOWS_HANDLE && _wcsicmp(pwszValue, L"ProgramFilesDir (x86)") == 0 && directory)
        {
            dwType = REG_SZ;
            nWrong += *pcbTarget == 260 ? 0 : 1;
            return Give(directory->c_str(), (directory->size() + 1) * sizeof(wchar_t), pTarget, pcbTarget);
        }
        return ERROR_FILE_NOT_FOUND;
    }
    template <class Change>
    void Set(Change change)
    {
        const UnscriptedScope unscripted;
        const SlimLockHold hold(lock);
        change(*this);
    }
};

TraceRegistry::TraceRegistry(ImportRedirector& redirector) : m_state(std::make_shared<State>()), m_imports(redirector)
{
    m_imports.Replace<decltype(::RegOpenKeyExW)>(
        "RegOpenKeyExW", [state = m_state](HKEY hRoot, LPCWSTR pwszKey, DWORD dwOptions, REGSAM nAccess, PHKEY phKey)
        { return state->Open(hRoot, pwszKey, dwOptions, nAccess, phKey); });
    m_imports.Replace<decltype(::RegQueryValueExW)>(
        "RegQueryValueExW",
        [state = m_state](HKEY hKey, LPCWSTR pwszValue, LPDWORD, LPDWORD pdwType, LPBYTE pData, LPDWORD pcbData)
        { return state->Query(hKey, pwszValue, pdwType, pData, pcbData); });
    m_imports.Replace<decltype(::RegCloseKey)>("RegCloseKey",
                                               [state = m_state](HKEY) -> LSTATUS
                                               {
                                                   state->Set([](State& s) { --s.nLive; });
                                                   return ERROR_SUCCESS;
                                               });
}

TraceRegistry::~TraceRegistry() = default;

void TraceRegistry::SetSwitch(DWORD dwSwitch)
{
    m_state->Set(
        [=](State& state)
        {
            state.bTraceKey = true;
            state.trace = dwSwitch;
        });
}

void TraceRegistry::RemoveSwitch()
{
    m_state->Set(
        [](State& state)
        {
            state.bTraceKey = true;
            state.trace.reset();
        });
}

void TraceRegistry::RemoveKey()
{
    m_state->Set([](State& state) { state.bTraceKey = false; });
}

void TraceRegistry::SetProgramsDirectory(const std::optional<std::wstring>& directory)
{
    m_state->Set([&](State& state) { state.directory = directory; });
}

void TraceRegistry::RemoveWindowsKey()
{
    m_state->Set([](State& state) { state.bWindowsKey = false; });
}

std::vector<TraceRegistry::Opened> TraceRegistry::OpenedKeys() const
{
    std::vector<Opened> opened;
    m_state->Set([&](const State& state) { opened = state.opened; });
    return opened;
}

void TraceRegistry::ForgetOpenedKeys()
{
    m_state->Set([](State& state) { state.opened.clear(); });
}

long TraceRegistry::LiveKeys() const
{
    long nLive = 0;
    m_state->Set([&](const State& state) { nLive = state.nLive; });
    return nLive;
}

int TraceRegistry::WrongCalls() const
{
    int nWrong = 0;
    m_state->Set([&](const State& state) { nWrong = state.nWrong; });
    return nWrong;
}

} // namespace varnex::test
