#include "common/AnsiText.h"

#include "support/ImportRedirector.h"

#include <catch2/catch.hpp>

#include <cstring>
#include <iterator>
#include <string>

#include <windows.h>

using namespace varnex;
using namespace varnex::test;

namespace
{

// A double-byte code page: 0x81 to 0x9F begins a character of two bytes, given by U+4E00 and its followers.
class DoubleByteCodePage
{
public:
    explicit DoubleByteCodePage(ImportRedirector& redirector)
    {
        redirector.Replace<decltype(::IsDBCSLeadByte)>(
            "IsDBCSLeadByte", [](BYTE byte) -> BOOL { return byte >= 0x81 && byte <= 0x9F ? TRUE : FALSE; });
        redirector.Replace<decltype(::WideCharToMultiByte)>(
            "WideCharToMultiByte",
            [](UINT, DWORD, LPCWCH pwsz, int cch, LPSTR psz, int cb, LPCCH, LPBOOL)
            {
                int cbText = 0;
                for (int i = 0; i < cch; ++i)
                {
                    const bool bWide = pwsz[i] > 0xFF;
                    if (cb == 0) // asks for the size
                    {
                        cbText += bWide ? 2 : 1;
                        continue;
                    }
                    if (cbText + (bWide ? 2 : 1) > cb)
                    {
                        SetLastError(ERROR_INSUFFICIENT_BUFFER);
                        return 0;
                    }
                    if (bWide)
                    {
                        psz[cbText++] = '\x81';
                    }
                    psz[cbText++] = static_cast<char>(pwsz[i] & 0xFF);
                }
                return cbText;
            });
    }
};

// UTF-8 as the system's ANSI code page.
class Utf8CodePage
{
public:
    explicit Utf8CodePage(ImportRedirector& redirector)
    {
        redirector.Replace<decltype(::GetACP)>("GetACP", []() -> UINT { return CP_UTF8; });
        redirector.Replace<decltype(::IsDBCSLeadByte)>("IsDBCSLeadByte", [](BYTE) -> BOOL { return FALSE; });
        redirector.Replace<decltype(::WideCharToMultiByte)>(
            "WideCharToMultiByte", [](UINT, DWORD, LPCWCH pwsz, int cch, LPSTR psz, int cb, LPCCH, LPBOOL)
            { return WideCharToMultiByte(CP_UTF8, 0, pwsz, cch, psz, cb, nullptr, nullptr); });
    }
};

std::string Copied(const char* pszText, std::size_t cbTarget)
{
    char szTarget[32];
    std::memset(szTarget, '?', sizeof szTarget);
    CopyAnsiText(szTarget, cbTarget, pszText);
    CHECK(szTarget[cbTarget] == '?'); // nothing behind the buffer is touched
    return szTarget;
}

std::string Ansi(const wchar_t* pwszText, std::size_t cbTarget)
{
    char szTarget[32];
    std::memset(szTarget, '?', sizeof szTarget);
    CHECK(AnsiFromWide(szTarget, cbTarget, pwszText));
    CHECK(szTarget[cbTarget] == '?'); // nothing behind the buffer is touched
    return szTarget;
}

} // namespace

TEST_CASE("a wide text becomes ANSI and is cut where it does not fit")
{
    CHECK(Ansi(L"", 1).empty());
    CHECK(Ansi(L"abc", 4) == "abc");
    CHECK(Ansi(L"abc", 3) == "ab");
    CHECK(Ansi(L"abc", 1).empty());
    CHECK(Ansi(L"Gr\u00f6\u00dfe", 8) == "Gr\xf6\xdf"
                                         "e");
}

TEST_CASE("a character of two bytes is kept whole or left out")
{
    ImportRedirector redirector;
    const DoubleByteCodePage codePage(redirector);
    CHECK(Ansi(L"a\u4E41b", 5) == "a\x81\x41"
                                  "b");
    CHECK(Ansi(L"a\u4E41b", 4) == "a\x81\x41");
    CHECK(Ansi(L"a\u4E41b", 3) == "a"); // the terminator takes the second byte's place
    CHECK(Ansi(L"a\u4E41b", 2) == "a");
}

TEST_CASE("a character that the code page lacks becomes a question mark, a pair of surrogates too")
{
    CHECK(Ansi(L"a\u4E2Db", 8) == "a?b");
    const std::string pair = Ansi(L"a\U0001F600b", 8);
    CHECK(pair.front() == 'a');
    CHECK(pair.back() == 'b');
    CHECK(Ansi(L"a\xD83D", 8) == "a?"); // half a pair
}

TEST_CASE("a pair of surrogates is kept whole or left out")
{
    CHECK(Ansi(L"abc\U0001F600", 6) == "abc??"); // a mark for each half
    CHECK(Ansi(L"abc\U0001F600", 5) == "abc");

    ImportRedirector redirector;
    const Utf8CodePage codePage(redirector);
    CHECK(Ansi(L"abc\U0001F600d", 9) == "abc\xF0\x9F\x98\x80"
                                        "d");
    CHECK(Ansi(L"abc\U0001F600d", 8) == "abc\xF0\x9F\x98\x80");
    CHECK(Ansi(L"abc\U0001F600d", 7) == "abc");
    CHECK(Ansi(L"abc\U0001F600d", 5) == "abc");
}

TEST_CASE("an ANSI text is copied, and cut before a character that does not fit")
{
    CHECK(Copied("", 1).empty());
    CHECK(Copied("abc", 4) == "abc");
    CHECK(Copied("abc", 3) == "ab");
    CHECK(Copied("abc", 1).empty());
    CHECK(Copied("Gr\xf6\xdf"
                 "e",
                 4) == "Gr\xf6");
    char chTarget = '?';
    CopyAnsiText(&chTarget, 0, "abc");
    CHECK(chTarget == '?');
}

TEST_CASE("an ANSI text of double bytes is cut between two characters")
{
    ImportRedirector redirector;
    const DoubleByteCodePage codePage(redirector);
    CHECK(Copied("a\x81\x41\x82\x42", 6) == "a\x81\x41\x82\x42");
    CHECK(Copied("a\x81\x41\x82\x42", 5) == "a\x81\x41");
    CHECK(Copied("a\x81\x41\x82\x42", 4) == "a\x81\x41");
    CHECK(Copied("a\x81\x81\x42", 4) == "a\x81\x81"); // the second byte looks like a first one
    CHECK(Copied("a\x81", 8) == "a\x81");             // half a character of its own
    const char szBehindEnd[] = "a\x81\0bcdefghijk";
    CHECK(Copied(szBehindEnd, 8) == "a\x81");
}

TEST_CASE("an ANSI text of UTF-8 is cut between two characters")
{
    ImportRedirector redirector;
    const Utf8CodePage codePage(redirector);
    const char szText[] = "a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80"
                          "b";
    const std::size_t acbWhole[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 11, 11};
    for (std::size_t cbText = 0; cbText < std::size(acbWhole); ++cbText)
    {
        CAPTURE(cbText);
        CHECK(Copied(szText, cbText + 1) == std::string(szText, acbWhole[cbText]));
    }
    CHECK(Copied("\x80\x80\x80\x80\x80\x80", 5) == "\x80\x80\x80\x80"); // not UTF-8 at all
}

TEST_CASE("a text that the system cannot convert leaves an empty one and says so")
{
    ImportRedirector redirector;
    redirector.FailCall("WideCharToMultiByte", 2, FailMode::Once, ERROR_INVALID_PARAMETER);
    char szTarget[8] = "???";
    CHECK_FALSE(AnsiFromWide(szTarget, sizeof szTarget, L"abc"));
    CHECK(GetLastError() == ERROR_INVALID_PARAMETER);
    CHECK(szTarget[0] == '\0');

    redirector.FailCall("WideCharToMultiByte", 1, FailMode::FromThereOn, ERROR_INVALID_PARAMETER);
    CHECK(AnsiText(L"abc").empty());
    redirector.FailCall("WideCharToMultiByte", 2, FailMode::Once, ERROR_INVALID_PARAMETER); // the first only measures
    CHECK(AnsiText(L"abc").empty());
    redirector.StopFailing("WideCharToMultiByte");

    redirector.FailCall("MultiByteToWideChar", 1, FailMode::Once, ERROR_INVALID_PARAMETER);
    wchar_t wszTarget[8] = L"???";
    CHECK_FALSE(WideFromAnsi(wszTarget, 8, "abc"));
    CHECK(wszTarget[0] == L'\0');
}

TEST_CASE("a whole text becomes ANSI, however many bytes its characters take")
{
    CHECK(AnsiText(L"").empty());
    CHECK(AnsiText(L"Gr\u00f6\u00dfe") == "Gr\xf6\xdf"
                                          "e");
    CHECK(AnsiText(std::wstring(300, L'a')) == std::string(300, 'a'));

    ImportRedirector redirector;
    {
        const DoubleByteCodePage codePage(redirector);
        CHECK(AnsiText(L"\u4E41\u4E42") == "\x81\x41\x81\x42");
    }
    redirector.Replace<decltype(::WideCharToMultiByte)>(
        "WideCharToMultiByte", [](UINT, DWORD, LPCWCH pwsz, int cch, LPSTR psz, int cb, LPCCH, LPBOOL)
        { return WideCharToMultiByte(CP_UTF8, 0, pwsz, cch, psz, cb, nullptr, nullptr); });
    CHECK(AnsiText(L"\u4E2D\u4E2Db") == "\xE4\xB8\xAD\xE4\xB8\xAD"
                                        "b");
}

TEST_CASE("an ANSI text becomes wide as a whole or not at all")
{
    wchar_t wszTarget[4];
    CHECK(WideFromAnsi(wszTarget, 4, "a\xe9"));
    CHECK(std::wstring(wszTarget) == L"a\u00e9");
    CHECK(WideFromAnsi(wszTarget, 4, "abc"));
    CHECK(std::wstring(wszTarget) == L"abc");
    CHECK_FALSE(WideFromAnsi(wszTarget, 4, "abcd"));
    CHECK(wszTarget[0] == L'\0');
    CHECK(WideFromAnsi(wszTarget, 4, ""));
    CHECK(wszTarget[0] == L'\0');
}

TEST_CASE("buffers of no characters are never written")
{
    char cTarget = '?';
    wchar_t wchTarget = L'?';
    CHECK(AnsiFromWide(&cTarget, 0, L"abc"));
    CHECK_FALSE(WideFromAnsi(&wchTarget, 0, "abc"));
    CHECK(cTarget == '?');
    CHECK(wchTarget == L'?');
}

TEST_CASE("the last backslash is found, but not inside a character of two bytes")
{
    CHECK(FindLastBackslashA("") == nullptr);
    CHECK(FindLastBackslashA("file") == nullptr);
    const char szPath[] = R"(C:\a\b)";
    CHECK(FindLastBackslashA(szPath) == szPath + 4);

    ImportRedirector redirector;
    const DoubleByteCodePage codePage(redirector);
    const char szDouble[] = "C:\\a\x81\\b"; // the second backslash is half a character
    CHECK(FindLastBackslashA(szDouble) == szDouble + 2);
    const char szTorn[] = "C:\\a\x81"; // a text that ends in half a character
    CHECK(FindLastBackslashA(szTorn) == szTorn + 2);
}
