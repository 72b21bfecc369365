#pragma once

#include <windows.h>

#include <string>

namespace varnex::test
{

class ModuleTree;

// A DLL loaded from a test's tree:
//
//     ModuleTree tree;
//     tree.CopyModule();
//     LoadedModule module(tree);
//     ImportRedirector redirector(module.Handle());
//     auto pfnStart = module.Export<decltype(::StartWorkingThread)>("StartWorkingThread");
//
// Declare it before the redirector and the clock, so that the scripts end before the module unloads.
//
// Start::Later answers for what the module does while it is attached, too: the imports are there, the entry point has
// not run (in the tree's copy its address is taken out of the header), and the test runs it itself:
//
//     LoadedModule module(tree, LoadedModule::Start::Later);
//     ImportRedirector redirector(module.Handle());
//     redirector.FailCall("CreateMutexW", 1, FailMode::FromThereOn, ERROR_ACCESS_DENIED);
//     CHECK(module.Attach());
class LoadedModule
{
public:
    enum class Start
    {
        AtOnce,
        Later
    };

    // Fails the test when the module does not load.
    explicit LoadedModule(const ModuleTree& tree, Start start = Start::AtOnce);
    // Detaches and unloads.
    ~LoadedModule();
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    HMODULE Handle() const noexcept { return m_hModule; }
    // Fails the test when there is no such export.
    template <class Signature>
    Signature* Export(const char* pszName) const
    {
        return reinterpret_cast<Signature*>(FindExport(pszName));
    }
    bool HasExport(const char* pszName) const;

    // Only for Start::Later: runs the entry point. An attach that returns false is followed by the detach, as the
    // loader does it.
    bool Attach();
    void Detach();
    // Unloads now; the destructor then does nothing. Returns whether the module is really gone.
    bool Unload();

private:
    void* FindExport(const char* pszName) const;
    BOOL CallEntry(DWORD dwReason);

    HMODULE m_hModule = nullptr;
    DWORD m_dwEntryAddress = 0; // relative; 0 when the loader runs it
    bool m_bAttached = false;
};

// Whether LoadLibrary accepts the tree's module: for tests of an attach that fails.
bool CanLoadModule(const ModuleTree& tree, DWORD* pdwError = nullptr);

} // namespace varnex::test
