#pragma once

#include "CountsMutex.h"
#include "support/ImportRedirector.h"
#include "support/ModulePathScript.h"
#include "support/ModuleTree.h"
#include "support/PrivateMutexes.h"

#include <string>
#include <vector>

namespace varnex::test
{

// A configuration in a directory of its own, a log of every level, and COM on the test's thread. The module keeps the
// path of its configuration for the process's life: a test case makes one fixture, has no sections, and runs in a
// process of its own.
class ConfigFixture
{
public:
    enum class Com
    {
        Initialised,
        Absent
    };

    explicit ConfigFixture(Com com = Com::Initialised);
    // For a child: its parent's configuration and mutex, and a log of its own.
    ConfigFixture(const std::wstring& binPath, const std::wstring& key);
    ~ConfigFixture();
    ConfigFixture(const ConfigFixture&) = delete;
    ConfigFixture& operator=(const ConfigFixture&) = delete;

private:
    const std::wstring m_key;

public:
    ModuleTree tree;
    ImportRedirector redirector;
    ModulePathScript modulePath;
    PrivateMutexes logMutex;
    CountsMutex mutex;

    // What makes this test's objects private.
    const std::wstring& Key() const noexcept { return m_key; }
    std::wstring File() const; // ...\bin\KpmCfg.xml
    std::string FileBytes() const;
    std::string FileInLog() const; // the path as the log has it
    // What was logged since the last call, line by line without the time: "[2] - text".
    std::vector<std::string> TakeLog();

private:
    ConfigFixture(Com com, const std::wstring& modulePathText, const std::wstring& key);

    bool m_bComInitialised;
    std::size_t m_nLinesTaken = 0;
};

using Lines = std::vector<std::string>;

// A line of TakeLog, with "%s" standing for each argument in turn.
std::string Line(int nLevel, std::string text, const std::vector<std::string>& arguments = {});

// As %p and 0x%08x of the C library write them.
std::string PointerText(const void* pAddress);
std::string StatusText(int nStatus);

} // namespace varnex::test
