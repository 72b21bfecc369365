#include "HostileObject.h"

#include <catch2/catch.hpp>

#include <sddl.h>

namespace varnex::test
{

namespace
{

HANDLE Make(HostileObject::Kind kind, SECURITY_ATTRIBUTES* pSecurity, const wchar_t* pwszName)
{
    switch (kind)
    {
    case HostileObject::Kind::Event:
        return CreateEventW(pSecurity, FALSE, FALSE, pwszName);
    case HostileObject::Kind::Mutex:
        return CreateMutexW(pSecurity, FALSE, pwszName);
    case HostileObject::Kind::Semaphore:
        return CreateSemaphoreW(pSecurity, 1, 1, pwszName);
    case HostileObject::Kind::Timer:
        return CreateWaitableTimerW(pSecurity, TRUE, pwszName);
    default:
        return CreateFileMappingW(INVALID_HANDLE_VALUE, pSecurity, PAGE_READWRITE, 0, 65'536, pwszName);
    }
}

} // namespace

HostileObject::HostileObject(Kind kind, const std::wstring& name, const char* pszAccess)
{
    SECURITY_ATTRIBUTES security{sizeof security, nullptr, FALSE};
    if (pszAccess != nullptr)
    {
        REQUIRE(ConvertStringSecurityDescriptorToSecurityDescriptorA(pszAccess, SDDL_REVISION_1,
                                                                     &security.lpSecurityDescriptor, nullptr));
    }
    m_object.Reset(Make(kind, pszAccess != nullptr ? &security : nullptr, name.c_str()));
    const DWORD dwError = GetLastError();
    LocalFree(security.lpSecurityDescriptor);
    REQUIRE(m_object);
    REQUIRE(dwError != ERROR_ALREADY_EXISTS);
}

const char* TextOf(HostileObject::Kind kind)
{
    static const char* const TEXTS[] = {"event", "mutex", "semaphore", "timer", "section"};
    return TEXTS[static_cast<std::size_t>(kind)];
}

std::vector<std::wstring> LogMutexNames(int nSeconds)
{
    std::vector<std::wstring> names;
    ULARGE_INTEGER nTime;
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    nTime.LowPart = time.dwLowDateTime;
    nTime.HighPart = time.dwHighDateTime;
    for (int i = 0; i < nSeconds; ++i, nTime.QuadPart += 10'000'000)
    {
        time = {nTime.LowPart, nTime.HighPart};
        SYSTEMTIME utc;
        SYSTEMTIME local;
        REQUIRE(FileTimeToSystemTime(&time, &utc));
        REQUIRE(SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local));
        wchar_t wszName[64];
        _snwprintf(wszName, 64, L"SPLogger_%04d%02d%02d%02d%02d%02d", local.wYear, local.wMonth, local.wDay,
                   local.wHour, local.wMinute, local.wSecond);
        names.emplace_back(wszName);
    }
    return names;
}

} // namespace varnex::test
