#pragma once

#include "common/Handles.h"
#include "support/TestFiles.h"

#include <windows.h>

#include <map>
#include <string>
#include <vector>

namespace varnex::test
{

struct ChildOptions
{
    std::vector<std::wstring> arguments;
    std::map<std::wstring, std::wstring> environment; // added to this process's own, or replacing
    std::wstring directory;                           // empty: this process's own
};

// Another program, with what it prints (both streams, one after the other as they come):
//
//     ChildProcess child(program, options);
//     REQUIRE(child.WaitForEnd(10000));
//     CHECK(child.ExitCode() == 0);
//
// Code that ends the process, or needs a second one, is a hidden test case of the same program, run on its own:
//
//     TEST_CASE("child: dies by an access violation", "[.]") { ... }
//     ChildProcess child = ChildProcess::OfTestCase("child: dies by an access violation");
//
// A child that still runs at the end of its scope is killed.
class ChildProcess
{
public:
    ChildProcess(const std::wstring& program, const ChildOptions& options);
    static ChildProcess OfTestCase(const std::string& name, ChildOptions options = {});
    ~ChildProcess();
    ChildProcess(ChildProcess&& other) noexcept = default;
    ChildProcess& operator=(ChildProcess&&) = delete;

    // Whether it ended within that time.
    [[nodiscard]] bool WaitForEnd(DWORD dwMilliseconds) const;
    bool Runs() const;
    // Fails the test while it runs.
    DWORD ExitCode() const;
    // What it has printed so far.
    std::string Output() const;
    void Kill();
    DWORD Id() const noexcept { return m_dwId; }

private:
    UniqueHandle m_process;
    DWORD m_dwId = 0;
    std::wstring m_outputFile;
};

} // namespace varnex::test
