#pragma once

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>
#include <wbemidl.h>

namespace varnex::test
{

// The two large interfaces of WMI, with E_NOTIMPL for everything that the module does not call: ScriptedWmi derives
// from these and answers for the rest.

#define VARNEX_UNUSED_METHOD(name, parameters)                                                                         \
    HRESULT STDMETHODCALLTYPE name parameters override                                                                 \
    {                                                                                                                  \
        return E_NOTIMPL;                                                                                              \
    }

class UnusedServices : public IWbemServices
{
public:
    VARNEX_UNUSED_METHOD(OpenNamespace, (BSTR, LONG, IWbemContext*, IWbemServices**, IWbemCallResult**))
    VARNEX_UNUSED_METHOD(CancelAsyncCall, (IWbemObjectSink*))
    VARNEX_UNUSED_METHOD(QueryObjectSink, (LONG, IWbemObjectSink**))
    VARNEX_UNUSED_METHOD(GetObject, (BSTR, LONG, IWbemContext*, IWbemClassObject**, IWbemCallResult**))
    VARNEX_UNUSED_METHOD(GetObjectAsync, (BSTR, LONG, IWbemContext*, IWbemObjectSink*))
    VARNEX_UNUSED_METHOD(PutClass, (IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**))
    VARNEX_UNUSED_METHOD(PutClassAsync, (IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*))
    VARNEX_UNUSED_METHOD(DeleteClass, (BSTR, LONG, IWbemContext*, IWbemCallResult**))
    VARNEX_UNUSED_METHOD(DeleteClassAsync, (BSTR, LONG, IWbemContext*, IWbemObjectSink*))
    VARNEX_UNUSED_METHOD(CreateClassEnum, (BSTR, LONG, IWbemContext*, IEnumWbemClassObject**))
    VARNEX_UNUSED_METHOD(CreateClassEnumAsync, (BSTR, LONG, IWbemContext*, IWbemObjectSink*))
    VARNEX_UNUSED_METHOD(PutInstance, (IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**))
    VARNEX_UNUSED_METHOD(PutInstanceAsync, (IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*))
    VARNEX_UNUSED_METHOD(DeleteInstance, (BSTR, LONG, IWbemContext*, IWbemCallResult**))
    VARNEX_UNUSED_METHOD(DeleteInstanceAsync, (BSTR, LONG, IWbemContext*, IWbemObjectSink*))
    VARNEX_UNUSED_METHOD(CreateInstanceEnum, (BSTR, LONG, IWbemContext*, IEnumWbemClassObject**))
    VARNEX_UNUSED_METHOD(CreateInstanceEnumAsync, (BSTR, LONG, IWbemContext*, IWbemObjectSink*))
    VARNEX_UNUSED_METHOD(ExecQueryAsync, (BSTR, BSTR, LONG, IWbemContext*, IWbemObjectSink*))
    VARNEX_UNUSED_METHOD(ExecNotificationQuery, (BSTR, BSTR, LONG, IWbemContext*, IEnumWbemClassObject**))
    VARNEX_UNUSED_METHOD(ExecNotificationQueryAsync, (BSTR, BSTR, LONG, IWbemContext*, IWbemObjectSink*))
    VARNEX_UNUSED_METHOD(ExecMethod,
                         (BSTR, BSTR, LONG, IWbemContext*, IWbemClassObject*, IWbemClassObject**, IWbemCallResult**))
    VARNEX_UNUSED_METHOD(ExecMethodAsync, (BSTR, BSTR, LONG, IWbemContext*, IWbemClassObject*, IWbemObjectSink*))
};

class UnusedClassObject : public IWbemClassObject
{
public:
    VARNEX_UNUSED_METHOD(GetQualifierSet, (IWbemQualifierSet**))
    VARNEX_UNUSED_METHOD(Put, (LPCWSTR, LONG, VARIANT*, CIMTYPE))
    VARNEX_UNUSED_METHOD(Delete, (LPCWSTR))
    VARNEX_UNUSED_METHOD(GetNames, (LPCWSTR, LONG, VARIANT*, SAFEARRAY**))
    VARNEX_UNUSED_METHOD(BeginEnumeration, (LONG))
    VARNEX_UNUSED_METHOD(Next, (LONG, BSTR*, VARIANT*, CIMTYPE*, LONG*))
    VARNEX_UNUSED_METHOD(EndEnumeration, ())
    VARNEX_UNUSED_METHOD(GetPropertyQualifierSet, (LPCWSTR, IWbemQualifierSet**))
    VARNEX_UNUSED_METHOD(Clone, (IWbemClassObject**))
    VARNEX_UNUSED_METHOD(GetObjectText, (LONG, BSTR*))
    VARNEX_UNUSED_METHOD(SpawnDerivedClass, (LONG, IWbemClassObject**))
    VARNEX_UNUSED_METHOD(SpawnInstance, (LONG, IWbemClassObject**))
    VARNEX_UNUSED_METHOD(CompareTo, (LONG, IWbemClassObject*))
    VARNEX_UNUSED_METHOD(GetPropertyOrigin, (LPCWSTR, BSTR*))
    VARNEX_UNUSED_METHOD(InheritsFrom, (LPCWSTR))
    VARNEX_UNUSED_METHOD(GetMethod, (LPCWSTR, LONG, IWbemClassObject**, IWbemClassObject**))
    VARNEX_UNUSED_METHOD(PutMethod, (LPCWSTR, LONG, IWbemClassObject*, IWbemClassObject*))
    VARNEX_UNUSED_METHOD(DeleteMethod, (LPCWSTR))
    VARNEX_UNUSED_METHOD(BeginMethodEnumeration, (LONG))
    VARNEX_UNUSED_METHOD(NextMethod, (LONG, BSTR*, IWbemClassObject**, IWbemClassObject**))
    VARNEX_UNUSED_METHOD(EndMethodEnumeration, ())
    VARNEX_UNUSED_METHOD(GetMethodQualifierSet, (LPCWSTR, IWbemQualifierSet**))
    VARNEX_UNUSED_METHOD(GetMethodOrigin, (LPCWSTR, BSTR*))
};

class UnusedEnumerator : public IEnumWbemClassObject
{
public:
    VARNEX_UNUSED_METHOD(Reset, ())
    VARNEX_UNUSED_METHOD(NextAsync, (ULONG, IWbemObjectSink*))
    VARNEX_UNUSED_METHOD(Clone, (IEnumWbemClassObject**))
    VARNEX_UNUSED_METHOD(Skip, (LONG, ULONG))
};

#undef VARNEX_UNUSED_METHOD

} // namespace varnex::test
