#include "reporting/TraceSwitch.h"

#include "common/Handles.h"
#include "diag/SPLogger.h"

namespace varnex
{

namespace
{

constexpr wchar_t TRACE_KEY[] = L"SOFTWARE\\Quellmark\\QM Tessary Backup\\Kaltrop\\Trace";
constexpr wchar_t WINDOWS_KEY[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion";

LSTATUS OpenMachineKey(const wchar_t* pwszKey, REGSAM nView, UniqueRegistryKey& key) noexcept
{
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE, pwszKey, 0, KEY_READ | nView, key.Receive());
}

// A 64-bit system has a directory for 32-bit programs besides.
bool Is64BitSystem() noexcept
{
    UniqueRegistryKey key;
    if (OpenMachineKey(WINDOWS_KEY, 0, key) != ERROR_SUCCESS)
    {
        Log()->Level2A("Is64BitSystem: RegOpenKeyEx failed!");
        return false;
    }
    wchar_t wszDirectory[130] = L""; // 260 bytes
    DWORD cbDirectory = sizeof wszDirectory;
    return RegQueryValueExW(key.Get(), L"ProgramFilesDir (x86)", nullptr, nullptr,
                            reinterpret_cast<BYTE*>(wszDirectory), &cbDirectory) == ERROR_SUCCESS &&
           wszDirectory[0] != L'\0';
}

} // namespace

bool NeedToOutputCurrentUtil() noexcept
{
    UniqueRegistryKey key;
    LSTATUS nStatus = OpenMachineKey(TRACE_KEY, Is64BitSystem() ? KEY_WOW64_64KEY : 0, key);
    if (nStatus != ERROR_SUCCESS)
    {
        Log()->Level4A("[NeedToOutputCurrentUtil]failed to open registry (%d)", nStatus);
        return false;
    }
    DWORD dwSwitch = 0;
    DWORD cbSwitch = sizeof dwSwitch;
    nStatus = RegQueryValueExW(key.Get(), L"OutputUtilToFile", nullptr, nullptr, reinterpret_cast<BYTE*>(&dwSwitch),
                               &cbSwitch);
    if (nStatus != ERROR_SUCCESS)
    {
        Log()->Level2A("[NeedToOutputCurrentUtil]failed to query registry value(%d)", nStatus);
        return false;
    }
    return dwSwitch > 0;
}

} // namespace varnex
