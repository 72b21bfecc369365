#pragma once

#include <windows.h>

namespace varnex::test
{

// A shorter wait than Sleep knows, in which the others run.
inline void WaitMicroseconds(LONGLONG nMicroseconds)
{
    LARGE_INTEGER nFrequency;
    LARGE_INTEGER nBegin;
    LARGE_INTEGER nNow;
    QueryPerformanceFrequency(&nFrequency);
    QueryPerformanceCounter(&nBegin);
    do
    {
        Sleep(0);
        QueryPerformanceCounter(&nNow);
    } while ((nNow.QuadPart - nBegin.QuadPart) * 1'000'000 / nFrequency.QuadPart < nMicroseconds);
}

} // namespace varnex::test
