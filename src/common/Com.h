#pragma once

#include "common/UniqueResource.h"

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>
#include <wrl/client.h>

namespace varnex
{

using Microsoft::WRL::ComPtr;

struct BstrTraits
{
    using Type = BSTR;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type bstr) noexcept { SysFreeString(bstr); }
};

class UniqueBstr : public UniqueResource<BstrTraits>
{
public:
    UniqueBstr() noexcept = default;
    // Null when there is no memory; the caller reports E_OUTOFMEMORY.
    explicit UniqueBstr(const wchar_t* pwszText) noexcept : UniqueResource(SysAllocString(pwszText)) {}

    // The text, never null: a null BSTR is an empty text.
    const wchar_t* Text() const noexcept { return Get() != nullptr ? Get() : L""; }
};

static_assert(isMoveOnly<UniqueBstr>);

// A VARIANT that is cleared at the end of its scope.
class ScopedVariant
{
public:
    ScopedVariant() noexcept { VariantInit(&m_value); }
    ~ScopedVariant() { VariantClear(&m_value); }
    ScopedVariant(const ScopedVariant&) = delete;
    ScopedVariant& operator=(const ScopedVariant&) = delete;

    // Takes the text over.
    void SetText(UniqueBstr text) noexcept
    {
        VariantClear(&m_value);
        m_value.vt = VT_BSTR;
        m_value.bstrVal = text.Release();
    }
    void SetLong(long nValue) noexcept
    {
        VariantClear(&m_value);
        m_value.vt = VT_I4;
        m_value.lVal = nValue;
    }
    const VARIANT& Get() const noexcept { return m_value; }
    VARIANT* Receive() noexcept
    {
        VariantClear(&m_value);
        return &m_value;
    }

private:
    VARIANT m_value;
};

// One initialisation of COM on this thread. It does not end with the scope: each worker says itself when COM is uninitialised,
// and some of its ends leave COM initialised because callers know them so.
class ThreadApartment
{
public:
    // nTolerated: a failure that does not count as one for this thread.
    explicit ThreadApartment(HRESULT nTolerated) noexcept : m_nResult(CoInitialize(nullptr)), m_nTolerated(nTolerated)
    {
    }
    ThreadApartment(HRESULT nTolerated, COINIT model) noexcept
        : m_nResult(CoInitializeEx(nullptr, model)), m_nTolerated(nTolerated)
    {
    }

    HRESULT Result() const noexcept { return m_nResult; }
    bool Usable() const noexcept { return SUCCEEDED(m_nResult) || m_nResult == m_nTolerated; }
    static void Leave() noexcept { CoUninitialize(); }

private:
    HRESULT m_nResult;
    HRESULT m_nTolerated;
};

} // namespace varnex
