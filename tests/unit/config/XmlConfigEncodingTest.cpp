// Saves of files in other encodings than UTF-8.

#include "ConfigFixture.h"

#include "config/XmlConfig.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

constexpr wchar_t NUMBER_PATH[] = L"KPMConfiguration/Number";
constexpr wchar_t TEXT_PATH[] = L"KPMConfiguration/Text";
constexpr wchar_t LATIN[] = L"caf\u00e9";
constexpr char LATIN_1252[] = "caf\xE9";
constexpr char LATIN_UTF8[] = "caf\xC3\xA9";

std::string Document(const std::string& declaration, const std::string& text)
{
    return declaration + "<KPMConfiguration><Number>1</Number><Text>" + text + "</Text></KPMConfiguration>";
}

// Characters up to U+00FF as UTF-16 behind their mark.
std::string Wide(const std::string& latin, bool bBigEndian)
{
    std::string bytes = bBigEndian ? "\xFE\xFF" : "\xFF\xFE";
    for (const char ch : latin)
    {
        bytes += bBigEndian ? std::string{'\0', ch} : std::string{ch, '\0'};
    }
    return bytes;
}

struct Encoded
{
    const char* pszWhat;
    std::string bytes;
    std::wstring text;
    std::string declaration; // after a save
};

std::vector<Encoded> Files()
{
    const std::string utf8 = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
    const std::string utf16 = "<?xml version=\"1.0\" encoding=\"UTF-16\"?>";
    return {
        {"UTF-8", Document(utf8, LATIN_UTF8), LATIN, utf8},
        {"UTF-8 beyond 16 bits", Document(utf8, "\xF0\x9F\x98\x80 \xE4\xB8\xAD"), L"\U0001F600 \u4e2d", utf8},
        {"UTF-8 with a mark", "\xEF\xBB\xBF" + Document(utf8, LATIN_UTF8), LATIN, utf8},
        {"a mark alone", "\xEF\xBB\xBF" + Document("", LATIN_UTF8), LATIN, ""},
        {"nothing declared", Document("", LATIN_UTF8), LATIN, ""},
        {"no encoding declared", Document("<?xml version='1.0'?>", LATIN_UTF8), LATIN, utf8},
        {"UTF-16, little end first", Wide(Document(utf16, LATIN_1252), false), LATIN, utf8},
        {"UTF-16, big end first", Wide(Document(utf16, LATIN_1252), true), LATIN, utf8},
        {"UTF-16 by its mark", Wide(Document("", LATIN_1252), false), LATIN, ""},
        {"ISO-8859-1", Document("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>", LATIN_1252), LATIN, utf8},
        {"windows-1252", Document("<?xml version='1.0' encoding='windows-1252'?>", "\x80"), L"\u20ac", utf8},
        {"standalone", Document("<?xml version=\"1.0\" encoding=\"ISO-8859-1\" standalone=\"yes\"?>", LATIN_1252),
         LATIN, "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>"},
        {"standalone without an encoding", Document("<?xml version=\"1.0\" standalone=\"yes\"?>", LATIN_UTF8), LATIN,
         "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>"},
        {"a declaration in a comment", Document("<!-- <?xml version='1.0' encoding='x'?> -->", LATIN_UTF8), LATIN,
         "<!-- <?xml version='1.0' encoding='x'?> -->"},
    };
}

} // namespace

TEST_CASE("a file of any encoding loads after a save, with every other text as it was")
{
    ConfigFixture config;
    for (const Encoded& file : Files())
    {
        CAPTURE(file.pszWhat);
        config.tree.WriteConfigText(file.bytes);
        REQUIRE(SetXMLNodeValue(nullptr, NUMBER_PATH, L"2") == 0);
        wchar_t wszText[16] = L"";
        CHECK(GetXMLNodeValue(nullptr, TEXT_PATH, wszText, 16) == 0);
        CHECK(wszText == file.text);
        wchar_t wszNumber[16] = L"";
        CHECK(GetXMLNodeValue(nullptr, NUMBER_PATH, wszNumber, 16) == 0);
        CHECK(std::wstring(wszNumber) == L"2");
        const std::string saved = config.FileBytes();
        CHECK(saved.substr(0, file.declaration.size()) == file.declaration);
        // The next save finds nothing to change but the number.
        CHECK(SetXMLNodeValue(nullptr, NUMBER_PATH, L"2") == 0);
        CHECK(config.FileBytes() == saved);
    }
    CHECK(config.TakeLog().empty());
}

} // namespace varnex::test
