#pragma once

#include "support/ChildProcess.h"
#include "support/ImportRedirector.h"
#include "support/ModulePathScript.h"
#include "support/ModuleTree.h"

#include <functional>
#include <string>
#include <vector>

namespace varnex::test
{

// The module's objects as several processes have them at once: one tree, real time, and the real mutexes, which all
// share. Nothing is logged. One for a process.
class ModuleInChild
{
public:
    explicit ModuleInChild(const std::wstring& modulePath);
    ~ModuleInChild();
    ModuleInChild(const ModuleInChild&) = delete;
    ModuleInChild& operator=(const ModuleInChild&) = delete;

    ImportRedirector& Imports() noexcept { return m_imports; }

private:
    ImportRedirector m_imports;
    ModulePathScript m_path;
};

// What a child is told: the tree's module, the key of what the processes share, and which of several it is.
struct Orders
{
    std::wstring modulePath;
    std::wstring key;
    int nIndex = 0;

    static Orders FromParent();
    std::wstring Name(const std::wstring& object) const; // of an object that belongs to this test alone
};

// Runs a hidden test case as a child with these orders.
ChildProcess StartChild(const char* pszTestCase, const Orders& orders);
// The orders of a test that is the parent.
Orders OrdersOf(const ModuleTree& tree);

// Threads that run an operation each, with its number; ended threads when it returns.
void RunThreads(int nThreads, const std::function<void(int)>& operation);

} // namespace varnex::test
