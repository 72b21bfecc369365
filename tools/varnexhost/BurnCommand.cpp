#include "Commands.h"
#include "HostError.h"
#include "StopSignal.h"
#include "common/Handles.h"

#include <memory>
#include <vector>

namespace varnex::host
{

namespace
{

struct BurnOptions
{
    DWORD dwSeconds = 60;
};

DWORD WINAPI BusyLoop(void*)
{
    for (volatile unsigned nTurn = 0;;)
    {
        nTurn = nTurn + 1;
    }
}

DWORD ProcessorCount() noexcept
{
    SYSTEM_INFO system = {};
    GetSystemInfo(&system);
    return system.dwNumberOfProcessors;
}

ExitCode RunBurn(const BurnOptions& options)
{
    const StopSignal stop;
    std::vector<UniqueHandle> loops;
    for (DWORD i = 0; i < ProcessorCount(); ++i)
    {
        loops.emplace_back(CreateThread(nullptr, 0, BusyLoop, nullptr, 0, nullptr));
        if (!loops.back())
        {
            throw HostError(L"A busy loop cannot be started: " + SystemErrorText(GetLastError()));
        }
    }
    // The loops never end by themselves; the end of the process ends them.
    stop.WaitFor(options.dwSeconds == 0 ? INFINITE : options.dwSeconds * 1000);
    return ExitCode::Done;
}

} // namespace

void AddBurnCommand(CLI::App& app, CommandChoice& choice)
{
    const auto options = std::make_shared<BurnOptions>();
    CLI::App* pBurn =
        app.add_subcommand("burn", "Keep every processor busy; watch --burn runs this in a process apart");
    pBurn->group(""); // not listed in the help
    pBurn->add_option("--seconds", options->dwSeconds, "How long; 0 until it is ended (default 60)")
        ->check(CLI::Range(0, 86400));
    pBurn->callback([&choice, options] { choice.run = [options] { return RunBurn(*options); }; });
}

} // namespace varnex::host
