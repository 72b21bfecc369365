#pragma once

#include "common/Com.h"

#include <msxml2.h>

namespace varnex
{

class SharingPatience;

// One document of the system's XML document object model. A failure is a status, never an exception, so that it
// cannot fly past a mutex that a caller holds.
class XmlDocument
{
public:
    // pwszNamespace: of every element and attribute that is made here; lives as long as the document.
    explicit XmlDocument(const wchar_t* pwszNamespace) noexcept : m_pwszNamespace(pwszNamespace) {}

    // Makes the document object in a context of CLSCTX_ flags. Comes before everything else, on a thread that has
    // initialised COM.
    HRESULT Create(DWORD dwContext) noexcept;

    // Loads a file. One that another program has in use is tried again, and a document that loads in the background is
    // waited for, both together for at most a second; messages are served meanwhile in a single-threaded apartment.
    // Returns S_OK; S_FALSE for a file that was there to be read, in nobody's hands, and is malformed; E_OUTOFMEMORY;
    // the failing status of a file that cannot be opened, a sharing error when it is in use still; E_PENDING for a
    // document that is not complete then.
    HRESULT Load(const wchar_t* pwszPath) noexcept;

    // The first node at a path from the document; null, with a success, when there is none. Returns the query's status.
    HRESULT Find(const wchar_t* pwszNodePath, ComPtr<IXMLDOMNode>& node) noexcept;

    // Appends an element to a parent, or to the document when the parent is null.
    HRESULT AppendElement(IXMLDOMNode* pParent, const wchar_t* pwszName, ComPtr<IXMLDOMNode>& node) noexcept;

    // Sets an attribute of an element.
    HRESULT AddAttribute(IXMLDOMNode& element, const wchar_t* pwszName, const wchar_t* pwszValue) noexcept;

    // The whole document as text.
    HRESULT GetXml(UniqueBstr& text) noexcept;

    // Saves into a file, in UTF-8 and with a declaration that says so where there is one. Returns S_OK when the file is
    // on the disk (see SaveFile), else a failing status.
    HRESULT Save(const wchar_t* pwszPath) noexcept;

    // The text of a node, null for an empty one; and the replacing of all that a node holds by a text.
    static HRESULT GetText(IXMLDOMNode& node, UniqueBstr& text) noexcept;
    static HRESULT SetText(IXMLDOMNode& node, const wchar_t* pwszText) noexcept;

private:
    HRESULT WaitUntilComplete(const SharingPatience& patience) noexcept;
    HRESULT ParseResult() noexcept;
    HRESULT LoadOnce(const wchar_t* pwszPath, const SharingPatience& patience) noexcept;
    HRESULT LoadOrLook(const wchar_t* pwszPath, const SharingPatience& patience) noexcept;
    HRESULT CreateNode(long nType, const wchar_t* pwszName, ComPtr<IXMLDOMNode>& node) noexcept;

    const wchar_t* m_pwszNamespace;
    ComPtr<IXMLDOMDocument> m_document;
};

} // namespace varnex
