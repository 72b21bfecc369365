// A consumer in C++: what the calls answer that start nothing and fetch nothing.
#include <varnex/Varnex.h>

#include <cstdio>

int main()
{
    std::printf("StartWorkingThread(5) = %d\n", StartWorkingThread(VARNEX_ALERT_PAGING_FILE));
    std::printf("GetAlertRecord(null, ...) = %d\n", GetAlertRecord(nullptr, nullptr, 0, nullptr, nullptr, 1));
    return 0;
}
