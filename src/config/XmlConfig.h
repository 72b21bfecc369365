#pragma once

#include <cstddef>

namespace varnex
{

// Access to the nodes of KpmCfg.xml through the system's XML document object model. Every operation loads the file
// afresh; nothing is cached. The calling thread must have initialised COM. Any thread; no lock is taken.

// The node operations' results besides 0 and the failing HRESULT of the document.
constexpr int XML_FAILED = -1; // bad argument, no file, or (writing) a file that does not load
constexpr int XML_NODE_NOT_FOUND = 100;

// The longest node path, with its terminator.
constexpr std::size_t XML_NODE_PATH_CHARS = 260;

// The policy value asked of GetAlertConfValue.
enum class ConfType : unsigned
{
    Interval = 1,
    Threshold = 2,
    SamplingAmount = 3,
    MaxAlertNum = 4,
};

// One alert policy value, as the integer that its node's text begins with (0 for a text that is none).
// nAlertType: 1 CPU, 2 memory, 3 disk, 4 network. nConfType: see ConfType. Returns -1 on any failure.
int GetAlertConfValue(int nAlertType, unsigned nConfType);

// The configured log level, whatever its value, into *pnLevel. Returns 0, or -1 with *pnLevel untouched.
int GetLogLevel(int* pnLevel);

// Takes the configured level over into the log, if there is one and it is 0 to 4.
void RefreshLogLevel();

// Copies a node's text, cut to cchValue characters with its terminator.
// pwszFilePath: not used; the file is always KpmCfg.xml. pwszNodePath: steps from the document's root, by slashes.
// Returns 0; XML_NODE_NOT_FOUND; XML_FAILED for a null path or value and for a missing file; E_INVALIDARG for a path
// with an empty step or of XML_NODE_PATH_CHARS characters and more; or the document's failing HRESULT.
// A file that does not load gives 0 and leaves the buffer alone: callers clear it first and see an empty value. That a
// file in use for longer than a second looks so too is for ReadXMLNodeValue to tell.
int GetXMLNodeValue(const wchar_t* pwszFilePath, const wchar_t* pwszNodePath, wchar_t* pwszValue, std::size_t cchValue);

// The same for callers that must not take a file in use for an empty one: a file that could not be opened to be read
// gives the failing HRESULT, a sharing error when another program had it in use for longer than a second. A malformed
// file gives 0 here, too.
int ReadXMLNodeValue(const wchar_t* pwszNodePath, wchar_t* pwszValue, std::size_t cchValue);

// Sets a node's text, makes the nodes of the path that are missing, and saves (see XmlDocument::Save). At every instant
// the file is the old one or the new one, whole, unless another program keeps it open for longer than a second.
// Returns 0; XML_FAILED for null arguments, a missing file and one that does not load, whether it is malformed or in
// use; E_INVALIDARG as GetXMLNodeValue; or the document's failing HRESULT.
int SetXMLNodeValue(const wchar_t* pwszFilePath, const wchar_t* pwszNodePath, const wchar_t* pwszValue);

} // namespace varnex
