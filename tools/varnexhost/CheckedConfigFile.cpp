#include "CheckedConfigFile.h"

#include "config/ConfigFile.h"

namespace varnex
{

namespace
{

std::wstring g_checkedConfigFile;

} // namespace

// Both operations of the header are defined here, so that the module's own object file stays out of this program.

ConfigFilePath::ConfigFilePath() noexcept : m_pwszText(g_checkedConfigFile.c_str()), m_wszOwn() {}

bool ConfigFilePath::Exists() const noexcept
{
    return GetFileAttributesW(m_pwszText) != INVALID_FILE_ATTRIBUTES;
}

namespace host
{

void SetCheckedConfigFile(std::wstring path)
{
    g_checkedConfigFile = std::move(path);
}

} // namespace host

} // namespace varnex
