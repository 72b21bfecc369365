#include "StandIns.h"

#include "support/WmiStandIns.h"

#include <cwchar>
#include <string>

// The leanest WMI that lists adapters. Its objects live for ever and only count what an enumeration has given out.

namespace varnex::bench
{

namespace
{

// Reference counts without an effect: nothing here is ever freed.
template <class Interface>
class Lasting : public Interface
{
public:
    virtual ~Lasting() = default;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppObject) override
    {
        *ppObject = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
};

// The one adapter that an enumeration shows again and again, under another number.
class Adapter final : public Lasting<test::UnusedClassObject>
{
public:
    HRESULT STDMETHODCALLTYPE Get(LPCWSTR pwszName, LONG, VARIANT* pValue, CIMTYPE*, LONG*) override
    {
        if (std::wcscmp(pwszName, L"InterfaceIndex") == 0)
        {
            pValue->vt = VT_I4;
            pValue->lVal = nIndex;
            return S_OK;
        }
        const wchar_t* pwszText = std::wcscmp(pwszName, L"Speed") == 0  ? L"1000000000"
                                  : std::wcscmp(pwszName, L"Name") == 0 ? L"An Ethernet Adapter of Common Make"
                                                                        : L"00:15:5D:00:00:01";
        pValue->vt = VT_BSTR;
        pValue->bstrVal = SysAllocString(pwszText);
        return S_OK;
    }

    LONG nIndex = 0;
};

class Enumerator final : public Lasting<test::UnusedEnumerator>
{
public:
    HRESULT STDMETHODCALLTYPE Next(LONG, ULONG, IWbemClassObject** ppObject, ULONG* pnReturned) override
    {
        if (m_nGiven == GetMachine().nCards)
        {
            *pnReturned = 0;
            return WBEM_S_FALSE;
        }
        m_adapter.nIndex = static_cast<LONG>(++m_nGiven);
        *ppObject = &m_adapter;
        *pnReturned = 1;
        return WBEM_S_NO_ERROR;
    }
    void Restart() { m_nGiven = 0; }

private:
    unsigned m_nGiven = 0;
    Adapter m_adapter;
};

class Services final : public Lasting<test::UnusedServices>
{
public:
    HRESULT STDMETHODCALLTYPE ExecQuery(BSTR, BSTR, LONG, IWbemContext*, IEnumWbemClassObject** ppEnumerator) override
    {
        m_enumerator.Restart();
        *ppEnumerator = &m_enumerator;
        return S_OK;
    }

private:
    Enumerator m_enumerator;
};

class Locator final : public Lasting<IWbemLocator>
{
public:
    HRESULT STDMETHODCALLTYPE ConnectServer(BSTR, BSTR, BSTR, BSTR, LONG, BSTR, IWbemContext*,
                                            IWbemServices** ppServices) override
    {
        *ppServices = &m_services;
        return S_OK;
    }

private:
    Services m_services;
};

} // namespace

void* MakeLocator() noexcept
{
    // One for each thread: two of the module's workers refresh their adapters independently.
    static thread_local Locator locator;
    return static_cast<IWbemLocator*>(&locator);
}

} // namespace varnex::bench
