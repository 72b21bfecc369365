#include "common/Com.h"

#include "support/ImportRedirector.h"

#include <catch2/catch.hpp>

#include <string>
#include <utility>

using namespace varnex;
using namespace varnex::test;

TEST_CASE("a null text is an empty one")
{
    const UniqueBstr nothing;
    CHECK_FALSE(nothing);
    CHECK(std::wstring(nothing.Text()).empty());
    const UniqueBstr text(L"abc");
    CHECK(std::wstring(text.Text()) == L"abc");
}

TEST_CASE("a text is freed once, also when it went into a variant")
{
    ImportRedirector redirector;
    redirector.CountCalls("SysFreeString");
    redirector.CountCalls("VariantClear");
    {
        UniqueBstr text(L"abc");
        ScopedVariant variant;
        variant.SetText(std::move(text));
        CHECK(variant.Get().vt == VT_BSTR);
        CHECK(std::wstring(variant.Get().bstrVal) == L"abc");
        const ULONGLONG ullCleared = redirector.Calls("VariantClear");
        variant.SetLong(5); // the text goes
        CHECK(redirector.Calls("VariantClear") == ullCleared + 1);
        CHECK(variant.Get().vt == VT_I4);
        CHECK(variant.Get().lVal == 5);
        variant.Receive()->vt = VT_EMPTY;
    }
    CHECK(redirector.Calls("SysFreeString") == 0); // the variant's clearing freed it
    {
        const UniqueBstr text(L"abc");
    }
    CHECK(redirector.Calls("SysFreeString") == 1);
}

TEST_CASE("no memory for a text is a null owner")
{
    ImportRedirector redirector;
    redirector.FailCall("SysAllocString", 1, FailMode::Once, ERROR_NOT_ENOUGH_MEMORY);
    const UniqueBstr text(L"abc");
    CHECK_FALSE(text);
    CHECK(redirector.Failures("SysAllocString") == 1);
}

TEST_CASE("an apartment counts as usable when it was made, was there, or failed in the tolerated way")
{
    constexpr HRESULT TOLERATED = static_cast<HRESULT>(0x80010106);
    struct Row
    {
        HRESULT nResult;
        bool bUsable;
    };
    const Row rows[] = {{S_OK, true}, {S_FALSE, true}, {TOLERATED, true}, {E_OUTOFMEMORY, false}, {E_FAIL, false}};
    for (const Row& row : rows)
    {
        CAPTURE(row.nResult);
        ImportRedirector redirector;
        redirector.Replace<decltype(::CoInitialize)>("CoInitialize", [&row](LPVOID) { return row.nResult; });
        DWORD dwModel = 0;
        redirector.Replace<decltype(::CoInitializeEx)>("CoInitializeEx",
                                                       [&](LPVOID, DWORD dwGiven)
                                                       {
                                                           dwModel = dwGiven;
                                                           return row.nResult;
                                                       });
        redirector.CountCalls("CoUninitialize");
        {
            const ThreadApartment single(TOLERATED);
            CHECK(single.Usable() == row.bUsable);
            CHECK(single.Result() == row.nResult);
            const ThreadApartment multi(TOLERATED, COINIT_MULTITHREADED);
            CHECK(multi.Usable() == row.bUsable);
        }
        CHECK(dwModel == COINIT_MULTITHREADED);
        CHECK(redirector.Calls("CoUninitialize") == 0); // it does not end with the scope
    }
}
