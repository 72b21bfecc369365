#pragma once

#include "support/ImportRedirector.h"
#include "support/LogFile.h"
#include "support/LogMatchers.h"
#include "support/ModuleTree.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <string>
#include <vector>

namespace varnex::test
{

// Where every test of the samplers stands: an English system, a fresh tree whose log takes every level, and this
// program's imports to script.
class SamplingTest
{
protected:
    SamplingTest();

    LogFile ReadLog() const { return LogFile(m_tree); }
    // The log holds these messages in this order and no others.
    struct Message
    {
        int nLevel;
        std::string text;
    };
    void CheckLog(const std::vector<Message>& messages) const;
    void CheckNoLog() const;

    void SetSystemLanguage(LANGID nLanguage);
    // The ullCall-th conversion of a name to wide text from here on fails with ERROR_NO_UNICODE_TRANSLATION.
    void FailConversion(ULONGLONG ullCall);

    ModuleTree m_tree;
    ImportRedirector m_redirector;
};

} // namespace varnex::test
