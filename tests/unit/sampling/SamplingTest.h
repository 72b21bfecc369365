#pragma once

#include "support/ImportRedirector.h"
#include "support/LogFile.h"
#include "support/LogMatchers.h"
#include "support/ModuleTree.h"

#include <catch2/catch.hpp>

#include <windows.h>

namespace varnex::test
{

// Where every test of the samplers stands: an English system, a fresh tree whose log takes every level, and this
// program's imports to script.
class SamplingTest
{
protected:
    SamplingTest();

    LogFile ReadLog() const { return LogFile(m_tree); }
    void SetSystemLanguage(LANGID nLanguage);
    // The ullCall-th conversion of a name to wide text from here on fails with ERROR_NO_UNICODE_TRANSLATION.
    void FailConversion(ULONGLONG ullCall);

    ModuleTree m_tree;
    ImportRedirector m_redirector;
};

// The number of a PDH status as it is scripted and logged.
constexpr LONG PdhStatus(unsigned nCode)
{
    return static_cast<LONG>(nCode);
}

} // namespace varnex::test
