#pragma once

#include "common/Com.h"

#include <msxml2.h>

namespace varnex
{

// One document of the system's XML document object model. A failure is a status, never an exception, so that it
// cannot fly past a mutex that a caller holds.
class XmlDocument
{
public:
    // pwszNamespace: of every element and attribute that is made here; lives as long as the document.
    explicit XmlDocument(const wchar_t* pwszNamespace) noexcept : m_pwszNamespace(pwszNamespace)
    {
    }

    // Makes the document object in a context of CLSCTX_ flags.
    HRESULT Create(DWORD dwContext) noexcept;

    // Loads a file. A file that another process has locked for a moment is tried again for at most a second. False
    // when the file does not load: it is locked still, or malformed.
    bool Load(const wchar_t* pwszPath);

    // The first node at a path from the document; null when there is none. The status of a failed query.
    HRESULT Find(const wchar_t* pwszNodePath, ComPtr<IXMLDOMNode>& node) noexcept;

    // Appends an element to a parent, or to the document when the parent is null.
    HRESULT AppendElement(IXMLDOMNode* pParent, const wchar_t* pwszName, ComPtr<IXMLDOMNode>& node) noexcept;

    // Sets an attribute of an element.
    HRESULT AddAttribute(IXMLDOMNode& element, const wchar_t* pwszName, const wchar_t* pwszValue) noexcept;

    // The whole document as text.
    HRESULT GetXml(UniqueBstr& text) noexcept;

    // Replaces a file so that it is the old or the new one, whole, at every instant.
    HRESULT Save(const wchar_t* pwszPath);

    static HRESULT GetText(IXMLDOMNode& node, UniqueBstr& text) noexcept;
    static HRESULT SetText(IXMLDOMNode& node, const wchar_t* pwszText) noexcept;

private:
    bool LoadOnce(const wchar_t* pwszPath) noexcept;
    HRESULT SaveTo(const wchar_t* pwszPath) noexcept;
    HRESULT CreateNode(long nType, const wchar_t* pwszName, ComPtr<IXMLDOMNode>& node) noexcept;

    const wchar_t* m_pwszNamespace;
    ComPtr<IXMLDOMDocument> m_document;
};

} // namespace varnex
