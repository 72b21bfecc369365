// Windows Management Instrumentation, as far as network adapters are asked of it.

#include "Codes.h"
#include "Conformance.h"

#include "common/Com.h"
#include "support/ScriptedWmi.h"

#include <catch2/catch.hpp>

#include <wbemidl.h>

namespace varnex::test
{

namespace
{

struct ScriptedAdapters
{
    explicit ScriptedAdapters(ImportRedirector& redirector) : wmi(redirector)
    {
        wmi.SetObjects({WmiAdapter(L"Ethernet", 2, WmiText(L"1000000000"))});
    }
    ScriptedWmi wmi;
};

Fakes WmiFakes()
{
    return {FakeOf<ScriptedAdapters>("scripted WMI")};
}

class Apartment
{
public:
    Apartment() { CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
    ~Apartment() { CoUninitialize(); }
    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;
};

struct Connection
{
    explicit Connection(const wchar_t* pwszSpace = L"ROOT\\CIMV2")
    {
        nResult = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                   reinterpret_cast<void**>(locator.GetAddressOf()));
        if (SUCCEEDED(nResult))
        {
            nResult = locator->ConnectServer(UniqueBstr(pwszSpace).Get(), nullptr, nullptr, nullptr, 0, nullptr,
                                             nullptr, services.GetAddressOf());
        }
    }
    const Apartment apartment;
    HRESULT nResult;
    ComPtr<IWbemLocator> locator;
    ComPtr<IWbemServices> services;
};

struct Query : Connection
{
    explicit Query(const wchar_t* pwszText = L"SELECT * FROM Win32_NetworkAdapter where adapterTypeId = 0",
                   const wchar_t* pwszLanguage = L"WQL")
    {
        nResult = services->ExecQuery(UniqueBstr(pwszLanguage).Get(), UniqueBstr(pwszText).Get(),
                                      WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr,
                                      enumerator.GetAddressOf());
    }
    std::string NextName()
    {
        ComPtr<IWbemClassObject> object;
        ULONG nReturned = 99;
        const HRESULT nNext = enumerator->Next(static_cast<LONG>(WBEM_INFINITE), 1, object.GetAddressOf(), &nReturned);
        return ResultName(nNext) + ", " + std::to_string(nReturned);
    }
    ComPtr<IWbemClassObject> First()
    {
        ComPtr<IWbemClassObject> object;
        ULONG nReturned = 0;
        enumerator->Next(static_cast<LONG>(WBEM_INFINITE), 1, object.GetAddressOf(), &nReturned);
        return object;
    }
    void ReadToEnd()
    {
        while (First())
        {
        }
    }
    ComPtr<IEnumWbemClassObject> enumerator;
};

// The type of a property of the first adapter.
std::string TypeOf(const wchar_t* pwszName)
{
    Query query;
    const ComPtr<IWbemClassObject> object = query.First();
    if (!object)
    {
        return "no adapter";
    }
    ScopedVariant value;
    const HRESULT nResult = object->Get(pwszName, 0, value.Receive(), nullptr, nullptr);
    if (FAILED(nResult))
    {
        return ResultName(nResult);
    }
    switch (value.Get().vt)
    {
    case VT_BSTR:
        return "VT_BSTR";
    case VT_I4:
        return "VT_I4";
    case VT_NULL:
        return "VT_NULL";
    default:
        return "type " + std::to_string(value.Get().vt);
    }
}

const std::string CONNECT_PAGE = "windows/win32/api/wbemcli/nf-wbemcli-iwbemlocator-connectserver";
const std::string QUERY_PAGE = "windows/win32/api/wbemcli/nf-wbemcli-iwbemservices-execquery";
const std::string NEXT_PAGE = "windows/win32/api/wbemcli/nf-wbemcli-ienumwbemclassobject-next";
const std::string GET_PAGE = "windows/win32/api/wbemcli/nf-wbemcli-iwbemclassobject-get";
const std::string NUMBERS_PAGE = "windows/win32/wmisdk/numbers";
const std::string ADAPTER_PAGE = "windows/win32/cimwin32prov/win32-networkadapter";

} // namespace

TEST_CASE("WMI: without COM there is no locator")
{
    Verify(
        Documented("CO_E_NOTINITIALIZED", "windows/win32/api/combaseapi/nf-combaseapi-cocreateinstance"),
        []
        {
            ComPtr<IWbemLocator> locator;
            return ResultName(CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                               reinterpret_cast<void**>(locator.GetAddressOf())));
        },
        WmiFakes());
}

TEST_CASE("WMI: the namespace of the machine's classes is there")
{
    Verify(
        Documented("S_OK", CONNECT_PAGE), [] { return ResultName(Connection().nResult); }, WmiFakes());
}

TEST_CASE("WMI: a namespace is found without regard to case")
{
    Verify(
        Unknown(CONNECT_PAGE).OnWine("S_OK"), [] { return ResultName(Connection(L"root\\cimv2").nResult); },
        WmiFakes());
}

TEST_CASE("WMI: an unknown namespace is told as such")
{
    Verify(
        Documented("WBEM_E_INVALID_NAMESPACE", CONNECT_PAGE),
        [] { return ResultName(Connection(L"ROOT\\NoSuchSpace").nResult); }, WmiFakes());
}

TEST_CASE("WMI: the services take a blanket")
{
    Verify(
        Documented("S_OK", "windows/win32/wmisdk/setting-authentication-using-c-"),
        []
        {
            const Connection connection;
            return ResultName(CoSetProxyBlanket(connection.services.Get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                                                RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr,
                                                EOAC_NONE));
        },
        WmiFakes());
}

TEST_CASE("WMI: a query in an unknown language is refused")
{
    Verify(
        Documented("WBEM_E_INVALID_QUERY_TYPE", QUERY_PAGE),
        [] { return ResultName(Query(L"SELECT * FROM Win32_NetworkAdapter", L"SQL").nResult); }, WmiFakes());
}

TEST_CASE("WMI: a query that nobody understands fails, at once or at its first object")
{
    Verify(
        Documented("WBEM_E_INVALID_QUERY", QUERY_PAGE),
        []
        {
            Query query(L"NO QUERY AT ALL");
            if (FAILED(query.nResult))
            {
                return ResultName(query.nResult);
            }
            const std::string next = query.NextName();
            return next.substr(0, next.find(','));
        },
        WmiFakes());
}

TEST_CASE("WMI: an unknown class fails, at once or at its first object")
{
    Verify(
        Documented("WBEM_E_INVALID_CLASS", QUERY_PAGE).OnWine("S_FALSE"),
        []
        {
            Query query(L"SELECT * FROM Win32_NoSuchClass");
            if (FAILED(query.nResult))
            {
                return ResultName(query.nResult);
            }
            const std::string next = query.NextName();
            return next.substr(0, next.find(','));
        },
        WmiFakes());
}

TEST_CASE("WMI: a query gives one object at a time")
{
    Verify(
        Documented("S_OK, 1", NEXT_PAGE), [] { return Query().NextName(); }, WmiFakes());
}

TEST_CASE("WMI: behind the last object there is success without one, again and again")
{
    Verify(
        Documented("S_FALSE, 0; S_FALSE, 0", NEXT_PAGE),
        []
        {
            Query query;
            query.ReadToEnd();
            const std::string first = query.NextName();
            return first + "; " + query.NextName();
        },
        WmiFakes());
}

TEST_CASE("WMI: an enumeration outlives the connection that it came from")
{
    Verify(
        Unknown(NEXT_PAGE).OnWine("S_OK, 1"),
        []
        {
            Query query;
            query.services.Reset();
            query.locator.Reset();
            return query.NextName();
        },
        WmiFakes());
}

TEST_CASE("WMI: an object outlives its enumeration")
{
    Verify(
        Unknown(GET_PAGE).OnWine("S_OK"),
        []
        {
            Query query;
            const ComPtr<IWbemClassObject> object = query.First();
            query.enumerator.Reset();
            ScopedVariant value;
            return ResultName(object->Get(L"Name", 0, value.Receive(), nullptr, nullptr));
        },
        WmiFakes());
}

TEST_CASE("WMI: an adapter's name is a text")
{
    Verify(
        Documented("VT_BSTR", ADAPTER_PAGE), [] { return TypeOf(L"Name"); }, WmiFakes());
}

TEST_CASE("WMI: an unsigned number of 32 bits comes as a signed one")
{
    Verify(
        Documented("VT_I4", NUMBERS_PAGE), [] { return TypeOf(L"InterfaceIndex"); }, WmiFakes());
}

TEST_CASE("WMI: a number of 64 bits comes as a text")
{
    Verify(
        Documented("VT_BSTR", NUMBERS_PAGE), [] { return TypeOf(L"Speed"); }, WmiFakes());
}

TEST_CASE("WMI: a property that a class does not have is told as such")
{
    Verify(
        Documented("WBEM_E_NOT_FOUND", GET_PAGE), [] { return TypeOf(L"NoSuchProperty"); }, WmiFakes());
}

TEST_CASE("WMI: a property is found without regard to case")
{
    Verify(
        Unknown(GET_PAGE).OnWine("VT_BSTR"), [] { return TypeOf(L"NAME"); }, WmiFakes());
}

TEST_CASE("WMI: a property that cannot be read leaves the value alone")
{
    Verify(
        Unknown(GET_PAGE).OnWine("as it was"),
        []
        {
            Query query;
            const ComPtr<IWbemClassObject> object = query.First();
            VARIANT value;
            VariantInit(&value);
            value.vt = VT_I4;
            value.lVal = 77;
            object->Get(L"NoSuchProperty", 0, &value, nullptr, nullptr);
            return std::string(value.vt == VT_I4 && value.lVal == 77 ? "as it was" : "changed");
        },
        WmiFakes());
}

} // namespace varnex::test
