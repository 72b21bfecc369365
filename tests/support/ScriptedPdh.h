#pragma once

#include "support/ImportRedirector.h"

#include <windows.h>

#include <pdh.h>

#include <memory>
#include <string>
#include <vector>

namespace varnex::test
{

// One call of the module into pdh.dll, in the order of the calls.
struct PdhCall
{
    std::string function; // "PdhAddCounterW"
    std::wstring subject; // the object of an enumeration, the path of a counter; otherwise empty
    PDH_STATUS status;    // what it answered
};

// Stands in for the performance data helper:
//
//     ScriptedPdh pdh(redirector);
//     pdh.SetInstances(L"Processor", {L"0", L"1", L"_Total"});
//     pdh.SetValue(L"\\Processor(0)\\% Processor Time", 42.0);
//     pdh.QueueValues(L"\\PhysicalDisk(0 C:)\\Disk Bytes/sec", {0.0, 1048576.0}); // these first
//     pdh.QueueStatus("PdhCollectQueryData", {ERROR_SUCCESS, PDH_NO_DATA});       // the second call fails
//
// Both character widths are answered from the same data, narrow texts in the system's code page. What Windows documents
// is kept: an unknown object, an unknown counter and a path that is none are refused, an instance that is not there is
// not; the collection of a query without a counter that has an instance answers PDH_NO_DATA; a value is there from the
// second sample on. Handles are checked: a wrong one, or one that was closed, answers PDH_INVALID_HANDLE and shows up
// in WrongHandles().
class ScriptedPdh
{
public:
    explicit ScriptedPdh(ImportRedirector& redirector);
    ~ScriptedPdh();
    ScriptedPdh(const ScriptedPdh&) = delete;
    ScriptedPdh& operator=(const ScriptedPdh&) = delete;

    // The instances of an object, in the order of the enumeration. An empty list is a success without instances.
    void SetInstances(const std::wstring& object, const std::vector<std::wstring>& instances);
    // What a counter reads, for ever and before that.
    void SetValue(const std::wstring& path, double dValue);
    void QueueValues(const std::wstring& path, const std::vector<double>& values);
    // The next reading of that counter fails with this status; takes its place in the queue of values.
    void QueueReadStatus(const std::wstring& path, PDH_STATUS status);
    // The statuses of the next calls of one function; ERROR_SUCCESS lets the call go its way.
    void QueueStatus(const char* pszFunction, const std::vector<PDH_STATUS>& statuses);
    // Every call of that function from here on; ERROR_SUCCESS ends it.
    void SetStatus(const char* pszFunction, PDH_STATUS status);

    std::vector<PdhCall> Calls() const;
    std::size_t CountCalls(const char* pszFunction) const;
    void ForgetCalls();
    std::size_t OpenQueries() const;
    std::size_t OpenCounters() const;
    std::size_t WrongHandles() const;

private:
    struct State;
    std::shared_ptr<State> m_state;
    RestoredImports m_imports;
};

} // namespace varnex::test
