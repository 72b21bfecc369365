#include "CheckedConfigFile.h"

#include "config/ConfigFile.h"

namespace varnex
{

namespace
{

std::wstring g_checkedConfigFile;

} // namespace

// Both operations of the header are defined here, so that the module's own object file stays out of this program.

const wchar_t* ConfigFilePath() noexcept
{
    return g_checkedConfigFile.c_str();
}

bool ConfigFileExists() noexcept
{
    return GetFileAttributesW(ConfigFilePath()) != INVALID_FILE_ATTRIBUTES;
}

namespace host
{

void SetCheckedConfigFile(std::wstring path)
{
    g_checkedConfigFile = std::move(path);
}

} // namespace host

} // namespace varnex
