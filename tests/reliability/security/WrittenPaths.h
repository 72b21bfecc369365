#pragma once

#include "reliability/processes/SharedPage.h"
#include "support/ImportRedirector.h"

#include <memory>
#include <set>
#include <string>

namespace varnex::test
{

// The files and directories that a host's module opens for writing, makes, moves or deletes, from before its entry point
// runs: each whole path once. They stand in a page that outlives the host.
struct PathPage
{
    static constexpr LONG MAX_PATHS = 256;

    volatile LONG nLock;
    volatile LONG nPaths;
    volatile LONG nCalls; // that named them
    wchar_t awszPaths[MAX_PATHS][MAX_PATH];
};

std::set<std::wstring> PathsIn(const SharedPage<PathPage>& page);

// The host's end. Loads the module, and watches its imports and those of the system's document object, which writes the
// configuration.
class WatchedModule
{
public:
    WatchedModule(const std::wstring& modulePath, const std::wstring& pageName);
    ~WatchedModule();
    WatchedModule(const WatchedModule&) = delete;
    WatchedModule& operator=(const WatchedModule&) = delete;

    HMODULE Handle() const noexcept { return m_hModule; }
    ImportRedirector& Imports() const noexcept { return *m_imports; }

private:
    struct Notification;
    static void CALLBACK OnLoad(ULONG nReason, const Notification* pNotification, void* pWatched);
    void WatchModule(HMODULE hModule);
    void WatchDocuments();

    SharedPage<PathPage> m_page;
    HMODULE m_hModule = nullptr;
    std::unique_ptr<ImportRedirector> m_imports;
    std::unique_ptr<ImportRedirector> m_documentImports;
};

} // namespace varnex::test
