#pragma once

#include "diag/SPLogger.h"
#include "entry/AlertReachPKIThread.h"
#include "reporting/UtilizationStores.h"

#include <memory>
#include <new>

namespace varnex
{

// What the samplers of named instances (processors, disks) share besides their loop: the names that they begin with,
// and a cycle's samples. Both run on the sampler's thread.

using SampledNames = InstanceNames<wchar_t>;

// Enumerates the instances and publishes them with empty histories, in place of those of an earlier run. Null, with one
// of the two log lines, when there is none or no memory; and when the store's lock is not to be had.
template <class Sample>
std::shared_ptr<const SampledNames> BeginHistories(NamedHistories<Sample>& store, SampledNames (*pfnEnumerate)(),
                                                   const char* pszNoName, const char* pszNoMemory)
{
    try
    {
        auto names = store.Publish(pfnEnumerate());
        if (names == nullptr || !names->empty())
        {
            return names;
        }
        Log()->Level1A(pszNoName);
    }
    catch (const std::bad_alloc&)
    {
        Log()->Level1A(pszNoMemory);
    }
    return nullptr;
}

// Samples one instance after the other, measuring outside the store's lock. Each sample goes into its history and then
// into a level 4 line, which takes the time stamp, the name and the sample. False for a cycle that is broken off: by a
// stop, because many idle instances take longer than a stop waits, and where the store's lock is not to be had.
template <class Sample>
bool SampleInstances(const CAlertReachPKIThread& worker, NamedHistories<Sample>& store, const SampledNames& names,
                     Sample (*pfnSample)(const wchar_t* pwszName), const wchar_t* pwszLine, const wchar_t* pwszTime)
{
    for (std::size_t i = 0; i < names.size(); ++i)
    {
        if (!worker.IsRunning())
        {
            return false;
        }
        const Sample sample = pfnSample(names[i].get());
        if (!store.Append(i, sample))
        {
            return false;
        }
        Log()->Level4W(pwszLine, pwszTime, names[i].get(), sample);
    }
    return true;
}

} // namespace varnex
