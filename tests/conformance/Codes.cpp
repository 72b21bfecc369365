#include "Codes.h"

#include "support/ScriptScope.h"

#include <pdhmsg.h>
#include <wbemidl.h>

#include <cstdio>
#include <map>

namespace varnex::test
{

namespace
{

using Names = std::map<DWORD, const char*>;

#define VARNEX_CODE(name)                                                                                              \
    {                                                                                                                  \
        static_cast<DWORD>(name), #name                                                                                \
    }

const Names& Errors()
{
    static const Names names = {VARNEX_CODE(ERROR_SUCCESS),           VARNEX_CODE(ERROR_INVALID_FUNCTION),
                                VARNEX_CODE(ERROR_FILE_NOT_FOUND),    VARNEX_CODE(ERROR_PATH_NOT_FOUND),
                                VARNEX_CODE(ERROR_ACCESS_DENIED),     VARNEX_CODE(ERROR_INVALID_HANDLE),
                                VARNEX_CODE(ERROR_SHARING_VIOLATION), VARNEX_CODE(ERROR_LOCK_VIOLATION),
                                VARNEX_CODE(ERROR_FILE_EXISTS),       VARNEX_CODE(ERROR_INVALID_PARAMETER),
                                VARNEX_CODE(ERROR_DISK_FULL),         VARNEX_CODE(ERROR_INSUFFICIENT_BUFFER),
                                VARNEX_CODE(ERROR_INVALID_NAME),      VARNEX_CODE(ERROR_MOD_NOT_FOUND),
                                VARNEX_CODE(ERROR_PROC_NOT_FOUND),    VARNEX_CODE(ERROR_NEGATIVE_SEEK),
                                VARNEX_CODE(ERROR_ALREADY_EXISTS),    VARNEX_CODE(ERROR_FILENAME_EXCED_RANGE),
                                VARNEX_CODE(ERROR_MORE_DATA),         VARNEX_CODE(ERROR_NOT_OWNER),
                                VARNEX_CODE(ERROR_INVALID_ADDRESS),   VARNEX_CODE(ERROR_FILE_INVALID),
                                VARNEX_CODE(ERROR_NOACCESS)};
    return names;
}

const Names& Results()
{
    static const Names names = {VARNEX_CODE(S_OK),
                                VARNEX_CODE(S_FALSE),
                                VARNEX_CODE(E_FAIL),
                                VARNEX_CODE(E_INVALIDARG),
                                VARNEX_CODE(E_ACCESSDENIED),
                                VARNEX_CODE(E_NOINTERFACE),
                                VARNEX_CODE(CO_E_NOTINITIALIZED),
                                VARNEX_CODE(RPC_E_CHANGED_MODE),
                                VARNEX_CODE(REGDB_E_CLASSNOTREG),
                                VARNEX_CODE(WBEM_E_FAILED),
                                VARNEX_CODE(WBEM_E_NOT_FOUND),
                                VARNEX_CODE(WBEM_E_INVALID_PARAMETER),
                                VARNEX_CODE(WBEM_E_INVALID_NAMESPACE),
                                VARNEX_CODE(WBEM_E_INVALID_CLASS),
                                VARNEX_CODE(WBEM_E_INVALID_QUERY),
                                VARNEX_CODE(WBEM_E_INVALID_QUERY_TYPE)};
    return names;
}

const Names& CounterStatuses()
{
    static const Names names = {VARNEX_CODE(ERROR_SUCCESS),
                                VARNEX_CODE(PDH_CSTATUS_NO_MACHINE),
                                VARNEX_CODE(PDH_CSTATUS_NO_INSTANCE),
                                VARNEX_CODE(PDH_MORE_DATA),
                                VARNEX_CODE(PDH_NO_DATA),
                                VARNEX_CODE(PDH_CSTATUS_NO_OBJECT),
                                VARNEX_CODE(PDH_CSTATUS_NO_COUNTER),
                                VARNEX_CODE(PDH_CSTATUS_INVALID_DATA),
                                VARNEX_CODE(PDH_INVALID_HANDLE),
                                VARNEX_CODE(PDH_INVALID_ARGUMENT),
                                VARNEX_CODE(PDH_CSTATUS_NO_COUNTERNAME),
                                VARNEX_CODE(PDH_CSTATUS_BAD_COUNTERNAME),
                                VARNEX_CODE(PDH_INVALID_DATA),
                                VARNEX_CODE(PDH_NOT_IMPLEMENTED)};
    return names;
}

const Names& Waits()
{
    static const Names names = {VARNEX_CODE(WAIT_OBJECT_0), VARNEX_CODE(WAIT_ABANDONED), VARNEX_CODE(WAIT_TIMEOUT),
                                VARNEX_CODE(WAIT_FAILED)};
    return names;
}

#undef VARNEX_CODE

std::string NameIn(const Names& names, DWORD dwCode)
{
    const auto found = names.find(dwCode);
    if (found != names.end())
    {
        return found->second;
    }
    char szCode[16];
    std::snprintf(szCode, sizeof szCode, "0x%08lX", dwCode);
    return szCode;
}

} // namespace

std::string ErrorName(DWORD dwError)
{
    return NameIn(Errors(), dwError);
}

std::string ResultName(HRESULT nResult)
{
    return NameIn(Results(), static_cast<DWORD>(nResult));
}

std::string CounterStatusName(PDH_STATUS nStatus)
{
    return NameIn(CounterStatuses(), static_cast<DWORD>(nStatus));
}

std::string WaitName(DWORD dwResult)
{
    return NameIn(Waits(), dwResult);
}

std::string Outcome(BOOL bResult)
{
    const DWORD dwError = GetLastError();
    return bResult != FALSE ? "TRUE" : "FALSE, " + ErrorName(dwError);
}

std::string HandleOutcome(HANDLE hObject)
{
    const DWORD dwError = GetLastError();
    if (hObject == nullptr || hObject == INVALID_HANDLE_VALUE)
    {
        return "no handle, " + ErrorName(dwError);
    }
    return dwError == ERROR_ALREADY_EXISTS ? "a handle, ERROR_ALREADY_EXISTS" : "a handle";
}

} // namespace varnex::test
