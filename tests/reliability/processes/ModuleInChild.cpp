#include "ModuleInChild.h"

#include "alerting/AlertStore.h"
#include "common/Handles.h"
#include "diag/SPLogger.h"
#include "entry/ModuleState.h"

#include <catch2/catch.hpp>

#include <objbase.h>

namespace varnex::test
{

namespace
{

constexpr wchar_t MODULE_VARIABLE[] = L"VARNEX_TEST_MODULE_PATH";
constexpr wchar_t KEY_VARIABLE[] = L"VARNEX_TEST_KEY";
constexpr wchar_t INDEX_VARIABLE[] = L"VARNEX_TEST_INDEX";
constexpr DWORD PATIENCE_MS = 600'000;

std::wstring Variable(const wchar_t* pwszName)
{
    wchar_t wszValue[512];
    const DWORD cchValue = GetEnvironmentVariableW(pwszName, wszValue, 512);
    return std::wstring(wszValue, cchValue);
}

struct ThreadTask
{
    const std::function<void(int)>* pOperation;
    int nIndex;
};

DWORD WINAPI RunTask(void* pTask)
{
    const auto& task = *static_cast<const ThreadTask*>(pTask);
    (*task.pOperation)(task.nIndex);
    return 0;
}

} // namespace

ModuleInChild::ModuleInChild(const std::wstring& modulePath) : m_path(m_imports, modulePath)
{
    Log()->Level = 0;
    REQUIRE(PrePKIAlertInf() == 0);
    REQUIRE(SUCCEEDED(CoInitialize(nullptr)));
}

ModuleInChild::~ModuleInChild()
{
    CoUninitialize();
    const UniqueHandle mutex(g_hAlertFileMutex);
    g_hAlertFileMutex = nullptr;
}

Orders Orders::FromParent()
{
    Orders orders{Variable(MODULE_VARIABLE), Variable(KEY_VARIABLE), 0};
    REQUIRE_FALSE(orders.modulePath.empty());
    orders.nIndex = std::stoi(Variable(INDEX_VARIABLE));
    return orders;
}

std::wstring Orders::Name(const std::wstring& object) const
{
    return L"varnex-test-" + object + L"-" + key;
}

Orders OrdersOf(const ModuleTree& tree)
{
    return {tree.ModulePath(), std::to_wstring(GetCurrentProcessId()), 0};
}

ChildProcess StartChild(const char* pszTestCase, const Orders& orders)
{
    ChildOptions options;
    options.environment = {{MODULE_VARIABLE, orders.modulePath},
                           {KEY_VARIABLE, orders.key},
                           {INDEX_VARIABLE, std::to_wstring(orders.nIndex)}};
    return ChildProcess::OfTestCase(pszTestCase, options);
}

void RunThreads(int nThreads, const std::function<void(int)>& operation)
{
    std::vector<ThreadTask> tasks;
    for (int i = 0; i < nThreads; ++i)
    {
        tasks.push_back({&operation, i});
    }
    std::vector<UniqueHandle> threads;
    for (ThreadTask& task : tasks)
    {
        threads.emplace_back(CreateThread(nullptr, 0, &RunTask, &task, 0, nullptr));
    }
    for (const UniqueHandle& thread : threads)
    {
        REQUIRE(WaitForSingleObject(thread.Get(), PATIENCE_MS) == WAIT_OBJECT_0);
    }
}

} // namespace varnex::test
