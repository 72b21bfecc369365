#include "sampling/AdapterQuery.h"

namespace varnex
{

namespace
{

// Adapter type 0 is Ethernet 802.3; other types are not watched.
constexpr wchar_t QUERY_TEXT[] = L"SELECT * FROM Win32_NetworkAdapter where adapterTypeId = 0";

HRESULT ConnectToServices(ComPtr<IWbemServices>& services) noexcept
{
    ComPtr<IWbemLocator> locator;
    HRESULT nResult = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                       reinterpret_cast<void**>(locator.GetAddressOf()));
    if (FAILED(nResult))
    {
        return nResult;
    }
    const UniqueBstr space(L"ROOT\\CIMV2");
    if (!space)
    {
        return E_OUTOFMEMORY;
    }
    nResult = locator->ConnectServer(space.Get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                     services.ReleaseAndGetAddressOf());
    if (FAILED(nResult))
    {
        return nResult;
    }
    return CoSetProxyBlanket(services.Get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                             RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
}

} // namespace

HRESULT AdapterQuery::Open() noexcept
{
    const HRESULT nResult = ConnectToServices(m_services);
    if (FAILED(nResult))
    {
        return nResult;
    }
    const UniqueBstr language(L"WQL");
    const UniqueBstr query(QUERY_TEXT);
    if (!language || !query)
    {
        return E_OUTOFMEMORY;
    }
    return m_services->ExecQuery(language.Get(), query.Get(), WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY,
                                 nullptr, m_enumerator.ReleaseAndGetAddressOf());
}

HRESULT AdapterQuery::Next(ComPtr<IWbemClassObject>& adapter) noexcept
{
    ULONG nReturned = 0;
    const HRESULT nResult = m_enumerator->Next(static_cast<LONG>(WBEM_INFINITE), 1, adapter.ReleaseAndGetAddressOf(), &nReturned);
    if (nResult != WBEM_S_NO_ERROR || nReturned < 1)
    {
        adapter.Reset();
    }
    return nResult;
}

} // namespace varnex
