#include "ModuleInHost.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

constexpr wchar_t MODULE_VARIABLE[] = L"VARNEX_TEST_MODULE";

} // namespace

ModuleInHost::ModuleInHost()
{
    wchar_t wszPath[MAX_PATH];
    REQUIRE(GetEnvironmentVariableW(MODULE_VARIABLE, wszPath, MAX_PATH) != 0);
    m_module.Reset(LoadLibraryW(wszPath));
    REQUIRE(m_module);
}

ChildOptions ModuleInHost::OptionsFor(const ModuleTree& tree)
{
    ChildOptions options;
    options.environment[MODULE_VARIABLE] = tree.ModulePath();
    return options;
}

} // namespace varnex::test
