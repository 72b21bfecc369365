#pragma once

#include "support/ImportRedirector.h"

#include <windows.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace varnex::test
{

// A conformance test checks one thing that the module or a stand-in relies on, by a few ordinary calls:
//
//     TEST_CASE("files: the end of a file reads as nothing, successfully")
//     {
//         Verify(Documented("TRUE, 0 bytes", "windows/win32/api/fileapi/nf-fileapi-readfile"), [] { ... });
//     }
//
// The check's result is its answer: a short text, as the table of docs/testing.md shows it, that is the same at each
// run. Verify runs the check on the system as it is and on each fake that answers the same calls, and prints what it
// saw for the table, which tests/conformance/table.py makes. A test's name is its subject, a colon and a sentence.

// What a check expects to see.
struct Expectation
{
    std::string windows; // empty: not known
    std::string page;    // of learn.microsoft.com/en-us/: where Windows documents it, or leaves it open
    std::string wine8;   // empty: as Windows
    std::string wine10;
    std::string scriptedBy; // the test that scripts Windows' answer, which Wine does not give
    // Those that are known to differ: the answer, and why.
    std::map<std::string, std::pair<std::string, std::string>> fakes;
    bool bOfRoot = false;

    // Wine answers otherwise, in both versions unless told below; the test fails when it no longer does.
    Expectation& OnWine(const std::string& answer, const std::string& test = {});
    Expectation& OnWine8(const std::string& answer, const std::string& test = {});
    Expectation& OnWine10(const std::string& answer, const std::string& test = {});
    // Under Wine the superuser may do what nobody may on Windows; anybody else gets Windows' answer.
    Expectation& OnWineOfRoot(const std::string& answer);
    // A fake is known to answer otherwise.
    Expectation& OnFake(const std::string& fake, const std::string& answer, const std::string& why);
};
Expectation Documented(const std::string& answer, const std::string& page);
// Windows passes with any answer. Wine's must be told: nobody may believe more of a fake than of a system.
Expectation Unknown(const std::string& page = {});

// Something that answers in the system's place, from its making to its end.
struct Fake
{
    std::string name;
    std::function<std::shared_ptr<void>()> setUp;
    bool bLeadsOn = false; // to the system, whose answers it must give
};
using Fakes = std::vector<Fake>;

// The usual form: a stand-in that takes the redirector of this program.
template <class StandIn>
Fake FakeOf(const char* pszName)
{
    struct Machine
    {
        ImportRedirector redirector;
        StandIn standIn{redirector};
    };
    return {pszName, [] { return std::make_shared<Machine>(); }, false};
}

// A fake must answer as Windows documents; where that is not known, as the system that was seen. One that leads on to the
// system answers as that does.
void Verify(const Expectation& expect, const std::function<std::string()>& check, const Fakes& fakes = {});

// "8", "10" or empty: not under Wine.
std::string WineVersion();

} // namespace varnex::test
