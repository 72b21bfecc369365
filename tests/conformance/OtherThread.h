#pragma once

#include "common/Handles.h"

#include <windows.h>

#include <functional>
#include <memory>
#include <utility>

namespace varnex::test
{

// A thread for checks, made by CreateThread through the program's imports, so that a virtual clock knows it. The body
// makes no assertions. A thread that still runs at the end of its scope is ended by force.
class OtherThread
{
public:
    explicit OtherThread(std::function<void()> body, DWORD dwFlags = 0)
        : OtherThread([body = std::move(body)](HANDLE) { body(); }, dwFlags)
    {
    }
    // The body sets the event when it is where the check wants it.
    explicit OtherThread(std::function<void(HANDLE hReady)> body, DWORD dwFlags = 0)
    {
        auto start = std::make_unique<Start>(Start{std::move(body), m_ready.Get()});
        m_thread.Reset(CreateThread(nullptr, 0, Run, start.get(), dwFlags, nullptr));
        if (m_thread)
        {
            static_cast<void>(start.release()); // the thread's own now
        }
    }
    ~OtherThread()
    {
        if (WaitForSingleObject(m_thread.Get(), 50) != WAIT_OBJECT_0)
        {
            TerminateThread(m_thread.Get(), 0);
            WaitForEnd();
        }
    }
    OtherThread(const OtherThread&) = delete;
    OtherThread& operator=(const OtherThread&) = delete;

    HANDLE Get() const noexcept { return m_thread.Get(); }
    void WaitForEnd() const { WaitForSingleObject(m_thread.Get(), PATIENCE_MS); }
    void WaitUntilReady() const { WaitForSingleObject(m_ready.Get(), PATIENCE_MS); }
    // A while after it was ready, so that it sleeps or waits by then and holds nothing of the system's own.
    void EndByForce() const
    {
        WaitUntilReady();
        Sleep(50);
        TerminateThread(m_thread.Get(), 5);
        WaitForEnd();
    }

private:
    static constexpr DWORD PATIENCE_MS = 20000;
    struct Start
    {
        std::function<void(HANDLE)> body;
        HANDLE hReady;
    };
    static DWORD WINAPI Run(void* pStart)
    {
        const std::unique_ptr<Start> start(static_cast<Start*>(pStart));
        start->body(start->hReady);
        return 3;
    }

    const UniqueHandle m_ready{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    UniqueHandle m_thread;
};

} // namespace varnex::test
