#pragma once

#include "common/ModulePath.h"

#include <windows.h>

namespace varnex
{

// The path of KpmCfg.xml, beside the module. It is worked out at the first need and kept for the process's life; while
// there is none that fits a path, it is empty, and the file then does not exist. Nobody ever waits for it: where a thread
// has ended in the middle of keeping it, each of the others works it out for itself.
class ConfigFilePath
{
public:
    ConfigFilePath() noexcept;
    ConfigFilePath(const ConfigFilePath&) = delete;
    ConfigFilePath& operator=(const ConfigFilePath&) = delete;

    const wchar_t* Text() const noexcept { return m_pwszText; }
    // Whether there is anything of that name now; looked up anew at each call.
    bool Exists() const noexcept;

private:
    const wchar_t* m_pwszText;                     // the kept one, or this one's own
    [[maybe_unused]] wchar_t m_wszOwn[PATH_CHARS]; // varnexhost has a constructor of its own
};

} // namespace varnex
