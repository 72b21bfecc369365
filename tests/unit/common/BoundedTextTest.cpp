#include "common/BoundedText.h"

#include "support/ImportRedirector.h"

#include <catch2/catch.hpp>

#include <cstring>
#include <string>

using namespace varnex;

namespace
{

int LengthA(const char* pszFormat, ...)
{
    va_list arguments;
    va_start(arguments, pszFormat);
    const int cchText = FormattedLengthA(pszFormat, arguments);
    va_end(arguments);
    return cchText;
}

int LengthW(const wchar_t* pwszFormat, ...)
{
    va_list arguments;
    va_start(arguments, pwszFormat);
    const int cchText = FormattedLengthW(pwszFormat, arguments);
    va_end(arguments);
    return cchText;
}

} // namespace

TEST_CASE("a copy that fits is whole, one that does not is cut and terminated")
{
    struct Row
    {
        const char* pszSource;
        std::size_t cchTarget;
        const char* pszExpected;
    };
    const Row rows[] = {{"", 1, ""}, {"abc", 4, "abc"}, {"abc", 3, "ab"}, {"abc", 1, ""}, {"abc", 8, "abc"}};
    for (const Row& row : rows)
    {
        CAPTURE(row.pszSource, row.cchTarget);
        char szTarget[9] = "????????";
        CopyTextA(szTarget, row.cchTarget, row.pszSource);
        CHECK(std::string(szTarget) == row.pszExpected);
        CHECK(szTarget[row.cchTarget] == (row.cchTarget == 8 ? '\0' : '?')); // nothing behind the buffer is touched

        wchar_t wszTarget[9] = L"????????";
        const std::string source = row.pszSource;
        const std::string expected = row.pszExpected;
        CopyTextW(wszTarget, row.cchTarget, std::wstring(source.begin(), source.end()).c_str());
        CHECK(std::wstring(wszTarget) == std::wstring(expected.begin(), expected.end()));
        CHECK(wszTarget[row.cchTarget] == (row.cchTarget == 8 ? L'\0' : L'?'));
    }
}

TEST_CASE("a cut leaves no half of a pair of surrogates")
{
    wchar_t wszTarget[5];
    CopyTextW(wszTarget, L"ab\U0001F600");
    CHECK(std::wstring(wszTarget) == L"ab\U0001F600");
    CopyTextW(wszTarget, L"abc\U0001F600");
    CHECK(std::wstring(wszTarget) == L"abc");
    CopyTextW(wszTarget, L"abc\xD83D"); // half a pair of its own
    CHECK(std::wstring(wszTarget) == L"abc\xD83D");
    CopyTextW(wszTarget, 1, L"\U0001F600");
    CHECK(std::wstring(wszTarget).empty());
    const wchar_t wszPair[] = L"\U0001F600";
    CopyTextW(wszTarget, 1, wszPair + 1); // what stands before the text is not looked at
    CHECK(std::wstring(wszTarget).empty());
    CopyTextW(wszTarget, 2, L"\U0001F600");
    CHECK(std::wstring(wszTarget).empty());
}

TEST_CASE("a buffer of no characters is never written")
{
    char cTarget = '?';
    wchar_t wchTarget = L'?';
    CopyTextA(&cTarget, 0, "abc");
    FormatTextA(&cTarget, std::size_t{0}, "%s", "abc");
    CopyTextW(&wchTarget, 0, L"abc");
    AppendTextW(&wchTarget, 0, L"abc");
    FormatTextW(&wchTarget, std::size_t{0}, L"%s", L"abc");
    CHECK(cTarget == '?');
    CHECK(wchTarget == L'?');
}

TEST_CASE("a text is appended as far as it fits")
{
    wchar_t wszTarget[6] = L"ab";
    AppendTextW(wszTarget, 6, L"cd");
    CHECK(std::wstring(wszTarget) == L"abcd");
    AppendTextW(wszTarget, 6, L"efg");
    CHECK(std::wstring(wszTarget) == L"abcde");
    AppendTextW(wszTarget, 6, L"h");
    CHECK(std::wstring(wszTarget) == L"abcde");
}

TEST_CASE("a formatted text of exactly the buffer's size is cut by one and terminated")
{
    char szTarget[5];
    std::memset(szTarget, '?', sizeof szTarget);
    FormatTextA(szTarget, "%d", 1234);
    CHECK(std::string(szTarget) == "1234");
    std::memset(szTarget, '?', sizeof szTarget);
    FormatTextA(szTarget, "%d", 12345); // the run-time library leaves no terminator here
    CHECK(std::string(szTarget, 5) == std::string("1234\0", 5));
    std::memset(szTarget, '?', sizeof szTarget);
    FormatTextA(szTarget, "%d", 123456);
    CHECK(std::string(szTarget, 5) == std::string("1234\0", 5));

    wchar_t wszTarget[5] = {L'?', L'?', L'?', L'?', L'?'};
    FormatTextW(wszTarget, L"%d", 12345);
    CHECK(std::wstring(wszTarget, 5) == std::wstring(L"1234\0", 5));
}

TEST_CASE("a text that the run-time library does not format at all is empty")
{
    test::ImportRedirector redirector;
    char szTarget[] = "????";
    redirector.FailCall("_vsnprintf", 1, test::FailMode::Once, 0, static_cast<ULONGLONG>(-1));
    FormatTextA(szTarget, "%d", 12);
    CHECK(redirector.Failures("_vsnprintf") == 1);
    CHECK(std::string(szTarget).empty());

    wchar_t wszTarget[] = L"????";
    redirector.FailCall("_vsnwprintf", 1, test::FailMode::Once, 0, static_cast<ULONGLONG>(-1));
    FormatTextW(wszTarget, L"%d", 12);
    CHECK(redirector.Failures("_vsnwprintf") == 1);
    CHECK(std::wstring(wszTarget).empty());
}

TEST_CASE("%s in a wide format is a wide text, %S a narrow one")
{
    wchar_t wszTarget[32];
    FormatTextW(wszTarget, L"%s|%S", L"Netz\u00e9", "abc");
    CHECK(std::wstring(wszTarget) == L"Netz\u00e9|abc");
    CHECK(LengthW(L"%s", L"Netz") == 4);
}

TEST_CASE("a text from outside that looks like a format is only text")
{
    char szTarget[32];
    FormatTextA(szTarget, "%s", "100%s%n");
    CHECK(std::string(szTarget) == "100%s%n");
}

TEST_CASE("the length of a formatted text is known before it is written")
{
    CHECK(LengthA("%s-%04d", "ab", 7) == 7);
    CHECK(LengthA("%s", std::string(100'000, 'x').c_str()) == 100'000);
    CHECK(LengthW(L"%s-%04d", L"ab", 7) == 7);
    CHECK(LengthA("") == 0);
}
