#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace varnex::test
{

// A parsed XML document: tests compare its nodes, never its bytes, which differ from one system to the next.
//
//     const XmlReader report = XmlReader::FromText(text);
//     CHECK(report.Count(L"Report/CPU") == 2);
//     CHECK(report.Text(L"Report/CPU[0]/@Name") == L"0");
//
// Paths are those of MSXML's selectNodes; a position in brackets counts from 0. A document that does not parse fails
// the test.
class XmlReader
{
public:
    static XmlReader FromFile(const std::wstring& path);
    static XmlReader FromText(const std::wstring& text);
    XmlReader(XmlReader&& other) noexcept;
    ~XmlReader();

    // The text of the first node; nothing when there is none.
    std::optional<std::wstring> Text(const std::wstring& path) const;
    std::vector<std::wstring> Texts(const std::wstring& path) const;
    std::size_t Count(const std::wstring& path) const;

private:
    struct Document;
    explicit XmlReader(std::unique_ptr<Document> document) noexcept;

    std::unique_ptr<Document> m_document;
};

} // namespace varnex::test
