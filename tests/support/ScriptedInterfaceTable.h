#pragma once

#include "support/ImportRedirector.h"

#include <windows.h>

#include <memory>
#include <vector>

namespace varnex::test
{

// One call of GetIfTable.
struct InterfaceTableCall
{
    ULONG cbBuffer; // as the caller gave it
    bool bHasBuffer;
    bool bZeroed; // the buffer held nothing else
    bool bSorted;
    DWORD dwStatus;
};

// Stands in for the system's table of network interfaces:
//
//     ScriptedInterfaceTable table(redirector);
//     table.AddRow(2, 1000000000);
//     table.SetOctets(2, 1000, 2000);
//     table.MoveAtEachRead(2, 12500000, 0); // each table handed out shows so much more than the one before
//
// For reads that fail: redirector.FailCall("GetIfTable", 2, FailMode::Once, dwLastError, ERROR_INVALID_DATA).
class ScriptedInterfaceTable
{
public:
    explicit ScriptedInterfaceTable(ImportRedirector& redirector);
    ~ScriptedInterfaceTable();
    ScriptedInterfaceTable(const ScriptedInterfaceTable&) = delete;
    ScriptedInterfaceTable& operator=(const ScriptedInterfaceTable&) = delete;

    // Rows keep the order in which they were added; two may have the same index.
    void AddRow(DWORD dwIndex, DWORD dwSpeed = 0);
    // The first row of that index; there must be one.
    void SetOctets(DWORD dwIndex, DWORD dwIn, DWORD dwOut);
    void MoveAtEachRead(DWORD dwIndex, DWORD dwIn, DWORD dwOut);
    void RemoveRows();

    std::vector<InterfaceTableCall> Calls() const;
    void ForgetCalls();

private:
    struct State;
    std::shared_ptr<State> m_state;
    RestoredImports m_imports;
};

} // namespace varnex::test
