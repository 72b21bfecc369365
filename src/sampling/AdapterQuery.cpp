#include "sampling/AdapterQuery.h"

namespace varnex
{

namespace
{

// Adapter type 0 is Ethernet 802.3; other types are not watched.
constexpr wchar_t QUERY_TEXT[] = L"SELECT * FROM Win32_NetworkAdapter where adapterTypeId = 0";

// A step that succeeds without its object has failed.
template <class Interface>
HRESULT ResultOf(HRESULT nResult, const ComPtr<Interface>& object) noexcept
{
    return SUCCEEDED(nResult) && !object ? E_FAIL : nResult;
}

} // namespace

HRESULT AdapterQuery::Connect() noexcept
{
    HRESULT nResult = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                       reinterpret_cast<void**>(m_locator.ReleaseAndGetAddressOf()));
    nResult = ResultOf(nResult, m_locator);
    if (FAILED(nResult))
    {
        return nResult;
    }
    const UniqueBstr space(L"ROOT\\CIMV2");
    if (!space)
    {
        return E_OUTOFMEMORY;
    }
    nResult = m_locator->ConnectServer(space.Get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                       m_services.ReleaseAndGetAddressOf());
    nResult = ResultOf(nResult, m_services);
    if (FAILED(nResult))
    {
        return nResult;
    }
    return CoSetProxyBlanket(m_services.Get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                             RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
}

HRESULT AdapterQuery::Open() noexcept
{
    const HRESULT nConnected = Connect();
    if (FAILED(nConnected))
    {
        return nConnected;
    }
    const UniqueBstr language(L"WQL");
    const UniqueBstr query(QUERY_TEXT);
    if (!language || !query)
    {
        return E_OUTOFMEMORY;
    }
    const HRESULT nResult =
        m_services->ExecQuery(language.Get(), query.Get(), WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY,
                              nullptr, m_enumerator.ReleaseAndGetAddressOf());
    return ResultOf(nResult, m_enumerator);
}

HRESULT AdapterQuery::Next(ComPtr<IWbemClassObject>& adapter) noexcept
{
    ULONG nReturned = 0;
    const HRESULT nResult =
        m_enumerator->Next(static_cast<LONG>(WBEM_INFINITE), 1, adapter.ReleaseAndGetAddressOf(), &nReturned);
    if (nResult != WBEM_S_NO_ERROR || nReturned < 1)
    {
        adapter.Reset();
    }
    return nResult;
}

} // namespace varnex
