#include "PolicyFile.h"

#include "support/ModuleTree.h"
#include "support/ScriptScope.h"

#include <catch2/catch.hpp>

#include <regex>

#include <windows.h>

namespace varnex::test
{

namespace
{

constexpr int TRIES = 100;
constexpr DWORD PAUSE_MS = 20;

void ChangeValues(const ModuleTree& tree, const std::string& value, int nNew)
{
    const UnscriptedScope unscripted;
    const std::wstring path = tree.InBin(L"KpmCfg.xml");
    const std::wstring edited = tree.InBin(L"KpmCfg.edited");
    for (int i = 0; i < TRIES; ++i)
    {
        const std::string text = std::regex_replace(ReadFileBytes(path), std::regex("(" + value + ">)-?[0-9]+(</)"),
                                                    "$01" + std::to_string(nNew) + "$2");
        WriteFileBytes(edited, text);
        if (MoveFileExW(edited.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE)
        {
            return;
        }
        Sleep(PAUSE_MS); // the module has it open
    }
    FAIL("KpmCfg.xml stayed in use");
}

} // namespace

void ChangeThresholds(const ModuleTree& tree, int nThreshold)
{
    ChangeValues(tree, "Threshold", nThreshold);
}

void ChangeIntervals(const ModuleTree& tree, int nSeconds)
{
    ChangeValues(tree, "Interval", nSeconds);
}

} // namespace varnex::test
