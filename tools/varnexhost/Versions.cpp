#include "Versions.h"

#include "ModuleFiles.h"
#include "Text.h"

#include <vector>

#include <windows.h>

namespace varnex::host
{

namespace
{

std::wstring Dotted(DWORD dwMajor, DWORD dwMinor, DWORD dwBuild)
{
    return std::to_wstring(dwMajor) + L"." + std::to_wstring(dwMinor) + L"." + std::to_wstring(dwBuild);
}

// From the file's resources; the module is not loaded for it.
std::wstring FileVersion(const std::filesystem::path& file)
{
    if (!FileExists(file))
    {
        return L"there is no such file";
    }
    DWORD dwIgnored = 0;
    std::vector<BYTE> resource(GetFileVersionInfoSizeW(file.c_str(), &dwIgnored));
    VS_FIXEDFILEINFO* pVersion = nullptr;
    UINT cbVersion = 0;
    if (resource.empty() ||
        !GetFileVersionInfoW(file.c_str(), 0, static_cast<DWORD>(resource.size()), resource.data()) ||
        !VerQueryValueW(resource.data(), L"\\", reinterpret_cast<void**>(&pVersion), &cbVersion))
    {
        return L"the file does not tell: " + SystemErrorText(GetLastError());
    }
    return Dotted(HIWORD(pVersion->dwFileVersionMS), LOWORD(pVersion->dwFileVersionMS),
                  HIWORD(pVersion->dwFileVersionLS));
}

// GetVersionEx answers a program without a manifest with an old version; this one tells what runs.
std::wstring WindowsVersion()
{
    using VersionFunction = LONG(WINAPI*)(OSVERSIONINFOW*);
    const auto pfnVersion = reinterpret_cast<VersionFunction>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    if (pfnVersion == nullptr || pfnVersion(&version) != 0)
    {
        return L"unknown";
    }
    const std::wstring servicePack = version.szCSDVersion;
    return Dotted(version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber) +
           (servicePack.empty() ? L"" : L" " + servicePack);
}

} // namespace

std::wstring VersionLines(const std::filesystem::path& module)
{
    return L"Varnex.dll  " + FileVersion(module) + L"\r\nvarnexhost  " + FromUtf8(VARNEX_VERSION) +
           L"\r\nWindows     " + WindowsVersion() + L"\r\n";
}

} // namespace varnex::host
