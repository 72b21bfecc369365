#include "Commands.h"
#include "ConsoleStream.h"
#include "DefaultConfig.h"
#include "HostError.h"

#include <string_view>

namespace varnex::host
{

namespace
{

// MAKEINTRESOURCEW is a C cast; a resource's number travels in the place of a pointer to its name.
const wchar_t* ResourceNumber(std::uintptr_t nNumber) noexcept
{
    return reinterpret_cast<const wchar_t*>(nNumber);
}

std::string_view DefaultConfig()
{
    constexpr std::uintptr_t RAW_DATA = 10; // RT_RCDATA
    const HRSRC hResource = FindResourceW(nullptr, ResourceNumber(DEFAULT_CONFIG_RESOURCE), ResourceNumber(RAW_DATA));
    const HGLOBAL hData = hResource != nullptr ? LoadResource(nullptr, hResource) : nullptr;
    const void* pBytes = hData != nullptr ? LockResource(hData) : nullptr;
    if (pBytes == nullptr)
    {
        throw HostError(L"The default configuration is missing in varnexhost.exe: " + SystemErrorText(GetLastError()));
    }
    return {static_cast<const char*>(pBytes), SizeofResource(nullptr, hResource)};
}

ExitCode RunPrintConfig()
{
    StandardOutput().Write(FromUtf8(DefaultConfig())); // the file is UTF-8, and so is what goes to a file or a pipe
    return ExitCode::Done;
}

} // namespace

void AddPrintConfigCommand(CLI::App& app, CommandChoice& choice)
{
    CLI::App* pPrint = app.add_subcommand(
        "print-config", "Print the default KpmCfg.xml, with a comment on each value; to be saved beside Varnex.dll");
    pPrint->callback([&choice] { choice.run = RunPrintConfig; });
}

} // namespace varnex::host
