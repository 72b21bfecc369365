#include "Commands.h"
#include "ConsoleStream.h"
#include "HostError.h"
#include "ModuleLog.h"
#include "SlowNotice.h"
#include "SupportFiles.h"
#include "Versions.h"
#include "WholeFile.h"
#include "ZipFile.h"
#include "alerting/AlertStore.h"
#include "common/BoundedText.h"
#include "entry/ModuleState.h"

#include <functional>
#include <memory>
#include <optional>

namespace varnex::host
{

namespace
{

constexpr DWORD STORE_WAIT_MS = 10000;

struct CollectOptions
{
    std::string folder;
    std::string moduleFolder;
    bool bZip = false;
};

// Keeps the module from rewriting the alert file while it is read: a fetch that finds it in another's hands fails.
class StoreHold
{
public:
    StoreHold()
    {
        SilenceModuleLog();
        if (PrePKIAlertInf() == 0)
        {
            // Without it the file is read all the same, as the module itself does it.
            const DWORD dwWait = WaitForSingleObject(g_hAlertFileMutex, STORE_WAIT_MS);
            m_hold.Reset(dwWait == WAIT_OBJECT_0 || dwWait == WAIT_ABANDONED ? g_hAlertFileMutex : nullptr);
            m_mutex.Reset(g_hAlertFileMutex);
            g_hAlertFileMutex = nullptr;
        }
    }

private:
    UniqueHandle m_mutex;
    MutexHold m_hold; // given back before the handle is closed
};

// One support case on its way into its folder. What fails is told on standard error and in the manifest, and the rest is
// collected all the same.
class Collection
{
public:
    Collection(const std::filesystem::path& folder, bool bZip);

    void Add(const SupportFile& file);
    void AddText(const wchar_t* pwszName, const std::wstring& text);
    // Writes the manifest and the archive.
    void Finish();

    bool IsWhole() const noexcept { return m_bWhole; }
    // What came of it, in sentences.
    std::wstring Summary() const;

private:
    // Whether the step was done.
    bool Try(const std::function<void()>& step);
    void Copy(const std::filesystem::path& file);
    void Store(const std::wstring& name, const std::string& content, const SYSTEMTIME& time);

    const std::filesystem::path m_folder;
    const std::filesystem::path m_zipPath; // empty: no archive
    ZipFile m_zip;
    std::wstring m_manifest;
    unsigned m_nCopied = 0;
    bool m_bWhole = true;
    bool m_bManifestWritten = false;
    bool m_bZipWritten = false;
};

std::filesystem::path ZipPathOf(const std::filesystem::path& folder)
{
    return folder.wstring() + L".zip";
}

SYSTEMTIME LocalTimeNow() noexcept
{
    SYSTEMTIME time;
    GetLocalTime(&time);
    return time;
}

SYSTEMTIME LastWriteTime(const std::filesystem::path& file) noexcept
{
    WIN32_FILE_ATTRIBUTE_DATA attributes = {};
    FILETIME local = {};
    SYSTEMTIME time = {};
    if (!GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &attributes) ||
        !FileTimeToLocalFileTime(&attributes.ftLastWriteTime, &local) || !FileTimeToSystemTime(&local, &time))
    {
        return LocalTimeNow();
    }
    return time;
}

std::wstring TimeText(const SYSTEMTIME& time)
{
    wchar_t wszText[32];
    FormatTextW(wszText, L"%04d-%02d-%02d %02d:%02d:%02d", time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute,
                time.wSecond);
    return wszText;
}

void MakeEmptyFolder(const std::filesystem::path& folder)
{
    std::error_code error;
    const bool bThere = std::filesystem::exists(folder, error);
    if (bThere && (!std::filesystem::is_directory(folder, error) || !std::filesystem::is_empty(folder, error)))
    {
        throw HostError(folder.wstring() + L" is there already and is not an empty folder. Name a new one.");
    }
    std::filesystem::create_directories(folder, error);
    if (error)
    {
        throw HostError(folder.wstring() + L" cannot be made: " + SystemErrorText(static_cast<DWORD>(error.value())));
    }
}

Collection::Collection(const std::filesystem::path& folder, bool bZip)
    : m_folder(folder), m_zipPath(bZip ? ZipPathOf(folder) : L"")
{
    std::error_code error;
    if (bZip && std::filesystem::exists(m_zipPath, error))
    {
        throw HostError(m_zipPath.wstring() + L" is there already. Name another folder.");
    }
    MakeEmptyFolder(folder);
    m_manifest = L"Collected by varnexhost " + FromUtf8(VARNEX_VERSION) + L" at " + TimeText(LocalTimeNow()) + L"\r\n";
}

bool Collection::Try(const std::function<void()>& step)
{
    try
    {
        step();
        return true;
    }
    catch (const HostError& error)
    {
        m_bWhole = false;
        m_manifest += L"failed   " + FromUtf8(error.what()) + L"\r\n";
        StandardError().TryWrite(L"varnexhost: warning: " + FromUtf8(error.what()) + L"\n");
        return false;
    }
}

void Collection::Add(const SupportFile& file)
{
    Try(
        [this, &file]
        {
            std::optional<StoreHold> hold;
            if (file.bStore)
            {
                hold.emplace();
            }
            if (FileExists(file.path))
            {
                Copy(file.path);
            }
            else
            {
                m_manifest += L"missing  " + file.path.wstring() + L"\r\n";
            }
        });
}

void Collection::Copy(const std::filesystem::path& file)
{
    const SYSTEMTIME time = LastWriteTime(file);
    const std::string content = ReadWholeFile(file);
    Store(file.filename().wstring(), content, time);
    m_manifest += L"copied   " + file.wstring() + L"  (" + std::to_wstring(content.size()) + L" bytes, last written " +
                  TimeText(time) + L")\r\n";
    ++m_nCopied;
}

void Collection::AddText(const wchar_t* pwszName, const std::wstring& text)
{
    Try([&] { Store(pwszName, ToUtf8(text), LocalTimeNow()); });
}

void Collection::Store(const std::wstring& name, const std::string& content, const SYSTEMTIME& time)
{
    WriteWholeFile(m_folder / name, content);
    if (!m_zipPath.empty())
    {
        m_zip.Add(m_folder.filename().wstring() + L"/" + name, content, time);
    }
}

void Collection::Finish()
{
    m_bManifestWritten = Try([this] { Store(L"manifest.txt", ToUtf8(m_manifest), LocalTimeNow()); });
    m_bZipWritten = !m_zipPath.empty() && Try([this] { WriteWholeFile(m_zipPath, m_zip.Finish()); });
}

std::wstring Collection::Summary() const
{
    return L"Collected " + std::to_wstring(m_nCopied) + L" files in " + m_folder.wstring() +
           (m_bZipWritten ? L" and in " + m_zipPath.wstring() : L"") +
           (m_bManifestWritten ? L". manifest.txt there names them, and those that are missing." : L".");
}

std::filesystem::path TargetFolder(const std::string& folder)
{
    std::error_code error;
    std::filesystem::path full = std::filesystem::absolute(FromUtf8(folder), error).lexically_normal();
    if (error)
    {
        throw HostError(L"'" + FromUtf8(folder) + L"' is not a folder's name.");
    }
    return full.has_filename() ? full : full.parent_path(); // a name with a slash at its end
}

void RequireSomething(const ModuleFiles& files)
{
    if (!FileExists(files.module) && !FileExists(files.config) && !FileExists(files.log))
    {
        throw HostError(L"There is neither " + files.module.wstring() +
                        L" nor a configuration or a log of it. Name "
                        L"the module's folder with --module-dir.");
    }
}

ExitCode RunCollect(const CollectOptions& options)
{
    const ModuleFiles files = LocateModule(FromUtf8(options.moduleFolder));
    RequireSomething(files);
    const std::filesystem::path folder = TargetFolder(options.folder);
    Collection collection(folder, options.bZip);
    {
        const SlowNotice notice(L"Copying the files");
        for (const SupportFile& file : ListSupportFiles(files))
        {
            collection.Add(file);
        }
        collection.AddText(L"versions.txt", VersionLines(files.module));
        collection.Finish();
    }
    StandardOutput().Write(collection.Summary() + L"\n");
    return collection.IsWhole() ? ExitCode::Done : ExitCode::Failed;
}

} // namespace

void AddCollectCommand(CLI::App& app, CommandChoice& choice)
{
    const auto options = std::make_shared<CollectOptions>();
    CLI::App* pCollect = app.add_subcommand(
        "collect", "Copy the module's log, alerts, configuration and traces, and all versions, for a support case");
    pCollect->add_option("DIR", options->folder, "The folder to be made; one that is there has to be empty")
        ->required()
        ->type_name("");
    pCollect
        ->add_option("--module-dir", options->moduleFolder, "Folder of Varnex.dll (default: that of varnexhost.exe)")
        ->type_name("DIR");
    pCollect->add_flag("--zip", options->bZip, "Pack the folder into DIR.zip, too");
    pCollect->callback([&choice, options] { choice.run = [options] { return RunCollect(*options); }; });
}

} // namespace varnex::host
