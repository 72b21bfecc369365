#pragma once

#include "XmlTree.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace varnex::test
{

// A report as it should be, in the order in which it is written:
//
//     CHECK(ReadReport(text) == ExpectedReport("2026-01-31 12:00:00").Cpu("0", 42).Memory(1, 10, 2, 20).Tree());
class ExpectedReport
{
public:
    explicit ExpectedReport(const std::string& time);
    ExpectedReport& Cpu(const std::string& index, std::int64_t nUtilization);
    ExpectedReport& Memory(std::int64_t nPhysical, std::int64_t nPhysicalMB, std::int64_t nPaging,
                           std::int64_t nPagingMB);
    ExpectedReport& Disk(const std::string& index, std::int64_t nThroughput);
    ExpectedReport& Network(const std::string& address, std::int64_t nLinkSpeed, std::int64_t nUtilization);
    const XmlElement& Tree() const noexcept { return m_root; }

private:
    ExpectedReport& Add(const char* pszName, std::vector<std::pair<std::string, std::string>> attributes);

    XmlElement m_root;
};

// Parses a report and keeps it, below the test program's directory, for the validation against its schema. Fails the
// test for a text that is no document.
XmlElement ReadReport(const std::wstring& text);

// Keeps a document's bytes for the validation against a schema, under the test case's name.
void KeepDocument(const std::wstring& folder, const std::string& bytes);

} // namespace varnex::test
