#include "sampling/InterfaceTable.h"

#include <new>
#include <utility>

namespace varnex
{

InterfaceTable::ReadResult InterfaceTable::Read(ULONG cbFirst) noexcept
{
    ULONG cbTable = cbFirst;
    std::unique_ptr<BYTE[]> buffer;
    if (cbFirst != 0)
    {
        buffer.reset(new (std::nothrow) BYTE[cbFirst]());
        if (buffer == nullptr)
        {
            return ReadResult::NoMemory;
        }
    }
    DWORD dwError = GetIfTable(reinterpret_cast<MIB_IFTABLE*>(buffer.get()), &cbTable, FALSE);
    if (dwError == ERROR_INSUFFICIENT_BUFFER)
    {
        buffer.reset(new (std::nothrow) BYTE[cbTable]());
        if (buffer == nullptr)
        {
            return cbFirst == 0 ? ReadResult::NoMemory : ReadResult::Failed;
        }
        dwError = GetIfTable(reinterpret_cast<MIB_IFTABLE*>(buffer.get()), &cbTable, FALSE);
    }
    if (dwError != NO_ERROR || buffer == nullptr)
    {
        return ReadResult::Failed;
    }
    m_buffer = std::move(buffer);
    return ReadResult::Read;
}

} // namespace varnex
