#include "ReportDocument.h"

#include "support/ScriptScope.h"
#include "support/TestFiles.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <algorithm>
#include <cctype>
#include <exception>
#include <map>

namespace varnex::test
{

ExpectedReport::ExpectedReport(const std::string& time)
{
    m_root.name = "ServerPKIInformation";
    m_root.space = "AgentInfoProbe";
    Add("Time", {});
    m_root.children.back().text = time;
}

ExpectedReport& ExpectedReport::Add(const char* pszName, std::vector<std::pair<std::string, std::string>> attributes)
{
    XmlElement element;
    element.name = pszName;
    element.attributes = std::move(attributes);
    element.space = m_root.space;
    m_root.children.push_back(std::move(element));
    return *this;
}

ExpectedReport& ExpectedReport::Cpu(const std::string& index, std::int64_t nUtilization)
{
    return Add("CPUUtil", {{"Index", index}, {"Utilization", std::to_string(nUtilization)}});
}

ExpectedReport& ExpectedReport::Memory(std::int64_t nPhysical, std::int64_t nPhysicalMB, std::int64_t nPaging,
                                       std::int64_t nPagingMB)
{
    return Add("MemoryUtil", {{"PhysicalMemUtil", std::to_string(nPhysical)},
                              {"PhysicalMemCapacity", std::to_string(nPhysicalMB)},
                              {"PageFileUtil", std::to_string(nPaging)},
                              {"PageFileCapacity", std::to_string(nPagingMB)}});
}

ExpectedReport& ExpectedReport::Disk(const std::string& index, std::int64_t nThroughput)
{
    return Add("DiskUtil", {{"Index", index}, {"Throughput", std::to_string(nThroughput)}});
}

ExpectedReport& ExpectedReport::Network(const std::string& address, std::int64_t nLinkSpeed, std::int64_t nUtilization)
{
    return Add("NetworkUtil", {{"MACAddress", address},
                               {"LinkSpeed", std::to_string(nLinkSpeed)},
                               {"Utilization", std::to_string(nUtilization)}});
}

XmlElement ReadReport(const std::wstring& text)
{
    const UnscriptedScope unscripted;
    KeepDocument(L"reports", Utf8FromWide(text));
    try
    {
        return ParseXml(text);
    }
    catch (const std::exception& error)
    {
        FAIL(error.what() << " in: " << Utf8FromWide(text));
    }
    return {};
}

void KeepDocument(const std::wstring& folder, const std::string& bytes)
{
    const UnscriptedScope unscripted;
    static std::map<std::string, int> s_kept;
    std::string name = Catch::getResultCapture().getCurrentTestName();
    std::replace_if(
        name.begin(), name.end(), [](char ch) { return std::isalnum(static_cast<unsigned char>(ch)) == 0; }, '-');
    name = name.substr(0, 80) + "-" + std::to_string(++s_kept[name]) + ".xml";
    const std::wstring directory = ProgramDirectory() + L"\\" + folder;
    CreateDirectoryW(directory.c_str(), nullptr);
    WriteFileBytes(directory + L"\\" + WideFromUtf8(name), bytes);
}

} // namespace varnex::test
