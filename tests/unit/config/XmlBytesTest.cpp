#include "config/XmlBytes.h"

#include "support/ImportRedirector.h"

#include <catch2/catch.hpp>

#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

// The bytes of a text, or its status.
std::string Encoded(const std::wstring& text)
{
    XmlBytes bytes;
    const HRESULT nResult = EncodeXml(text.c_str(), text.size(), bytes);
    return nResult == S_OK ? std::string(bytes.data.get(), bytes.cbData) : std::to_string(nResult);
}

} // namespace

TEST_CASE("a declaration names UTF-8 in the place of its encoding, or behind its version")
{
    struct Declared
    {
        std::wstring text;
        std::string bytes;
    };
    const std::vector<Declared> cases = {
        {L"<?xml version=\"1.0\"?><a/>", "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a/>"},
        {L"<?xml version='1.0'?><a/>", "<?xml version='1.0' encoding=\"UTF-8\"?><a/>"},
        {L"<?xml version=\"1.0\" encoding=\"x\"?><a/>", "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a/>"},
        {L"<?xml\tversion=\"1.0\"\r\nencoding = 'UTF-16' standalone='no' ?><a/>",
         "<?xml\tversion=\"1.0\"\r encoding=\"UTF-8\" standalone='no' ?><a/>"},
        {L"<?xml version=\"1.0\" standalone='yes'?>\u00e9",
         "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone='yes'?>\xC3\xA9"},
        // no declarations
        {L"<a/>", "<a/>"},
        {L"<?xml-stylesheet href=\"encoding\"?><a/>", "<?xml-stylesheet href=\"encoding\"?><a/>"},
        {L" <?xml version=\"1.0\"?><a/>", " <?xml version=\"1.0\"?><a/>"},
        {L"<?xml", "<?xml"},
    };
    for (const Declared& declared : cases)
    {
        CHECK(Encoded(declared.text) == declared.bytes);
    }
}

TEST_CASE("a declaration that is none by the grammar is refused")
{
    const std::string refusal = std::to_string(HRESULT_FROM_WIN32(ERROR_INVALID_DATA));
    for (const std::wstring& text :
         {std::wstring(L"<?xml ?>"), std::wstring(L"<?xml version=\"1.0?>"),
          std::wstring(L"<?xml version=\"1.0\" encoding?>"), std::wstring(L"<?xml version=\"1.0\" encoding=\"x?>"),
          std::wstring(L"<?xml version=1.0")})
    {
        CHECK(Encoded(text) == refusal);
    }
}

TEST_CASE("half a character is refused and not written as another")
{
    CHECK(Encoded(std::wstring(L"<a>") + wchar_t(0xD800) + L"</a>") ==
          std::to_string(HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION)));
    CHECK(Encoded(L"<a>\U0001F600</a>") == "<a>\xF0\x9F\x98\x80</a>");
}

TEST_CASE("bytes for which there is no memory are a status")
{
    ImportRedirector redirector;
    const std::wstring text = L"<a/>";
    XmlBytes bytes;
    redirector.FailCall("malloc", 1, FailMode::Once, 0);
    const HRESULT nResult = EncodeXml(text.c_str(), text.size(), bytes);
    redirector.StopFailing("malloc");
    CHECK(nResult == E_OUTOFMEMORY);
}

} // namespace varnex::test
