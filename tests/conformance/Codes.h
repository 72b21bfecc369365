#pragma once

#include <windows.h>

#include <pdh.h>

#include <string>

namespace varnex::test
{

// The names of statuses, as answers tell them; hexadecimal digits for one that has no name here.
std::string ErrorName(DWORD dwError);
std::string ResultName(HRESULT nResult);
std::string CounterStatusName(PDH_STATUS nStatus);
std::string WaitName(DWORD dwResult);

// "TRUE", or "FALSE, " and the last error, which is read before anything else.
std::string Outcome(BOOL bResult);
// "a handle" or the last error; "a handle, ERROR_ALREADY_EXISTS" when the object was there.
std::string HandleOutcome(HANDLE hObject);

} // namespace varnex::test
