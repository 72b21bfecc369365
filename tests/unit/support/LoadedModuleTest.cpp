#include "support/LoadedModule.h"
#include "support/ImportRedirector.h"
#include "support/ModuleTree.h"
#include "support/VirtualClock.h"

#include "SampleModule.h"

#include <catch2/catch.hpp>

#include <windows.h>

namespace varnex::test
{

namespace
{

class SampleTree : public ModuleTree
{
public:
    SampleTree() { CopyModule(ProgramDirectory() + L"\\SupportSample.dll"); }
};

} // namespace

TEST_CASE("a module is loaded from its tree and unloaded")
{
    const SampleTree tree;
    LoadedModule module(tree);
    CHECK(module.HasExport("SampleTick"));
    CHECK_FALSE(module.HasExport("DllMain"));
    CHECK(module.Export<decltype(SampleTick)>("SampleTick")() != 0);
    CHECK(GetModuleHandleW(L"Varnex.dll") == module.Handle());
    CHECK(module.Unload());
    CHECK(GetModuleHandleW(L"Varnex.dll") == nullptr);
}

TEST_CASE("the imports of a module are redirected, those of the test program are not")
{
    const SampleTree tree;
    const LoadedModule module(tree);
    ImportRedirector redirector(module.Handle());
    redirector.Replace<decltype(::GetTickCount)>("GetTickCount", [] { return DWORD{4711}; });
    CHECK(module.Export<decltype(SampleTick)>("SampleTick")() == 4711);
    CHECK(GetTickCount() != 4711);
}

TEST_CASE("a failing import of a module is seen by the module")
{
    const SampleTree tree;
    const LoadedModule module(tree);
    const auto pfnCreate = module.Export<decltype(SampleCreateEvent)>("SampleCreateEvent");
    ImportRedirector redirector(module.Handle());
    redirector.FailCall("CreateEventW", 2, FailMode::Once, ERROR_ACCESS_DENIED);
    CHECK(pfnCreate() == ERROR_SUCCESS);
    CHECK(pfnCreate() == ERROR_ACCESS_DENIED);
    CHECK(pfnCreate() == ERROR_SUCCESS);
}

TEST_CASE("a redirector may outlive its module, also when it is loaded again")
{
    const SampleTree tree;
    LoadedModule module(tree);
    {
        ImportRedirector redirector(module.Handle());
        redirector.Replace<decltype(::GetTickCount)>("GetTickCount", [] { return DWORD{4711}; });
        REQUIRE(module.Unload());
    }
    ImportRedirector* pRedirector = nullptr;
    {
        LoadedModule second(tree);
        pRedirector = new ImportRedirector(second.Handle());
        pRedirector->Replace<decltype(::GetTickCount)>("GetTickCount", [] { return DWORD{4711}; });
    }
    const LoadedModule third(tree);
    delete pRedirector;
    CHECK(third.Export<decltype(SampleTick)>("SampleTick")() != 4711);
}

TEST_CASE("virtual time drives a module's threads and the test's calls into it")
{
    const SampleTree tree;
    const LoadedModule module(tree);
    ImportRedirector redirector(module.Handle());
    VirtualClock clock(redirector);
    const auto pfnSeconds = module.Export<decltype(SampleSeconds)>("SampleSeconds");
    const DWORD dwTick = module.Export<decltype(SampleTick)>("SampleTick")();
    REQUIRE(module.Export<decltype(SampleStart)>("SampleStart")() == 1);
    clock.Advance(3600);
    CHECK(pfnSeconds() == 3600);
    module.Export<decltype(SampleSleep)>("SampleSleep")(400000);
    CHECK(pfnSeconds() == 4000);
    CHECK(module.Export<decltype(SampleTick)>("SampleTick")() == dwTick + 4000000);
    module.Export<decltype(SampleStop)>("SampleStop")();
    clock.AdvanceUntilWorkersEnd(2);
}

TEST_CASE("what a module does while it is attached can be scripted")
{
    const SampleTree tree;
    LoadedModule module(tree, LoadedModule::Start::Later);
    ImportRedirector redirector(module.Handle());
    redirector.CountCalls("CreateMutexW");
    redirector.CountCalls("CloseHandle");
    CHECK(module.Attach());
    CHECK(redirector.Calls("CreateMutexW") == 1);
    CHECK(redirector.Calls("CloseHandle") == 0);
    module.Detach();
    CHECK(redirector.Calls("CloseHandle") == 1);
}

TEST_CASE("a module that cannot be attached says so, and is detached at once")
{
    const SampleTree tree;
    LoadedModule module(tree, LoadedModule::Start::Later);
    ImportRedirector redirector(module.Handle());
    redirector.FailCall("CreateMutexW", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED);
    redirector.CountCalls("OutputDebugStringW");
    CHECK_FALSE(module.Attach());
    CHECK(redirector.Calls("OutputDebugStringW") == 1);
    redirector.StopFailing("CreateMutexW");
    CHECK(module.Attach());
}

TEST_CASE("a file that is no module cannot be loaded")
{
    ModuleTree tree;
    WriteFileBytes(tree.ModulePath(), "no module");
    DWORD dwError = 0;
    CHECK_FALSE(CanLoadModule(tree, &dwError));
    CHECK(dwError == ERROR_BAD_EXE_FORMAT);
    const SampleTree good;
    CHECK(CanLoadModule(good));
}

} // namespace varnex::test
