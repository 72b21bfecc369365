#include "WrittenPaths.h"

#include "common/Procedure.h"

#include <winternl.h>

#include <algorithm>
#include <cwchar>

namespace varnex::test
{

namespace
{

constexpr wchar_t MODULE_NAME[] = L"Varnex.dll";
constexpr ULONG REASON_LOADED = 1;
constexpr DWORD WRITING = GENERIC_WRITE | GENERIC_ALL | MAXIMUM_ALLOWED | FILE_WRITE_DATA | FILE_APPEND_DATA |
                          FILE_WRITE_ATTRIBUTES | FILE_WRITE_EA | DELETE | WRITE_DAC | WRITE_OWNER;

using Note = std::function<void(const std::wstring&)>;

void AddPath(const SharedPage<PathPage>& page, const std::wstring& path)
{
    wchar_t wszPath[MAX_PATH] = L"";
    if (GetFullPathNameW(path.c_str(), MAX_PATH, wszPath, nullptr) == 0)
    {
        wcsncpy(wszPath, path.c_str(), MAX_PATH - 1);
    }
    while (InterlockedExchange(&page->nLock, 1) != 0)
    {
        Sleep(0);
    }
    ++page->nCalls;
    auto* const pBegin = page->awszPaths;
    auto* const pEnd = pBegin + page->nPaths;
    const bool bKnown =
        std::any_of(pBegin, pEnd, [&](const auto& wszKnown) { return _wcsicmp(wszKnown, wszPath) == 0; });
    if (!bKnown && page->nPaths < PathPage::MAX_PATHS)
    {
        std::wcscpy(*pEnd, wszPath);
        ++page->nPaths;
    }
    InterlockedExchange(&page->nLock, 0);
}

std::wstring Wide(const char* pszPath)
{
    wchar_t wszPath[MAX_PATH] = L"";
    MultiByteToWideChar(CP_ACP, 0, pszPath, -1, wszPath, MAX_PATH);
    return wszPath;
}

// A file that is only read is opened to read and where it is.
bool IsWritten(DWORD dwAccess, DWORD dwHow)
{
    return (dwAccess & WRITING) != 0 || dwHow != OPEN_EXISTING;
}

void WatchCreateFileW(ImportRedirector& imports, const Note& note)
{
    imports.Replace<decltype(::CreateFileW)>(
        "CreateFileW",
        [note](LPCWSTR pwszPath, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pSecurity, DWORD dwHow,
               DWORD dwAttributes, HANDLE hTemplate)
        {
            if (IsWritten(dwAccess, dwHow))
            {
                note(pwszPath);
            }
            return CreateFileW(pwszPath, dwAccess, dwShare, pSecurity, dwHow, dwAttributes, hTemplate);
        });
}

} // namespace

// As ntdll hands it over; the system's headers have it not.
struct WatchedModule::Notification
{
    ULONG nFlags;
    const UNICODE_STRING* pFullName;
    const UNICODE_STRING* pBaseName;
    void* pBase;
    ULONG cbImage;
};

std::set<std::wstring> PathsIn(const SharedPage<PathPage>& page)
{
    return std::set<std::wstring>(page->awszPaths, page->awszPaths + page->nPaths);
}

WatchedModule::WatchedModule(const std::wstring& modulePath, const std::wstring& pageName) : m_page(pageName)
{
    using Register = LONG(NTAPI*)(ULONG, decltype(&WatchedModule::OnLoad), void*, void**);
    using Unregister = LONG(NTAPI*)(void*);
    const HMODULE hSystem = GetModuleHandleW(L"ntdll.dll");
    void* pCookie = nullptr;
    REQUIRE(ProcedureOf<Register>(hSystem, "LdrRegisterDllNotification")(0, &OnLoad, this, &pCookie) == 0);
    m_hModule = LoadLibraryW(modulePath.c_str());
    ProcedureOf<Unregister>(hSystem, "LdrUnregisterDllNotification")(pCookie);
    REQUIRE(m_hModule != nullptr);
    REQUIRE(m_imports);
    REQUIRE(m_page->nCalls > 0); // the log at the least, or the entry point ran unseen
    WatchDocuments();
}

WatchedModule::~WatchedModule() = default;

// The module's imports are there, and its entry point has not run.
void CALLBACK WatchedModule::OnLoad(ULONG nReason, const Notification* pNotification, void* pWatched)
{
    const UNICODE_STRING& name = *pNotification->pBaseName;
    if (nReason == REASON_LOADED && _wcsnicmp(name.Buffer, MODULE_NAME, name.Length / sizeof(wchar_t)) == 0)
    {
        static_cast<WatchedModule*>(pWatched)->WatchModule(static_cast<HMODULE>(pNotification->pBase));
    }
}

void WatchedModule::WatchModule(HMODULE hModule)
{
    const Note note = [this](const std::wstring& path) { AddPath(m_page, path); };
    m_imports = std::make_unique<ImportRedirector>(hModule);
    WatchCreateFileW(*m_imports, note);
    m_imports->Replace<decltype(::CreateFileA)>(
        "CreateFileA",
        [note](LPCSTR pszPath, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pSecurity, DWORD dwHow,
               DWORD dwAttributes, HANDLE hTemplate)
        {
            if (IsWritten(dwAccess, dwHow))
            {
                note(Wide(pszPath));
            }
            return CreateFileA(pszPath, dwAccess, dwShare, pSecurity, dwHow, dwAttributes, hTemplate);
        });
    m_imports->Replace<decltype(::CreateDirectoryA)>("CreateDirectoryA",
                                                     [note](LPCSTR pszPath, LPSECURITY_ATTRIBUTES pSecurity)
                                                     {
                                                         note(Wide(pszPath));
                                                         return CreateDirectoryA(pszPath, pSecurity);
                                                     });
    m_imports->Replace<decltype(::DeleteFileW)>("DeleteFileW",
                                                [note](LPCWSTR pwszPath)
                                                {
                                                    note(pwszPath);
                                                    return DeleteFileW(pwszPath);
                                                });
    m_imports->Replace<decltype(::MoveFileExA)>("MoveFileExA",
                                                [note](LPCSTR pszFrom, LPCSTR pszTo, DWORD dwFlags)
                                                {
                                                    note(Wide(pszFrom));
                                                    note(Wide(pszTo));
                                                    return MoveFileExA(pszFrom, pszTo, dwFlags);
                                                });
    m_imports->Replace<decltype(::MoveFileExW)>("MoveFileExW",
                                                [note](LPCWSTR pwszFrom, LPCWSTR pwszTo, DWORD dwFlags)
                                                {
                                                    note(pwszFrom);
                                                    note(pwszTo);
                                                    return MoveFileExW(pwszFrom, pwszTo, dwFlags);
                                                });
}

void WatchedModule::WatchDocuments()
{
    const HMODULE hDocuments = LoadLibraryW(L"msxml3.dll");
    REQUIRE(hDocuments != nullptr);
    m_documentImports = std::make_unique<ImportRedirector>(hDocuments);
    WatchCreateFileW(*m_documentImports, [this](const std::wstring& path) { AddPath(m_page, path); });
}

} // namespace varnex::test
