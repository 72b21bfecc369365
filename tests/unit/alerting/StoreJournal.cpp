#include "StoreJournal.h"

#include "diag/SPLogger.h"
#include "entry/ModuleState.h"

namespace varnex::test
{

namespace
{

std::string NameOfPath(const std::string& path)
{
    return path.substr(path.rfind('\\') + 1);
}

} // namespace

StoreJournal::StoreJournal(ImportRedirector& imports) : m_imports(imports), m_nFormerLevel(Log()->Level)
{
    Log()->Level = 0;
    ScriptMutex();
    ScriptFiles();
}

StoreJournal::~StoreJournal()
{
    Log()->Level = m_nFormerLevel;
}

void StoreJournal::Note(const std::string& event)
{
    const LastErrorKeeper keeper;
    m_events.push_back(event);
}

std::string StoreJournal::NameOf(HANDLE hFile) const
{
    const auto found = m_openFiles.find(hFile);
    return found == m_openFiles.end() ? "" : found->second;
}

void StoreJournal::ScriptMutex()
{
    m_imports.Replace<decltype(::WaitForSingleObject)>("WaitForSingleObject",
                                                       [this](HANDLE hObject, DWORD dwMilliseconds)
                                                       {
                                                           if (hObject == g_hAlertFileMutex)
                                                           {
                                                               Note("wait " + std::to_string(dwMilliseconds));
                                                           }
                                                           return WaitForSingleObject(hObject, dwMilliseconds);
                                                       });
    m_imports.Replace<decltype(::ReleaseMutex)>("ReleaseMutex",
                                                [this](HANDLE hMutex)
                                                {
                                                    Note(hMutex == g_hAlertFileMutex ? "release"
                                                                                     : "release of another mutex");
                                                    return ReleaseMutex(hMutex);
                                                });
}

void StoreJournal::ScriptFiles()
{
    m_imports.Replace<decltype(::CreateFileA)>(
        "CreateFileA",
        [this](LPCSTR pszPath, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pSecurity, DWORD dwCreation,
               DWORD dwFlags, HANDLE hTemplate)
        {
            Note("open " + NameOfPath(pszPath));
            const HANDLE hFile = CreateFileA(pszPath, dwAccess, dwShare, pSecurity, dwCreation, dwFlags, hTemplate);
            const LastErrorKeeper keeper;
            m_openFiles[hFile] = NameOfPath(pszPath);
            return hFile;
        });
    m_imports.Replace<decltype(::WriteFile)>(
        "WriteFile",
        [this](HANDLE hFile, LPCVOID pData, DWORD cbData, LPDWORD pcbWritten, LPOVERLAPPED pOverlapped)
        {
            Note("write " + NameOf(hFile));
            return WriteFile(hFile, pData, cbData, pcbWritten, pOverlapped);
        });
    m_imports.Replace<decltype(::CloseHandle)>("CloseHandle",
                                               [this](HANDLE hObject)
                                               {
                                                   if (!NameOf(hObject).empty())
                                                   {
                                                       Note("close " + NameOf(hObject));
                                                       m_openFiles.erase(hObject);
                                                   }
                                                   return CloseHandle(hObject);
                                               });
    m_imports.Replace<decltype(::MoveFileExA)>("MoveFileExA",
                                               [this](LPCSTR pszFrom, LPCSTR pszTo, DWORD dwFlags)
                                               {
                                                   Note("move " + NameOfPath(pszFrom) + " to " + NameOfPath(pszTo) +
                                                        " with " + std::to_string(dwFlags));
                                                   return MoveFileExA(pszFrom, pszTo, dwFlags);
                                               });
}

} // namespace varnex::test
