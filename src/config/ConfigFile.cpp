#include "config/ConfigFile.h"

#include "common/BoundedText.h"
#include "entry/ModuleState.h"

#include <atomic>
#include <cwchar>
#include <string_view>

namespace varnex
{

namespace
{

constexpr std::wstring_view FILE_NAME = L"KpmCfg.xml";

enum class Keeping
{
    Nothing,
    Begun, // for ever, when the thread that began it has been ended
    Done
};

std::atomic<Keeping> g_keeping = Keeping::Nothing;
wchar_t g_wszKeptPath[PATH_CHARS]; // written by the one thread that began, read when it is done

} // namespace

ConfigFilePath::ConfigFilePath() noexcept : m_pwszText(g_wszKeptPath)
{
    if (g_keeping.load(std::memory_order_acquire) == Keeping::Done)
    {
        return;
    }
    m_pwszText = m_wszOwn;
    if (!ModuleDirectoryW(g_hModule, m_wszOwn) || std::wcslen(m_wszOwn) + FILE_NAME.size() >= PATH_CHARS)
    {
        m_wszOwn[0] = L'\0';
        return;
    }
    AppendTextW(m_wszOwn, PATH_CHARS, FILE_NAME.data());
    Keeping expected = Keeping::Nothing;
    if (g_keeping.compare_exchange_strong(expected, Keeping::Begun))
    {
        CopyTextW(g_wszKeptPath, m_wszOwn);
        g_keeping.store(Keeping::Done, std::memory_order_release);
        m_pwszText = g_wszKeptPath;
    }
}

bool ConfigFilePath::Exists() const noexcept
{
    return GetFileAttributesW(m_pwszText) != INVALID_FILE_ATTRIBUTES;
}

} // namespace varnex
