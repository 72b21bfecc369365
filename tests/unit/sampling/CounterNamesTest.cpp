#include "sampling/CounterNames.h"

#include "unit/sampling/SamplingTest.h"
#include "unit/sampling/SystemLanguages.h"

#include <string>

namespace varnex::test
{

namespace
{

const std::string PREFILLED = "as it was";

class CounterNamesTest : public SamplingTest
{
protected:
    // The status is checked; what is given back is what stands in the buffer afterwards.
    static std::string Fetch(UINT nRole, DWORD cchBuffer = 64)
    {
        char szBuffer[64];
        strcpy(szBuffer, PREFILLED.c_str());
        DWORD cchGiven = cchBuffer;
        CHECK(GetCounterResourceString(nRole, szBuffer, &cchGiven) == 0);
        CHECK(cchGiven == cchBuffer);
        return szBuffer;
    }
};

} // namespace

TEST_CASE_METHOD(CounterNamesTest, "each language has its own counter names to the byte in all its sublanguages")
{
    for (const SystemLanguage& language : SystemLanguages())
    {
        for (const LANGID nLanguage : language.ids)
        {
            SetSystemLanguage(nLanguage);
            CHECK(CounterLanguage() == PRIMARYLANGID(nLanguage));
            for (UINT nRole = FIRST_ROLE; nRole <= LAST_ROLE; ++nRole)
            {
                CAPTURE(language.name, nLanguage, nRole);
                CHECK(Fetch(nRole) == language.names[nRole - FIRST_ROLE]);
            }
        }
    }
}

TEST_CASE_METHOD(CounterNamesTest, "every language without names of its own gets the English ones")
{
    for (WORD nPrimary = 0; nPrimary <= 0x3FF; ++nPrimary)
    {
        if (nPrimary != 7 && nPrimary != 10 && nPrimary != 12 && nPrimary != 16 && nPrimary != 22)
        {
            SetSystemLanguage(MAKELANGID(nPrimary, SUBLANG_DEFAULT));
            CAPTURE(nPrimary);
            CHECK(Fetch(IDS_PROCESSOR_TIME) == "% Processor Time");
            CHECK(CounterLanguage() == LANG_ENGLISH);
        }
    }
}

TEST_CASE_METHOD(CounterNamesTest, "the system language is looked up afresh for each name")
{
    SetSystemLanguage(MAKELANGID(LANG_FRENCH, SUBLANG_FRENCH));
    CHECK(Fetch(IDS_PROCESSOR_OBJECT) == "Processeur");
    SetSystemLanguage(MAKELANGID(LANG_ITALIAN, SUBLANG_ITALIAN));
    CHECK(Fetch(IDS_PROCESSOR_OBJECT) == "Processore");
}

TEST_CASE_METHOD(CounterNamesTest, "an unknown role gives 0 and leaves the buffer as it was")
{
    for (const UINT nRole : {0U, 100U, 110U, 0xFFFFFFFFU})
    {
        CAPTURE(nRole);
        CHECK(Fetch(nRole) == PREFILLED);
    }
    CheckNoLog();
}

TEST_CASE_METHOD(CounterNamesTest, "a null buffer gives -1 without a look at the system language")
{
    const DWORD cchBuffer = 64;
    m_redirector.CountCalls("GetSystemDefaultLangID");
    const ULONGLONG ullBefore = m_redirector.Calls("GetSystemDefaultLangID");
    CHECK(GetCounterResourceString(IDS_PROCESSOR_OBJECT, nullptr, &cchBuffer) == -1);
    CHECK(GetCounterResourceString(0, nullptr, nullptr) == -1);
    CHECK(m_redirector.Calls("GetSystemDefaultLangID") == ullBefore);
    CheckNoLog();
}

TEST_CASE_METHOD(CounterNamesTest, "a name is cut to the buffer without a report")
{
    struct Cut
    {
        DWORD cchBuffer;
        std::string name;
    };
    const auto cut = GENERATE(values<Cut>({{0, PREFILLED},
                                           {1, ""},
                                           {8, "% Proce"},
                                           {16, "% Processor Tim"},
                                           {17, "% Processor Time"},
                                           {18, "% Processor Time"}}));
    CAPTURE(cut.cchBuffer);
    CHECK(Fetch(IDS_PROCESSOR_TIME, cut.cchBuffer) == cut.name);
    CheckNoLog();
}

TEST_CASE_METHOD(CounterNamesTest, "nothing is written behind a name that was cut")
{
    char szBuffer[] = "0123456789";
    const DWORD cchBuffer = 8;
    CHECK(GetCounterResourceString(IDS_PROCESSOR_TIME, szBuffer, &cchBuffer) == 0);
    CHECK(std::string(szBuffer, sizeof szBuffer) == std::string("% Proce\0"
                                                                "89\0",
                                                                11));
}

TEST_CASE_METHOD(CounterNamesTest, "a null capacity leaves the buffer as it was")
{
    char szBuffer[] = "as it was";
    CHECK(GetCounterResourceString(IDS_PROCESSOR_OBJECT, szBuffer, nullptr) == 0);
    CHECK(szBuffer == PREFILLED);
}

TEST_CASE_METHOD(CounterNamesTest, "a wide name is converted whole from the system code page")
{
    struct Conversion
    {
        UINT nCodePage = 0;
        DWORD dwFlags = 0;
        std::string text;
        int cbText = 0;
        int cchTarget = 0;
    };
    Conversion asked;
    // Whatever this machine's code page is, it is 1252 here.
    m_redirector.Replace<decltype(::MultiByteToWideChar)>(
        "MultiByteToWideChar",
        [&](UINT nCodePage, DWORD dwFlags, LPCSTR pszText, int cbText, LPWSTR pwszTarget, int cchTarget)
        {
            asked = {nCodePage, dwFlags, pszText, cbText, cchTarget};
            return MultiByteToWideChar(1252, dwFlags, pszText, cbText, pwszTarget, cchTarget);
        });
    SetSystemLanguage(MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN));
    wchar_t wszName[256] = L"";
    CHECK(VNXGetStringW(IDS_PHYSICAL_DISK_OBJECT, wszName, 256));

    CHECK(std::wstring(wszName) == L"physikalischer Datentr\u00E4ger");
    CHECK(wcslen(wszName) == 26);
    CHECK(wszName[22] == L'\u00E4');
    CHECK(asked.nCodePage == CP_ACP);
    CHECK(asked.dwFlags == 0);
    CHECK(asked.text == SystemLanguages()[1].names[IDS_PHYSICAL_DISK_OBJECT - FIRST_ROLE]);
    CHECK(asked.cbText == -1);
    CHECK(asked.cchTarget == 256);
}

TEST_CASE_METHOD(CounterNamesTest, "the wide name of an unknown role is empty")
{
    wchar_t wszName[] = L"as it was";
    CHECK(VNXGetStringW(110, wszName, 10));
    CHECK(std::wstring(wszName).empty());
    CheckNoLog();
}

TEST_CASE_METHOD(CounterNamesTest, "a failed conversion is logged with the error and the name and the limit")
{
    FailConversion(1);
    wchar_t wszName[64];
    CHECK_FALSE(VNXGetStringW(IDS_TOTAL_INSTANCE, wszName, 64));
    CheckLog({{1, "VNXGetStringW -- MultiByteToWideChar fail, return error(1113), szAnsiString[Total], limit(64)."}});
}

TEST_CASE_METHOD(CounterNamesTest, "a name that does not fit its wide buffer is a failed conversion")
{
    SetSystemLanguage(MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN));
    wchar_t wszName[26];
    CHECK_FALSE(VNXGetStringW(IDS_PHYSICAL_DISK_OBJECT, wszName, 26));
    CHECK_THAT(ReadLog(), HasLine(1, "VNXGetStringW -- MultiByteToWideChar fail, return error(122), "
                                     "szAnsiString[physikalischer Datentr\xE4"
                                     "ger], limit(26)."));
}

} // namespace varnex::test
