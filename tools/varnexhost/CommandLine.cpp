#include "CommandLine.h"

#include "HostError.h"
#include "Text.h"
#include "common/Handles.h"

#include <shellapi.h>

namespace varnex::host
{

std::vector<std::string> CommandLineArguments()
{
    int nCount = 0;
    const UniqueLocalBlock<wchar_t*> words(CommandLineToArgvW(GetCommandLineW(), &nCount));
    if (!words)
    {
        throw HostError(L"The command line cannot be read: " + SystemErrorText(GetLastError()));
    }
    std::vector<std::string> arguments;
    for (int i = 1; i < nCount; ++i)
    {
        arguments.push_back(ToUtf8(words.Get()[i]));
    }
    return arguments;
}

} // namespace varnex::host
