#include "sampling/AdapterQuery.h"

#include "support/WmiStandIns.h"
#include "unit/sampling/SamplingTest.h"

#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

using Journal = std::vector<std::string>;

// An object of the test's own, which notes when its last reference goes.
template <class Interface>
class Noted : public Interface
{
public:
    Noted(Journal& journal, const char* pszName) : m_journal(journal), m_pszName(pszName) {}
    virtual ~Noted() = default;

    Interface* NewReference()
    {
        ++m_nReferences;
        return this;
    }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nReferences; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        if (--m_nReferences == 0)
        {
            m_journal.emplace_back(m_pszName);
        }
        return m_nReferences;
    }

private:
    Journal& m_journal;
    const char* m_pszName;
    ULONG m_nReferences = 0;
};

class NotedEnumerator final : public Noted<UnusedEnumerator>
{
public:
    using Noted::Noted;

    HRESULT STDMETHODCALLTYPE Next(LONG, ULONG, IWbemClassObject**, ULONG*) override { return WBEM_S_FALSE; }
};

class NotedServices final : public Noted<UnusedServices>
{
public:
    using Noted::Noted;

    HRESULT STDMETHODCALLTYPE ExecQuery(BSTR, BSTR, LONG, IWbemContext*, IEnumWbemClassObject** ppEnumerator) override
    {
        *ppEnumerator = pEnumerator != nullptr ? pEnumerator->NewReference() : nullptr;
        return S_OK;
    }
    NotedEnumerator* pEnumerator = nullptr;
};

class NotedLocator final : public Noted<IWbemLocator>
{
public:
    using Noted::Noted;

    HRESULT STDMETHODCALLTYPE ConnectServer(BSTR, BSTR, BSTR, BSTR, LONG, BSTR, IWbemContext*,
                                            IWbemServices** ppServices) override
    {
        *ppServices = pServices != nullptr ? pServices->NewReference() : nullptr;
        return S_OK;
    }
    NotedServices* pServices = nullptr;
};

// Every step of WMI succeeds; a pointer that is null here is what that step then gives.
class AdapterQueryTest : public SamplingTest
{
protected:
    AdapterQueryTest()
    {
        m_locator.pServices = &m_services;
        m_services.pEnumerator = &m_enumerator;
        m_redirector.Replace<decltype(::CoCreateInstance)>("CoCreateInstance",
                                                           [this](REFCLSID, IUnknown*, DWORD, REFIID, void** ppObject)
                                                           {
                                                               *ppObject = m_pLocator != nullptr
                                                                               ? m_pLocator->NewReference()
                                                                               : nullptr;
                                                               return S_OK;
                                                           });
        m_redirector.Replace<decltype(::CoSetProxyBlanket)>(
            "CoSetProxyBlanket",
            [](IUnknown*, DWORD, DWORD, OLECHAR*, DWORD, DWORD, RPC_AUTH_IDENTITY_HANDLE, DWORD) { return S_OK; });
    }

    Journal m_released;
    NotedEnumerator m_enumerator{m_released, "enumerator"};
    NotedServices m_services{m_released, "services"};
    NotedLocator m_locator{m_released, "locator"};
    NotedLocator* m_pLocator = &m_locator;
};

} // namespace

TEST_CASE_METHOD(AdapterQueryTest, "a query releases the enumerator, the services and the locator in this order")
{
    {
        AdapterQuery query;
        REQUIRE(query.Open() == S_OK);
        ComPtr<IWbemClassObject> adapter;
        CHECK(query.Next(adapter) == WBEM_S_FALSE);
        CHECK(m_released.empty());
    }
    CHECK(m_released == Journal{"enumerator", "services", "locator"});
}

TEST_CASE_METHOD(AdapterQueryTest, "a step of WMI that succeeds and gives nothing has failed")
{
    Journal released;
    SECTION("no locator")
    {
        m_pLocator = nullptr;
    }
    SECTION("no services")
    {
        m_locator.pServices = nullptr;
        released = {"locator"};
    }
    SECTION("no enumerator")
    {
        m_services.pEnumerator = nullptr;
        released = {"services", "locator"};
    }
    CHECK(FAILED(AdapterQuery().Open()));
    CHECK(m_released == released);
}

} // namespace varnex::test
