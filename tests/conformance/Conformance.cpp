#include "Conformance.h"

#include "support/ScriptScope.h"

#include <catch2/catch.hpp>

#include <cstdio>

namespace varnex::test
{

namespace
{

std::string ExpectedOfSystem(const Expectation& expect)
{
    const std::string version = WineVersion();
    const std::string& ofWine = version == "8" ? expect.wine8 : expect.wine10;
    return version.empty() || ofWine.empty() ? expect.windows : ofWine;
}

std::string ExpectedOfFake(const Expectation& expect, const Fake& fake, const std::string& ofSystem)
{
    const auto found = expect.fakes.find(fake.name);
    if (found != expect.fakes.end())
    {
        return found->second.first;
    }
    if (fake.bLeadsOn)
    {
        return ofSystem;
    }
    return expect.windows.empty() ? expect.wine8 : expect.windows;
}

// A line for the table: fields between tabs.
void Print(const Expectation& expect, const std::string& seen, const std::string& fakes)
{
    const std::string version = WineVersion();
    const std::string system = version.empty() ? "Windows" : "Wine " + version;
    const std::string name = Catch::getResultCapture().getCurrentTestName();
    const UnscriptedScope unscripted;
    std::printf("SEEN");
    for (const std::string& field : {name, expect.windows, expect.page, system, seen, fakes, expect.scriptedBy})
    {
        std::printf("\t%s", field.c_str());
    }
    std::printf("\n");
    std::fflush(stdout);
}

} // namespace

Expectation& Expectation::OnWine(const std::string& answer, const std::string& test)
{
    wine10 = answer;
    return OnWine8(answer, test);
}

Expectation& Expectation::OnWine8(const std::string& answer, const std::string& test)
{
    wine8 = answer;
    scriptedBy = test;
    return *this;
}

Expectation& Expectation::OnWine10(const std::string& answer, const std::string& test)
{
    wine10 = answer;
    scriptedBy = test.empty() ? scriptedBy : test;
    return *this;
}

Expectation& Expectation::OnWineOfRoot(const std::string& answer)
{
    wchar_t wszUser[64] = L"";
    DWORD cchUser = 64;
    GetUserNameW(wszUser, &cchUser);
    bOfRoot = !WineVersion().empty() && _wcsicmp(wszUser, L"root") == 0;
    return bOfRoot ? OnWine(answer) : *this;
}

Expectation& Expectation::OnFake(const std::string& fake, const std::string& answer, const std::string& why)
{
    fakes[fake] = {answer, why};
    return *this;
}

Expectation Documented(const std::string& answer, const std::string& page)
{
    Expectation expect;
    expect.windows = answer;
    expect.page = page;
    return expect;
}

Expectation Unknown(const std::string& page)
{
    return Documented({}, page);
}

std::string WineVersion()
{
    const UnscriptedScope unscripted;
    const FARPROC pfnVersion = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version");
    if (pfnVersion == nullptr)
    {
        return {};
    }
    const std::string version = reinterpret_cast<const char* (*)()>(reinterpret_cast<void*>(pfnVersion))();
    return version.substr(0, version.find('.'));
}

void Verify(const Expectation& expect, const std::function<std::string()>& check, const Fakes& fakes)
{
    const std::string expected = ExpectedOfSystem(expect);
    const std::string seen = check();
    if (!expected.empty())
    {
        INFO("on the system itself; a difference that has gone is to be taken out of the expectation");
        CHECK(seen == expected);
    }
    else if (!WineVersion().empty())
    {
        FAIL_CHECK("Nothing says what Wine answers. It answered: " << seen);
    }

    std::string asked;
    for (const Fake& fake : fakes)
    {
        std::string answer;
        {
            const auto machine = fake.setUp();
            answer = check();
        }
        INFO("on the fake: " << fake.name);
        CHECK(answer == ExpectedOfFake(expect, fake, seen));
        const auto known = expect.fakes.find(fake.name);
        asked += (asked.empty() ? "" : "; ") + fake.name;
        asked += known == expect.fakes.end() ? "" : ": " + answer + " (" + known->second.second + ")";
    }
    Print(expect, expect.bOfRoot ? seen + " (as root)" : seen, asked);
}

} // namespace varnex::test
