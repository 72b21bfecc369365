#pragma once

#include <string>

#include <windows.h>

namespace varnex::host
{

// A status of Windows, PDH, COM or WMI for people. A small number is written as Windows writes its errors ("5"), any
// other in hexadecimal with its name where this program knows it ("0xc0000bb8 PDH_CSTATUS_NO_OBJECT").
std::wstring StatusCode(DWORD dwStatus);

// The sentence for it: the system's own, else this program's, else an empty text.
std::wstring StatusText(DWORD dwStatus);

} // namespace varnex::host
