// The run-time library's texts, files and numbers, and the conversions of the system's code page.

#include "Codes.h"
#include "Conformance.h"

#include "support/ModuleTree.h"
#include "support/TestFiles.h"

#include <catch2/catch.hpp>

#include <io.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace varnex::test
{

namespace
{

// The library's own functions, under every compiler setting.
int FormatInto(char* pszText, std::size_t cchText, const char* pszFormat, ...)
{
    std::va_list arguments;
    va_start(arguments, pszFormat);
    const int cchWritten = _vsnprintf(pszText, cchText, pszFormat, arguments);
    va_end(arguments);
    return cchWritten;
}

int FormatInto(wchar_t* pwszText, std::size_t cchText, const wchar_t* pwszFormat, ...)
{
    std::va_list arguments;
    va_start(arguments, pwszFormat);
    const int cchWritten = _vsnwprintf(pwszText, cchText, pwszFormat, arguments);
    va_end(arguments);
    return cchWritten;
}

int LengthOf(const wchar_t* pwszFormat, ...)
{
    std::va_list arguments;
    va_start(arguments, pwszFormat);
    const int cchText = _vscwprintf(pwszFormat, arguments);
    va_end(arguments);
    return cchText;
}

std::string Narrow(const wchar_t* pwszText)
{
    std::string text;
    for (; *pwszText != L'\0'; ++pwszText)
    {
        text += static_cast<char>(*pwszText);
    }
    return text;
}

// What a stream of that mode makes of these bytes of a file.
std::string ReadAs(const char* pszMode, const std::string& bytes)
{
    const ModuleTree tree;
    const std::wstring path = tree.Root() + L"\\file";
    WriteFileBytes(path, bytes);
    std::FILE* const pFile = _wfopen(path.c_str(), std::strcmp(pszMode, "rb") == 0 ? L"rb" : L"r");
    char achText[64];
    const std::size_t cbText = std::fread(achText, 1, sizeof achText, pFile);
    std::fclose(pFile);
    std::string answer;
    for (const char ch : std::string(achText, cbText))
    {
        answer += ch == '\r' ? "CR " : ch == '\n' ? "LF " : ch == '\x1A' ? "EOF " : std::string(1, ch) + " ";
    }
    return answer;
}

bool IsInheritable(const wchar_t* pwszMode)
{
    const ModuleTree tree;
    std::FILE* const pFile = _wfopen((tree.Root() + L"\\file").c_str(), pwszMode);
    DWORD dwFlags = 0;
    GetHandleInformation(reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(pFile))), &dwFlags);
    std::fclose(pFile);
    return (dwFlags & HANDLE_FLAG_INHERIT) != 0;
}

const std::string FORMAT_PAGE =
    "cpp/c-runtime-library/reference/vsnprintf-vsnprintf-vsnprintf-l-vsnwprintf-vsnwprintf-l";
const std::string LENGTH_PAGE = "cpp/c-runtime-library/reference/vscprintf-vscprintf-l-vscwprintf-vscwprintf-l";
const std::string PRINTF_PAGE = "cpp/c-runtime-library/reference/printf-printf-l-wprintf-wprintf-l";
const std::string FOPEN_PAGE = "cpp/c-runtime-library/reference/fopen-wfopen";
const std::string TO_NARROW_PAGE = "windows/win32/api/stringapiset/nf-stringapiset-widechartomultibyte";
const std::string TO_WIDE_PAGE = "windows/win32/api/stringapiset/nf-stringapiset-multibytetowidechar";

} // namespace

// --- formats --------------------------------------------------------------------------------------------------------

TEST_CASE("run-time library: a text that is cut has a negative length and no terminator")
{
    Verify(Documented("-1, 1234#", FORMAT_PAGE),
           []
           {
               char szText[] = "#####";
               const int cchText = FormatInto(szText, 4, "%s", "123456");
               return std::to_string(cchText) + ", " + szText;
           });
}

TEST_CASE("run-time library: a text that just fits has its length and no terminator")
{
    Verify(Documented("4, 1234#", FORMAT_PAGE),
           []
           {
               char szText[] = "#####";
               const int cchText = FormatInto(szText, 4, "%s", "1234");
               return std::to_string(cchText) + ", " + szText;
           });
}

TEST_CASE("run-time library: a text with room for its terminator has one")
{
    Verify(Documented("3, 123", FORMAT_PAGE),
           []
           {
               char szText[] = "#####";
               const int cchText = FormatInto(szText, 4, "%s", "123");
               return std::to_string(cchText) + ", " + szText;
           });
}

TEST_CASE("run-time library: a wide text that is cut has a negative length and no terminator")
{
    Verify(Documented("-1, 1234#", FORMAT_PAGE),
           []
           {
               wchar_t wszText[] = L"#####";
               const int cchText = FormatInto(wszText, 4, L"%s", L"123456");
               return std::to_string(cchText) + ", " + Narrow(wszText);
           });
}

TEST_CASE("run-time library: %s in a wide format is a wide text, and %S a narrow one")
{
    Verify(Documented("wide narrow", PRINTF_PAGE),
           []
           {
               wchar_t wszText[32] = L"";
               FormatInto(wszText, 32, L"%s %S", L"wide", "narrow");
               return Narrow(wszText);
           });
}

TEST_CASE("run-time library: the length of a wide text is told beforehand, without its terminator")
{
    Verify(Documented("9", LENGTH_PAGE), [] { return std::to_string(LengthOf(L"%s-%d", L"wide", 1234)); });
}

TEST_CASE("run-time library: a number of 64 bits is written by %lld")
{
    Verify(Documented("-9223372036854775807", PRINTF_PAGE),
           []
           {
               wchar_t wszText[32] = L"";
               FormatInto(wszText, 32, L"%lld", -9223372036854775807LL);
               return Narrow(wszText);
           });
}

TEST_CASE("run-time library: a precision cuts a text without reading further")
{
    Verify(Documented("ab", PRINTF_PAGE),
           []
           {
               const char achText[] = {'a', 'b', 'c'};
               char szText[8] = "";
               FormatInto(szText, 8, "%.*s", 2, achText);
               return std::string(szText);
           });
}

TEST_CASE("run-time library: a null text is written as such")
{
    Verify(Documented("(null)", PRINTF_PAGE),
           []
           {
               char szText[16] = "";
               FormatInto(szText, 16, "%s", static_cast<const char*>(nullptr));
               return std::string(szText);
           });
}

// --- numbers --------------------------------------------------------------------------------------------------------

TEST_CASE("run-time library: a number is read up to what is none, and 0 where there is none")
{
    Verify(Documented("12, 0, -3", "cpp/c-runtime-library/reference/atoi-atoi-l-wtoi-wtoi-l"),
           []
           {
               return std::to_string(_wtoi(L"  12abc")) + ", " + std::to_string(_wtoi(L"")) + ", " +
                      std::to_string(_wtoi(L"-3"));
           });
}

TEST_CASE("run-time library: a number that is too large for 32 bits")
{
    Verify(Unknown("cpp/c-runtime-library/reference/atoi-atoi-l-wtoi-wtoi-l").OnWine("2147483647"),
           [] { return std::to_string(_wtoi(L"4294967297")); });
}

TEST_CASE("run-time library: a number that is too large for 64 bits becomes the largest one")
{
    Verify(Documented("9223372036854775807, ERANGE",
                      "cpp/c-runtime-library/reference/strtoi64-wcstoi64-strtoi64-l-wcstoi64-l"),
           []
           {
               errno = 0;
               const long long llNumber = _wcstoi64(L"99999999999999999999", nullptr, 10);
               return std::to_string(llNumber) + (errno == ERANGE ? ", ERANGE" : "");
           });
}

TEST_CASE("run-time library: texts are compared without regard to the case of ASCII letters only")
{
    Verify(Documented("equal, unlike",
                      "cpp/c-runtime-library/reference/stricmp-wcsicmp-mbsicmp-stricmp-l-wcsicmp-l-mbsicmp-l"),
           []
           {
               return std::string(_wcsicmp(L"AbC", L"aBc") == 0 ? "equal" : "unlike") +
                      (_wcsicmp(L"\u00C4", L"\u00E4") == 0 ? ", equal" : ", unlike");
           });
}

// --- streams --------------------------------------------------------------------------------------------------------

TEST_CASE("run-time library: a text stream writes a line end as two bytes, and a carriage return besides")
{
    Verify(Documented("CR LF CR CR LF", FOPEN_PAGE),
           []
           {
               const ModuleTree tree;
               const std::wstring path = tree.Root() + L"\\file";
               std::FILE* const pFile = _wfopen(path.c_str(), L"w");
               std::fputs("\n\r\n", pFile);
               std::fclose(pFile);
               std::string answer;
               for (const char ch : ReadFileBytes(path))
               {
                   answer += answer.empty() ? "" : " ";
                   answer += ch == '\r' ? "CR" : "LF";
               }
               return answer;
           });
}

TEST_CASE("run-time library: a text stream reads two bytes as a line end, and a carriage return alone as itself")
{
    Verify(Documented("a LF CR b ", FOPEN_PAGE), [] { return ReadAs("r", "a\r\n\rb"); });
}

TEST_CASE("run-time library: a byte of 26 ends what a text stream reads")
{
    Verify(Documented("a ", FOPEN_PAGE),
           []
           {
               return ReadAs("r", "a\x1A"
                                  "b");
           });
}

TEST_CASE("run-time library: a binary stream reads every byte")
{
    Verify(Documented("a CR LF EOF b ", FOPEN_PAGE),
           []
           {
               return ReadAs("rb", "a\r\n\x1A"
                                   "b");
           });
}

TEST_CASE("run-time library: a stream's handle goes to children unless its mode has an N")
{
    Verify(Documented("inherited, not inherited", FOPEN_PAGE),
           []
           {
               return std::string(IsInheritable(L"w") ? "inherited" : "not inherited") +
                      (IsInheritable(L"wN") ? ", inherited" : ", not inherited");
           });
}

TEST_CASE("run-time library: wide text through a stream of the C locale loses what is not Latin")
{
    Verify(Unknown("cpp/c-runtime-library/reference/fputs-fputws").OnWine("lost"),
           []
           {
               const ModuleTree tree;
               const std::wstring path = tree.Root() + L"\\file";
               std::FILE* const pFile = _wfopen(path.c_str(), L"w");
               std::fputws(L"a\u4E2D"
                           L"b",
                           pFile);
               std::fclose(pFile);
               const std::string bytes = ReadFileBytes(path);
               return std::string(bytes.find("\xE4\xB8\xAD") != std::string::npos ? "kept" : "lost");
           });
}

// --- code pages -----------------------------------------------------------------------------------------------------

TEST_CASE("run-time library: a text that does not fit its narrow buffer is not converted")
{
    Verify(Documented("0, ERROR_INSUFFICIENT_BUFFER", TO_NARROW_PAGE),
           []
           {
               char szText[4];
               const int cbText = WideCharToMultiByte(CP_ACP, 0, L"123456", -1, szText, 4, nullptr, nullptr);
               const DWORD dwError = GetLastError();
               return std::to_string(cbText) + ", " + ErrorName(dwError);
           });
}

TEST_CASE("run-time library: a text of a given length is converted without a terminator")
{
    Verify(Documented("3, abc#", TO_NARROW_PAGE),
           []
           {
               char szText[] = "####";
               const int cbText = WideCharToMultiByte(CP_ACP, 0, L"abcd", 3, szText, 4, nullptr, nullptr);
               return std::to_string(cbText) + ", " + szText;
           });
}

TEST_CASE("run-time library: a text of length 0 is an error")
{
    Verify(Documented("0, ERROR_INVALID_PARAMETER", TO_NARROW_PAGE),
           []
           {
               SetLastError(ERROR_SUCCESS);
               const int cbText = WideCharToMultiByte(CP_ACP, 0, L"", 0, nullptr, 0, nullptr, nullptr);
               const DWORD dwError = GetLastError();
               return std::to_string(cbText) + ", " + ErrorName(dwError);
           });
}

TEST_CASE("run-time library: a terminated text is widened with its terminator")
{
    Verify(Documented("4", TO_WIDE_PAGE),
           [] { return std::to_string(MultiByteToWideChar(CP_ACP, 0, "abc", -1, nullptr, 0)); });
}

TEST_CASE("run-time library: a text that does not fit its wide buffer is not converted")
{
    Verify(Documented("0, ERROR_INSUFFICIENT_BUFFER", TO_WIDE_PAGE),
           []
           {
               wchar_t wszText[3];
               const int cchText = MultiByteToWideChar(CP_ACP, 0, "abcdef", -1, wszText, 3);
               const DWORD dwError = GetLastError();
               return std::to_string(cchText) + ", " + ErrorName(dwError);
           });
}

TEST_CASE("run-time library: a character that Latin has no place for becomes a question mark")
{
    Verify(Documented("?, told", TO_NARROW_PAGE),
           []
           {
               char szText[4] = "";
               BOOL bDefault = FALSE;
               WideCharToMultiByte(1252, 0, L"\u4E2D", -1, szText, 4, nullptr, &bDefault);
               return std::string(szText) + (bDefault ? ", told" : ", not told");
           });
}

} // namespace varnex::test
