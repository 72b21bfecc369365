#pragma once

#include "entry/AlertReachPKIThread.h"

#include <atomic>
#include <functional>

namespace varnex::test
{

// A worker whose body the test gives; the body frees the worker or leaves it, as it likes.
class TestWorker final : public CAlertReachPKIThread
{
public:
    using Body = std::function<DWORD(TestWorker&)>;

    TestWorker() noexcept
    {
        ++s_nMade;
        s_pNewest = this;
    }
    ~TestWorker() { ++s_nFreed; }

    DWORD Run() override { return s_body(*this); }
    int UpdateAlertPolicy() override { return 0; }

    // Called at the start of each test that uses the class.
    static void Begin(Body body)
    {
        s_body = std::move(body);
        s_nMade = 0;
        s_nFreed = 0;
        s_pNewest = nullptr;
    }

    static inline std::atomic<int> s_nMade{0};
    static inline std::atomic<int> s_nFreed{0};
    static inline std::atomic<TestWorker*> s_pNewest{nullptr};

private:
    static inline Body s_body;
};

} // namespace varnex::test
