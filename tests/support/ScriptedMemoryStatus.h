#pragma once

#include "support/ScriptedExports.h"

#include <memory>

namespace varnex::test
{

// Stands in for GlobalMemoryStatusEx:
//
//     ScriptedMemoryStatus memory(exports);
//     memory.SetUtilization(75, 40);      // physical memory, paging file; 10000 MB each
//     memory.SetPhysicalMB(8192, 2048);   // total, available
class ScriptedMemoryStatus
{
public:
    explicit ScriptedMemoryStatus(ScriptedExports& exports);
    ~ScriptedMemoryStatus();
    ScriptedMemoryStatus(const ScriptedMemoryStatus&) = delete;
    ScriptedMemoryStatus& operator=(const ScriptedMemoryStatus&) = delete;

    void SetUtilization(unsigned nPhysicalPercent, unsigned nPagingPercent);
    void SetPhysicalMB(ULONGLONG ullTotal, ULONGLONG ullAvailable);
    void SetPagingMB(ULONGLONG ullTotal, ULONGLONG ullAvailable);
    void SetPhysicalBytes(ULONGLONG ullTotal, ULONGLONG ullAvailable);
    void SetPagingBytes(ULONGLONG ullTotal, ULONGLONG ullAvailable);
    // The status call fails from here on, until the next setting.
    void Fail(DWORD dwLastError);
    // Calls so far, and those among them whose dwLength was not set or whose block was not cleared.
    ULONGLONG Reads() const;
    ULONGLONG BadReads() const;

private:
    struct State;
    ScriptedExports& m_exports;
    std::shared_ptr<State> m_state;
};

} // namespace varnex::test
