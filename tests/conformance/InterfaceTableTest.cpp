// The table of network interfaces.

#include "Codes.h"
#include "Conformance.h"

#include "support/ScriptedInterfaceTable.h"

#include <winsock2.h>

#include <iphlpapi.h>

#include <catch2/catch.hpp>

#include <set>

namespace varnex::test
{

namespace
{

struct ScriptedTable
{
    explicit ScriptedTable(ImportRedirector& redirector) : table(redirector)
    {
        table.AddRow(7, 1000000000);
        table.AddRow(2, 100000000);
        table.SetOctets(7, 1000, 1000);
        table.MoveAtEachRead(7, 10, 20);
    }
    ScriptedInterfaceTable table;
};

Fakes TableFakes()
{
    return {FakeOf<ScriptedTable>("scripted interface table")};
}

struct Table
{
    explicit Table(BOOL bSorted = FALSE)
    {
        GetIfTable(nullptr, &cbTable, bSorted);
        cbTold = cbTable;
        bytes.resize(cbTable);
        dwStatus = GetIfTable(reinterpret_cast<MIB_IFTABLE*>(bytes.data()), &cbTable, bSorted);
    }
    DWORD Rows() const { return reinterpret_cast<const MIB_IFTABLE*>(bytes.data())->dwNumEntries; }
    const MIB_IFROW& Row(DWORD nRow) const { return reinterpret_cast<const MIB_IFTABLE*>(bytes.data())->table[nRow]; }

    ULONG cbTable = 0;
    ULONG cbTold = 0;
    DWORD dwStatus = 0;
    std::vector<BYTE> bytes;
};

const std::string TABLE_PAGE = "windows/win32/api/iphlpapi/nf-iphlpapi-getiftable";
const std::string ROW_PAGE = "windows/win32/api/ifmib/ns-ifmib-mib_ifrow";

} // namespace

TEST_CASE("interface table: its size is asked for without a buffer")
{
    Verify(
        Documented("ERROR_INSUFFICIENT_BUFFER, a size", TABLE_PAGE),
        []
        {
            ULONG cbTable = 0;
            const std::string status = ErrorName(GetIfTable(nullptr, &cbTable, FALSE));
            return status + (cbTable != 0 ? ", a size" : ", no size");
        },
        TableFakes());
}

TEST_CASE("interface table: a buffer that is too small is refused and the size is told")
{
    Verify(
        Documented("ERROR_INSUFFICIENT_BUFFER, a size", TABLE_PAGE),
        []
        {
            BYTE abTable[8] = {};
            ULONG cbTable = sizeof abTable;
            const std::string status = ErrorName(GetIfTable(reinterpret_cast<MIB_IFTABLE*>(abTable), &cbTable, FALSE));
            return status + (cbTable > sizeof abTable ? ", a size" : ", no size");
        },
        TableFakes());
}

TEST_CASE("interface table: a buffer of the size that was told is filled")
{
    Verify(
        Documented("ERROR_SUCCESS, all rows within", TABLE_PAGE),
        []
        {
            const Table table;
            const bool bWithin = offsetof(MIB_IFTABLE, table) + table.Rows() * sizeof(MIB_IFROW) <= table.cbTold;
            return ErrorName(table.dwStatus) + (bWithin ? ", all rows within" : ", rows outside");
        },
        TableFakes());
}

TEST_CASE("interface table: a buffer with room to spare is filled")
{
    Verify(
        Documented("ERROR_SUCCESS", TABLE_PAGE),
        []
        {
            std::vector<BYTE> bytes(1000000);
            auto cbTable = static_cast<ULONG>(bytes.size());
            return ErrorName(GetIfTable(reinterpret_cast<MIB_IFTABLE*>(bytes.data()), &cbTable, FALSE));
        },
        TableFakes());
}

TEST_CASE("interface table: a null place for the size is refused")
{
    Verify(
        Documented("ERROR_INVALID_PARAMETER", TABLE_PAGE),
        [] { return ErrorName(GetIfTable(nullptr, nullptr, FALSE)); }, TableFakes());
}

TEST_CASE("interface table: no two rows have the same index, and none has index 0")
{
    Verify(
        Documented("unlike, not 0", ROW_PAGE),
        []
        {
            const Table table;
            std::set<DWORD> indexes;
            for (DWORD i = 0; i < table.Rows(); ++i)
            {
                indexes.insert(table.Row(i).dwIndex);
            }
            return std::string(indexes.size() == table.Rows() ? "unlike" : "alike") +
                   (indexes.count(0) == 0 ? ", not 0" : ", 0");
        },
        TableFakes());
}

TEST_CASE("interface table: its rows are ordered by index when that is asked for")
{
    Verify(
        Documented("ordered", TABLE_PAGE),
        []
        {
            const Table table(TRUE);
            bool bOrdered = true;
            for (DWORD i = 1; i < table.Rows(); ++i)
            {
                bOrdered = bOrdered && table.Row(i - 1).dwIndex < table.Row(i).dwIndex;
            }
            return std::string(bOrdered ? "ordered" : "not ordered");
        },
        TableFakes());
}

TEST_CASE("interface table: octets only grow between two readings close together")
{
    Verify(
        Documented("they grow or stay", ROW_PAGE),
        []
        {
            const Table first(TRUE);
            const Table second(TRUE);
            bool bGrow = first.Rows() == second.Rows();
            for (DWORD i = 0; bGrow && i < first.Rows(); ++i)
            {
                bGrow = second.Row(i).dwInOctets - first.Row(i).dwInOctets < 0x80000000 &&
                        second.Row(i).dwOutOctets - first.Row(i).dwOutOctets < 0x80000000;
            }
            return std::string(bGrow ? "they grow or stay" : "they fall");
        },
        TableFakes());
}

TEST_CASE("interface table: a row tells the speed of its interface")
{
    Verify(
        Documented("a speed", ROW_PAGE).OnWine("no speed"),
        []
        {
            const Table table;
            bool bSpeed = false;
            for (DWORD i = 0; i < table.Rows(); ++i)
            {
                bSpeed = bSpeed || table.Row(i).dwSpeed != 0;
            }
            return std::string(bSpeed ? "a speed" : "no speed");
        },
        TableFakes());
}

} // namespace varnex::test
