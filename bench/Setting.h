#pragma once

#include "Comparison.h"

#include "support/ModuleTree.h"

#include <string>

#include <windows.h>

namespace varnex::bench
{

// A directory tree with the module in it, and this program's module code made to believe that it is that module:
// its own path is the copy's, its log lies in the tree, and it is silent until a row wants lines.
//
// One for a process: the path of the configuration is found once.
class Setting
{
public:
    explicit Setting(const Effort& chosenEffort);
    ~Setting();
    Setting(const Setting&) = delete;
    Setting& operator=(const Setting&) = delete;

    const Effort effort;
    test::ModuleTree tree;

    // Writes the configuration that a host installs, with one second of interval for every monitor.
    // Today's counts are in it, all 0.
    void WriteConfig();
    // Writes the configuration as it is delivered: default policies, the default level of the log. With today's counts,
    // all 0, and with the thresholds of processors and memory out of reach, since this very run keeps both busy.
    void WriteExampleConfig();

private:
    HMODULE m_hModule;
};

// COM on this thread for a scope, as single-threaded apartment.
class ComScope
{
public:
    ComScope();
    ~ComScope();
    ComScope(const ComScope&) = delete;
    ComScope& operator=(const ComScope&) = delete;
};

} // namespace varnex::bench
