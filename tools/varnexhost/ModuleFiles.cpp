#include "ModuleFiles.h"

#include "HostError.h"
#include "common/AnsiText.h"
#include "common/ModulePath.h"

namespace varnex::host
{

namespace
{

std::filesystem::path ProgramFolder()
{
    wchar_t wszFolder[PATH_CHARS];
    if (!ModuleDirectoryW(nullptr, wszFolder))
    {
        throw HostError(L"The folder of varnexhost.exe cannot be found; name the module's folder with --module-dir.");
    }
    return wszFolder;
}

std::filesystem::path FullFolder(const std::wstring& folder)
{
    std::error_code error;
    const std::filesystem::path full = std::filesystem::absolute(folder, error);
    if (error)
    {
        throw HostError(L"'" + folder + L"' is not a folder's name.");
    }
    return full.lexically_normal();
}

// By way of the code page, as the module does it: where the path has no such form, this is where its log goes.
std::filesystem::path LogFileOf(const std::filesystem::path& module)
{
    char szModule[PATH_CHARS];
    char szFolder[PATH_CHARS];
    wchar_t wszFolder[PATH_CHARS];
    AnsiFromWide(szModule, PATH_CHARS, module.c_str());
    LogDirectoryOf(szModule, szFolder);
    WideFromAnsi(wszFolder, PATH_CHARS, szFolder);
    return std::filesystem::path(wszFolder) / L"Varnex.log";
}

} // namespace

ModuleFiles LocateModule(const std::wstring& folder)
{
    const std::filesystem::path place = folder.empty() ? ProgramFolder() : FullFolder(folder);
    ModuleFiles files;
    files.module = place / L"Varnex.dll";
    files.config = place / L"KpmCfg.xml";
    files.store = place / L"LocalAlt.dat";
    files.traceFolder = files.module.parent_path().parent_path() / L"Logs";
    files.log = LogFileOf(files.module);
    return files;
}

bool FileExists(const std::filesystem::path& file) noexcept
{
    std::error_code error;
    return std::filesystem::is_regular_file(file, error);
}

} // namespace varnex::host
