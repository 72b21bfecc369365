#pragma once

#include "diag/SPLogger.h"
#include "support/LogFile.h"
#include "support/ModuleTree.h"
#include "support/TestText.h"

namespace varnex::test
{

// The log of the code under test, in a tree of its own, at the most detailed level.
class UnitLog
{
public:
    UnitLog()
    {
        Log()->Configure(AnsiFromWide(m_tree.LogsPath()).c_str(), "Varnex");
        Log()->Level = 4;
    }
    LogFile Read() const { return LogFile(m_tree); }

private:
    ModuleTree m_tree;
};

} // namespace varnex::test
