#include "alerting/AlertStore.h"

#include "alerting/AlertFile.h"
#include "alerting/AlertLine.h"
#include "common/AnsiText.h"
#include "common/BoundedText.h"
#include "common/EveryoneAccess.h"
#include "common/Handles.h"
#include "common/LastError.h"
#include "common/LocalTime.h"
#include "common/ModulePath.h"
#include "common/SharingPatience.h"
#include "common/WriteWhole.h"
#include "diag/SPLogger.h"
#include "entry/ModuleState.h"

#include <cstdint>
#include <cstring>

namespace varnex
{

namespace
{

constexpr char STORE_MUTEX_NAME[] = "Global\\{A2C32408-95FF-4183-8208-1C370A075B80}";
constexpr DWORD MUTEX_WAIT_MS = 60'000;
constexpr std::int64_t KEEP_SECONDS = 259'200; // three days
constexpr DWORD SHARE_ALL_BUT_DELETE = FILE_SHARE_READ | FILE_SHARE_WRITE;

// The result of the wait is not looked at: after 60 seconds, or with a mutex that was abandoned, the store goes on all
// the same, and giving back a mutex that is not held fails without harm.
MutexHold WaitForStore() noexcept
{
    if (g_hAlertFileMutex != nullptr)
    {
        WaitForSingleObject(g_hAlertFileMutex, MUTEX_WAIT_MS);
    }
    return MutexHold(g_hAlertFileMutex);
}

struct StorePaths
{
    char szData[PATH_CHARS];
    char szBackup[PATH_CHARS];
};

// False also for a directory so long that the two names are cut to the same one: a fetch would copy that file to its own
// end, for ever.
bool FindStorePaths(StorePaths& paths) noexcept
{
    char szDirectory[PATH_CHARS];
    if (!ModuleDirectoryA(g_hModule, szDirectory))
    {
        return false;
    }
    FormatTextA(paths.szData, "%s%s", szDirectory, "LocalAlt.dat");
    FormatTextA(paths.szBackup, "%s%s", szDirectory, "LocalAlt_Backup.dat");
    return std::strcmp(paths.szData, paths.szBackup) != 0;
}

DWORD ReplaceData(const StorePaths& paths) noexcept
{
    const bool bMoved = MoveFileExA(paths.szBackup, paths.szData, MOVEFILE_REPLACE_EXISTING) != FALSE;
    return bMoved ? ERROR_SUCCESS : LastErrorOr(ERROR_GEN_FAILURE);
}

// The line after whatever ends a torn line before it, in one write, with CR LF for each line feed as text mode has it:
// also for one inside a name.
DWORD AppendLine(HANDLE hFile, const char* pszLine) noexcept
{
    if (pszLine[0] == '\0')
    {
        return ERROR_INVALID_DATA; // a line that could not be put together must not count as stored
    }
    char achBytes[2 + 2 * ALERT_LINE_CHARS];
    CopyTextA(achBytes, MissingLineEnd(hFile));
    std::size_t cbBytes = std::strlen(achBytes);
    for (; *pszLine != '\0'; ++pszLine)
    {
        if (*pszLine == '\n')
        {
            achBytes[cbBytes++] = '\r';
        }
        achBytes[cbBytes++] = *pszLine;
    }
    return WriteWhole(hFile, achBytes, cbBytes);
}

// Reads records until there is one more than asked for: the loop runs while the number taken is at most nMaxCount, and
// callers know it so.
void TakeRecords(LineReader& reader, std::vector<VARNEX_ALERT_BUF>& records, int nMaxCount)
{
    const std::int64_t nNow = SecondsNow();
    while (!reader.AtEnd() && static_cast<std::int64_t>(records.size()) <= nMaxCount)
    {
        char szLine[ALERT_LINE_CHARS];
        reader.ReadLine(szLine, sizeof szLine);
        if (szLine[0] == '\0' || std::strcmp(szLine, "\n") == 0)
        {
            continue;
        }
        VARNEX_ALERT_BUF record{};
        if (ParseAlertLine(szLine, &record) != 0)
        {
            Log()->Level1A("ReadLocalAlertInf -- Translate buffer string(%s) to VARNEX_ALERT_BUF fail.", szLine);
        }
        else if (record.HappenTime != 0 && nNow - KEEP_SECONDS < MomentOf(record.HappenTime, nNow))
        {
            records.push_back(record);
        }
    }
}

// The rewrite file. What an earlier failed fetch left in it stays in front of what is copied now.
class BackupFile
{
public:
    explicit BackupFile(const char* pszPath) noexcept : m_pszPath(pszPath) {}

    bool Open() noexcept
    {
        m_file.Reset(CreateFileA(m_pszPath, GENERIC_READ | GENERIC_WRITE, SHARE_ALL_BUT_DELETE, nullptr, OPEN_ALWAYS,
                                 FILE_ATTRIBUTE_NORMAL, nullptr));
        return m_file && GetFileSizeEx(m_file.Get(), &m_cbFormer);
    }

    // Appends the rest of the reader's file and closes. On failure the file is cut back to what it was.
    DWORD TakeRestOf(LineReader& reader) noexcept
    {
        DWORD dwError = Append(reader);
        if (dwError == ERROR_SUCCESS && !m_file.Close())
        {
            dwError = LastErrorOr(ERROR_GEN_FAILURE);
            m_file.Reset(CreateFileA(m_pszPath, GENERIC_WRITE, SHARE_ALL_BUT_DELETE, nullptr, OPEN_EXISTING,
                                     FILE_ATTRIBUTE_NORMAL, nullptr));
        }
        if (dwError != ERROR_SUCCESS)
        {
            SetFilePointerEx(m_file.Get(), m_cbFormer, nullptr, FILE_BEGIN);
            SetEndOfFile(m_file.Get());
            m_file.Reset();
        }
        return dwError;
    }

private:
    DWORD Append(LineReader& reader) noexcept
    {
        if (reader.AtEnd())
        {
            return reader.Error();
        }
        const char* const pszLineEnd = MissingLineEnd(m_file.Get());
        LARGE_INTEGER nEnd{};
        if (!SetFilePointerEx(m_file.Get(), nEnd, nullptr, FILE_END))
        {
            return LastErrorOr(ERROR_GEN_FAILURE);
        }
        const DWORD dwError =
            *pszLineEnd == '\0' ? ERROR_SUCCESS : WriteWhole(m_file.Get(), pszLineEnd, std::strlen(pszLineEnd));
        return dwError != ERROR_SUCCESS ? dwError : reader.CopyRestTo(m_file.Get());
    }

    const char* m_pszPath;
    UniqueFile m_file;
    LARGE_INTEGER m_cbFormer{};
};

} // namespace

int PrePKIAlertInf() noexcept
{
    EveryoneAccess access;
    g_hAlertFileMutex = CreateMutexA(access.Attributes(), FALSE, STORE_MUTEX_NAME);
    if (g_hAlertFileMutex == nullptr)
    {
        const DWORD dwError = GetLastError();
        Log()->Level1A("PrePKIAlertInf -- Failed to create event for alert local file (%d).", dwError);
        return -1;
    }
    return 0;
}

int SaveLocalAlertInfo(int nAlertType, int nThreshold, int nValue, const char* pszResourceName, int nHappenTime,
                       const char* pszExtra)
{
    if (nHappenTime == 0)
    {
        return -1;
    }
    VARNEX_ALERT_BUF record{nAlertType, nThreshold, nValue, nHappenTime, "", ""};
    CopyAnsiText(record.ResourceName, sizeof record.ResourceName, pszResourceName != nullptr ? pszResourceName : "");
    CopyAnsiText(record.Extra, sizeof record.Extra, pszExtra != nullptr ? pszExtra : "");
    char szLine[ALERT_LINE_CHARS];
    FormatAlertLine(record, szLine);

    StorePaths paths;
    if (!FindStorePaths(paths))
    {
        Log()->Level1A("SaveLocalAlertInfo -- get module path fail.");
        return -1;
    }
    const MutexHold hold = WaitForStore();
    const UniqueFile file(CreateFileA(paths.szData, FILE_APPEND_DATA | FILE_READ_DATA, SHARE_ALL_BUT_DELETE, nullptr,
                                      OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
    {
        Log()->Level1A("SaveLocalAlertInfo -- open file(%s) fail.", paths.szData);
        return -1;
    }
    return AppendLine(file.Get(), szLine) == ERROR_SUCCESS ? 0 : -1;
}

int ReadLocalAlertInf(std::vector<VARNEX_ALERT_BUF>& records, int nMaxCount)
{
    StorePaths paths;
    if (!FindStorePaths(paths))
    {
        Log()->Level1A("ReadLocalAlertInf -- get module path fail.");
        return -1;
    }
    const MutexHold hold = WaitForStore();
    BackupFile backup(paths.szBackup);
    if (!backup.Open())
    {
        // The path shown is that of the alert file.
        Log()->Level1A("ReadLocalAlertInf -- open backup file(%s) fail.", paths.szData);
        return -1;
    }
    UniqueFile data(CreateFileA(paths.szData, GENERIC_READ, SHARE_ALL_BUT_DELETE, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!data)
    {
        Log()->Level4A("ReadLocalAlertInf -- open file(%s) fail.", paths.szData);
        return -1;
    }
    LineReader reader(data.Get());
    TakeRecords(reader, records, nMaxCount);
    DWORD dwError = backup.TakeRestOf(reader);
    data.Reset();
    if (dwError == ERROR_SUCCESS)
    {
        dwError = SharingPatience().Try([&paths]() noexcept { return ReplaceData(paths); });
    }
    if (dwError != ERROR_SUCCESS)
    {
        Log()->Level1A("ReadLocalAlertInf -- Fail to replace original file(%s) with new backup file(%s), error(%d)",
                       paths.szData, paths.szBackup, dwError);
    }
    return static_cast<int>(dwError);
}

} // namespace varnex
