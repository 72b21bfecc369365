// The registry, as far as the trace switch reads it.

#include "Codes.h"
#include "Conformance.h"

#include "common/Handles.h"
#include "support/TraceRegistry.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

constexpr wchar_t WINDOWS_KEY[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion";
constexpr wchar_t TRACE_KEY[] = L"SOFTWARE\\Quellmark\\QM Tessary Backup\\Kaltrop\\Trace";

Fakes RegistryFakes()
{
    return {FakeOf<TraceRegistry>("scripted registry")};
}

UniqueRegistryKey OpenWindowsKey()
{
    UniqueRegistryKey key;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, WINDOWS_KEY, 0, KEY_READ, key.Receive());
    return key;
}

const std::string OPEN_PAGE = "windows/win32/api/winreg/nf-winreg-regopenkeyexw";
const std::string QUERY_PAGE = "windows/win32/api/winreg/nf-winreg-regqueryvalueexw";

} // namespace

TEST_CASE("registry: a key that is not there is told as such")
{
    Verify(
        Documented("ERROR_FILE_NOT_FOUND", OPEN_PAGE),
        []
        {
            UniqueRegistryKey key;
            return ErrorName(static_cast<DWORD>(
                RegOpenKeyExW(HKEY_LOCAL_MACHINE, TRACE_KEY, 0, KEY_READ | KEY_WOW64_64KEY, key.Receive())));
        },
        RegistryFakes());
}

TEST_CASE("registry: a value that is not there is told as such")
{
    Verify(
        Documented("ERROR_FILE_NOT_FOUND", QUERY_PAGE),
        []
        {
            const UniqueRegistryKey key = OpenWindowsKey();
            DWORD dwValue = 0;
            DWORD cbValue = sizeof dwValue;
            return ErrorName(static_cast<DWORD>(RegQueryValueExW(key.Get(), L"NoSuchValue", nullptr, nullptr,
                                                                 reinterpret_cast<BYTE*>(&dwValue), &cbValue)));
        },
        RegistryFakes());
}

TEST_CASE("registry: a value that does not fit is told with its size")
{
    Verify(
        Documented("ERROR_MORE_DATA, a size", QUERY_PAGE),
        []
        {
            const UniqueRegistryKey key = OpenWindowsKey();
            BYTE abValue[2] = {};
            DWORD cbValue = sizeof abValue;
            const LSTATUS nStatus =
                RegQueryValueExW(key.Get(), L"ProgramFilesDir (x86)", nullptr, nullptr, abValue, &cbValue);
            return ErrorName(static_cast<DWORD>(nStatus)) + (cbValue > sizeof abValue ? ", a size" : ", no size");
        },
        RegistryFakes());
}

TEST_CASE("registry: the size of a value is asked for without a buffer")
{
    Verify(
        Documented("ERROR_SUCCESS, a size", QUERY_PAGE),
        []
        {
            const UniqueRegistryKey key = OpenWindowsKey();
            DWORD cbValue = 0;
            const LSTATUS nStatus =
                RegQueryValueExW(key.Get(), L"ProgramFilesDir (x86)", nullptr, nullptr, nullptr, &cbValue);
            return ErrorName(static_cast<DWORD>(nStatus)) + (cbValue > 2 ? ", a size" : ", no size");
        },
        RegistryFakes());
}

TEST_CASE("registry: names of keys and values are found without regard to case")
{
    Verify(
        Documented("ERROR_SUCCESS, ERROR_SUCCESS", "windows/win32/sysinfo/structure-of-the-registry"),
        []
        {
            UniqueRegistryKey key;
            const LSTATUS nOpened = RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"software\\MICROSOFT\\windows\\currentversion",
                                                  0, KEY_READ, key.Receive());
            BYTE abValue[1000];
            DWORD cbValue = sizeof abValue;
            const LSTATUS nRead =
                RegQueryValueExW(key.Get(), L"PROGRAMFILESDIR (x86)", nullptr, nullptr, abValue, &cbValue);
            return ErrorName(static_cast<DWORD>(nOpened)) + ", " + ErrorName(static_cast<DWORD>(nRead));
        },
        RegistryFakes());
}

TEST_CASE("registry: a value tells its type")
{
    Verify(
        Documented("REG_SZ", QUERY_PAGE),
        []
        {
            const UniqueRegistryKey key = OpenWindowsKey();
            DWORD dwType = 99;
            BYTE abValue[1000];
            DWORD cbValue = sizeof abValue;
            RegQueryValueExW(key.Get(), L"ProgramFilesDir (x86)", nullptr, &dwType, abValue, &cbValue);
            return dwType == REG_SZ ? std::string("REG_SZ") : std::to_string(dwType);
        },
        RegistryFakes());
}

} // namespace varnex::test
