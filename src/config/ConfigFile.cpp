#include "config/ConfigFile.h"

#include "common/BoundedText.h"
#include "common/Locks.h"
#include "common/ModulePath.h"
#include "entry/ModuleState.h"

namespace varnex
{

namespace
{

SlimLock g_configPathLock;
wchar_t g_wszConfigFilePath[PATH_CHARS] VARNEX_GUARDED_BY(g_configPathLock); // never changes once it is filled

} // namespace

const wchar_t* ConfigFilePath() noexcept
{
    const SlimLockHold hold(g_configPathLock);
    if (g_wszConfigFilePath[0] == L'\0')
    {
        wchar_t wszDirectory[PATH_CHARS];
        if (ModuleDirectoryW(g_hModule, wszDirectory))
        {
            FormatTextW(g_wszConfigFilePath, L"%s%s", wszDirectory, L"KpmCfg.xml");
        }
    }
    return g_wszConfigFilePath;
}

bool ConfigFileExists() noexcept
{
    return GetFileAttributesW(ConfigFilePath()) != INVALID_FILE_ATTRIBUTES;
}

} // namespace varnex
