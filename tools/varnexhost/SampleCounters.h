#pragma once

#include "common/Handles.h"
#include "sampling/CounterNames.h"

#include <cstdint>
#include <string>
#include <vector>

namespace varnex::host
{

// Measurements by performance counters take seconds where there is nothing to measure, so each of them is made on a
// thread of its own: a machine of many disks takes no longer than one of few.

struct ProcessorReading
{
    std::wstring instance;
    std::wstring path;
    int nPercent = -1;
    DWORD dwStatus = ERROR_SUCCESS; // why it is not to be believed

    void Take() noexcept;
};

struct DiskReading
{
    std::string instance; // as the module asks for it
    std::wstring path;
    std::int64_t nBytesPerSecond = -1;
    DWORD dwStatus = ERROR_SUCCESS;

    void Take() noexcept;
};

// The path of an instance's counter, "\Processor(0)\% Processor Time".
std::wstring CounterPath(CounterRole object, const std::wstring& instance, CounterRole counter);

template <class Reading>
DWORD WINAPI TakeOne(void* pReading) noexcept
{
    static_cast<Reading*>(pReading)->Take();
    return 0;
}

// All at once; where no thread is to be had, one after the other.
template <class Reading>
void TakeAll(std::vector<Reading>& readings)
{
    std::vector<UniqueHandle> threads(readings.size());
    for (std::size_t i = 0; i < readings.size(); ++i)
    {
        threads[i] = UniqueHandle(CreateThread(nullptr, 0, TakeOne<Reading>, &readings[i], 0, nullptr));
        if (!threads[i])
        {
            readings[i].Take();
        }
    }
    for (const UniqueHandle& thread : threads)
    {
        if (thread)
        {
            WaitForSingleObject(thread.Get(), INFINITE);
        }
    }
}

} // namespace varnex::host
