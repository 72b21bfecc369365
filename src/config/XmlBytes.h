#pragma once

#include <cstddef>
#include <memory>

#include <windows.h>

namespace varnex
{

// The bytes of a document, for a file.
struct XmlBytes
{
    std::unique_ptr<char[]> data;
    std::size_t cbData = 0;
};

// A document's text in UTF-8, without a mark. The declaration, where there is one, says so, whatever encoding it named
// before. Returns S_OK; E_OUTOFMEMORY; or the status of a text that is not well formed, or not valid UTF-16.
HRESULT EncodeXml(const wchar_t* pwszText, std::size_t cchText, XmlBytes& bytes) noexcept;

} // namespace varnex
