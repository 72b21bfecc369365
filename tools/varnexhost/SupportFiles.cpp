#include "SupportFiles.h"

#include <algorithm>

namespace varnex::host
{

namespace
{

// Varnex_20260131235959.log
bool IsRolledLog(const std::wstring& name)
{
    constexpr wchar_t BEGIN[] = L"Varnex_";
    constexpr std::size_t cchBegin = 7;
    constexpr std::size_t cchTime = 14;
    return name.size() == cchBegin + cchTime + 4 && name.rfind(BEGIN, 0) == 0 &&
           name.substr(cchBegin + cchTime) == L".log" &&
           std::all_of(name.begin() + cchBegin, name.begin() + cchBegin + cchTime,
                       [](wchar_t wch) { return wch >= L'0' && wch <= L'9'; });
}

std::vector<std::filesystem::path> RolledLogs(const std::filesystem::path& folder)
{
    std::vector<std::filesystem::path> logs;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
    {
        if (IsRolledLog(entry->path().filename().wstring()))
        {
            logs.push_back(entry->path());
        }
    }
    std::sort(logs.begin(), logs.end());
    return logs;
}

} // namespace

std::vector<SupportFile> ListSupportFiles(const ModuleFiles& files)
{
    std::vector<SupportFile> list = {
        {files.config},
        {files.store, true},
        {files.store.parent_path() / L"LocalAlt_Backup.dat", true},
        {files.log},
    };
    for (const std::filesystem::path& log : RolledLogs(files.log.parent_path()))
    {
        list.push_back({log});
    }
    for (const wchar_t* pwszTrace : {L"CPUUtil.log", L"MemoryUtil.log", L"DiskUtil.log", L"NetworkUtil.log"})
    {
        list.push_back({files.traceFolder / pwszTrace});
    }
    return list;
}

} // namespace varnex::host
