#pragma once

#include "sampling/CounterNames.h"

#include <string>

namespace varnex::host
{

// Something that could not be read, and what an operator can do about it.
struct SampleFault
{
    std::wstring what;
    std::wstring code; // the system's, as its own documents write it; empty where it gave none
    std::wstring text; // the system's sentence for it
    std::wstring remedy;
};

// Where the remedy is the same whatever the code.
enum class PlainFault
{
    ProcessorTimes,
    MemoryStatus,
    InterfaceTable,
};

SampleFault PlainFaultOf(PlainFault kind, std::wstring what, DWORD dwError);

// A performance counter of an object that did not answer, with the status of PDH.
SampleFault CounterFault(CounterRole object, std::wstring what, DWORD dwStatus);
// A performance object that answered without a status: nothing in it, or nothing to be read.
SampleFault EmptyCounterFault(CounterRole object, std::wstring what);

// The list of adapters, with COM's or WMI's status.
SampleFault AdapterListFault(std::wstring what, HRESULT nResult);

// A failure without a code.
SampleFault UncodedFault(std::wstring what, std::wstring remedy);

} // namespace varnex::host
