#include "ConfigFixture.h"

#include "common/BoundedText.h"
#include "diag/SPLogger.h"
#include "support/LogFile.h"
#include "support/TestText.h"

#include <windows.h>

#include <objbase.h>

namespace varnex::test
{

ConfigFixture::ConfigFixture(Com com) : ConfigFixture(com, {}, L"-" + std::to_wstring(GetCurrentProcessId())) {}

ConfigFixture::ConfigFixture(const std::wstring& binPath, const std::wstring& key)
    : ConfigFixture(Com::Initialised, binPath + L"\\Varnex.dll", key)
{
}

ConfigFixture::ConfigFixture(Com com, const std::wstring& modulePathText, const std::wstring& key)
    : m_key(key), modulePath(redirector, modulePathText.empty() ? tree.ModulePath() : modulePathText),
      logMutex(redirector), mutex(redirector, key),
      m_bComInitialised(com == Com::Initialised && SUCCEEDED(CoInitialize(nullptr)))
{
    Log()->Configure(AnsiFromWide(tree.LogsPath()).c_str(), "Varnex");
    Log()->Level = 4;
}

ConfigFixture::~ConfigFixture()
{
    if (m_bComInitialised)
    {
        CoUninitialize();
    }
}

std::wstring ConfigFixture::File() const
{
    return tree.InBin(L"KpmCfg.xml");
}

std::string ConfigFixture::FileBytes() const
{
    return ReadFileBytes(File());
}

std::string ConfigFixture::FileInLog() const
{
    return AnsiFromWide(File());
}

std::vector<std::string> ConfigFixture::TakeLog()
{
    constexpr std::size_t cchStamp = sizeof("2026-01-31 12:00:00 ") - 1;
    const LogFile log(tree);
    std::vector<std::string> lines;
    for (; m_nLinesTaken < log.RawLines().size(); ++m_nLinesTaken)
    {
        const std::string& line = log.RawLines()[m_nLinesTaken];
        lines.push_back(line.size() > cchStamp && line[cchStamp] == '[' ? line.substr(cchStamp) : line);
    }
    return lines;
}

std::string Line(int nLevel, std::string text, const std::vector<std::string>& arguments)
{
    std::size_t nFrom = 0;
    for (const std::string& argument : arguments)
    {
        const std::size_t nPlace = text.find("%s", nFrom);
        text.replace(nPlace, 2, argument);
        nFrom = nPlace + argument.size();
    }
    return "[" + std::to_string(nLevel) + "] - " + text;
}

std::string PointerText(const void* pAddress)
{
    char szText[24];
    FormatTextA(szText, "%08X%08X", static_cast<unsigned>(reinterpret_cast<ULONG_PTR>(pAddress) >> 32),
                static_cast<unsigned>(reinterpret_cast<ULONG_PTR>(pAddress)));
    return szText;
}

std::string StatusText(int nStatus)
{
    char szText[16];
    FormatTextA(szText, "0x%08x", nStatus);
    return szText;
}

} // namespace varnex::test
