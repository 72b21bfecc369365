#include "ModuleAtWork.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

ModuleAtWork::ModuleAtWork(const ConfigBuilder& config) : tree(config)
{
    REQUIRE(bAttached);
    cpu.Restart(); // the module has taken no reading yet
}

ModuleAtWork::~ModuleAtWork()
{
    Stop(VARNEX_ALERT_ALL);
    (void)clock.AdvanceUntil([this] { return clock.Workers() == 0; }, 60);
}

int ModuleAtWork::Start(unsigned nAlertType)
{
    return module.Export<decltype(::StartWorkingThread)>("StartWorkingThread")(nAlertType);
}

int ModuleAtWork::Stop(unsigned nAlertType)
{
    return module.Export<decltype(::StopWorkingThread)>("StopWorkingThread")(nAlertType);
}

void ModuleAtWork::StopAndEnd(unsigned nAlertType)
{
    Stop(nAlertType);
    clock.AdvanceUntilWorkersEnd(2);
}

void ModuleAtWork::TakeOverLogLevel4()
{
    const std::string config = ReadFileBytes(tree.InBin(L"KpmCfg.xml"));
    tree.WriteConfig(ConfigBuilder().SetLogLevel(4));
    Start(VARNEX_ALERT_CPU);
    clock.WaitUntilAllAsleep();
    StopAndEnd(VARNEX_ALERT_CPU);
    tree.WriteConfigText(config);
    News();
}

std::vector<std::string> ModuleAtWork::News()
{
    const LogFile log = ReadLog();
    std::vector<std::string> news;
    for (; m_nLinesSeen < log.Lines().size(); ++m_nLinesSeen)
    {
        const LogLine& line = log.Lines()[m_nLinesSeen];
        news.push_back(std::to_string(line.nLevel) + " " + line.text);
    }
    return news;
}

} // namespace varnex::test
