#include "support/ScriptedInterfaceTable.h"

#include "common/Locks.h"

#include <winsock2.h>

#include <iphlpapi.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <stdexcept>

namespace varnex::test
{

struct ScriptedInterfaceTable::State
{
    struct Row
    {
        MIB_IFROW row{};
        DWORD dwInStep = 0;
        DWORD dwOutStep = 0;
    };

    SlimLock lock;
    std::vector<Row> rows;
    std::vector<InterfaceTableCall> calls;

    DWORD Answer(MIB_IFTABLE* pTable, ULONG* pcbTable, BOOL bSorted)
    {
        const SlimLockHold hold(lock);
        if (pcbTable == nullptr)
        {
            return ERROR_INVALID_PARAMETER;
        }
        const ULONG cbBuffer = *pcbTable;
        const auto* pBytes = reinterpret_cast<const BYTE*>(pTable);
        const bool bZeroed =
            pTable != nullptr && std::all_of(pBytes, pBytes + cbBuffer, [](BYTE nByte) { return nByte == 0; });
        const auto cbNeeded = static_cast<ULONG>(offsetof(MIB_IFTABLE, table) + rows.size() * sizeof(MIB_IFROW));
        *pcbTable = cbNeeded;
        const DWORD dwStatus =
            pTable != nullptr && cbBuffer >= cbNeeded ? static_cast<DWORD>(NO_ERROR) : ERROR_INSUFFICIENT_BUFFER;
        if (dwStatus == NO_ERROR)
        {
            HandOut(*pTable);
        }
        if (dwStatus == NO_ERROR && bSorted)
        {
            std::sort(pTable->table, pTable->table + pTable->dwNumEntries,
                      [](const MIB_IFROW& first, const MIB_IFROW& second) { return first.dwIndex < second.dwIndex; });
        }
        calls.push_back({cbBuffer, pTable != nullptr, bZeroed, bSorted != FALSE, dwStatus});
        return dwStatus;
    }

    void HandOut(MIB_IFTABLE& table)
    {
        table.dwNumEntries = static_cast<DWORD>(rows.size());
        MIB_IFROW* pTarget = table.table;
        for (Row& row : rows)
        {
            std::memcpy(pTarget++, &row.row, sizeof(row.row));
            row.row.dwInOctets += row.dwInStep;
            row.row.dwOutOctets += row.dwOutStep;
        }
    }

    Row& Find(DWORD dwIndex)
    {
        const auto found =
            std::find_if(rows.begin(), rows.end(), [=](const Row& row) { return row.row.dwIndex == dwIndex; });
        if (found == rows.end())
        {
            throw std::invalid_argument("the interface table has no row of that index");
        }
        return *found;
    }
};

ScriptedInterfaceTable::ScriptedInterfaceTable(ImportRedirector& redirector)
    : m_state(std::make_shared<State>()), m_imports(redirector)
{
    m_imports.Replace<decltype(::GetIfTable)>("GetIfTable",
                                              [state = m_state](PMIB_IFTABLE pTable, PULONG pcbTable, WINBOOL bSorted)
                                              { return state->Answer(pTable, pcbTable, bSorted); });
}

ScriptedInterfaceTable::~ScriptedInterfaceTable() = default;

void ScriptedInterfaceTable::AddRow(DWORD dwIndex, DWORD dwSpeed)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    State::Row row;
    row.row.dwIndex = dwIndex;
    row.row.dwSpeed = dwSpeed;
    m_state->rows.push_back(row);
}

void ScriptedInterfaceTable::SetOctets(DWORD dwIndex, DWORD dwIn, DWORD dwOut)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    MIB_IFROW& row = m_state->Find(dwIndex).row;
    row.dwInOctets = dwIn;
    row.dwOutOctets = dwOut;
}

void ScriptedInterfaceTable::MoveAtEachRead(DWORD dwIndex, DWORD dwIn, DWORD dwOut)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    State::Row& row = m_state->Find(dwIndex);
    row.dwInStep = dwIn;
    row.dwOutStep = dwOut;
}

void ScriptedInterfaceTable::RemoveRows()
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->rows.clear();
}

std::vector<InterfaceTableCall> ScriptedInterfaceTable::Calls() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    return m_state->calls;
}

void ScriptedInterfaceTable::ForgetCalls()
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->calls.clear();
}

} // namespace varnex::test
