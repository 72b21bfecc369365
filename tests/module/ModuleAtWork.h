#pragma once

#include "support/ConfigBuilder.h"
#include "support/ImportRedirector.h"
#include "support/LoadedModule.h"
#include "support/LogFile.h"
#include "support/ModuleTree.h"
#include "support/PrivateMutexes.h"
#include "support/ScriptedExports.h"
#include "support/ScriptedSystemTimes.h"
#include "support/VirtualClock.h"

#include <varnex/Varnex.h>

#include <string>
#include <vector>

namespace varnex::test
{

// A tree that holds the shipped DLL and its configuration.
class ShippedTree : public ModuleTree
{
public:
    explicit ShippedTree(const ConfigBuilder& config)
    {
        CopyModule();
        WriteConfig(config);
    }
};

// The shipped DLL, loaded, under virtual time and a scripted processor load.
class ModuleAtWork
{
public:
    explicit ModuleAtWork(const ConfigBuilder& config = {});
    // Ends what a test that failed half-way has left running: nothing may outlive the module's code.
    ~ModuleAtWork();
    ModuleAtWork(const ModuleAtWork&) = delete;
    ModuleAtWork& operator=(const ModuleAtWork&) = delete;

    // Start and stop as the host calls them.
    int Start(unsigned nAlertType);
    int Stop(unsigned nAlertType);
    // Stops that monitor and lets it end.
    void StopAndEnd(unsigned nAlertType);
    // Starts the CPU monitor with log level 4 configured, lets it take the level over, and ends it. What it logged
    // does not count as news.
    void TakeOverLogLevel4();

    LogFile ReadLog() const { return LogFile(tree); }
    // The messages since the last call, each as "2 text".
    std::vector<std::string> News();

    ShippedTree tree;
    LoadedModule module{tree, LoadedModule::Start::Later};
    ImportRedirector redirector{module.Handle()};
    PrivateMutexes mutexes{redirector};
    bool bAttached{module.Attach()};
    VirtualClock clock{redirector};
    ScriptedExports exports{redirector};
    ScriptedSystemTimes cpu{exports};

private:
    std::size_t m_nLinesSeen = 0;
};

} // namespace varnex::test
