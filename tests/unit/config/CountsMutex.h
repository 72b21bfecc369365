#pragma once

#include "common/Handles.h"
#include "support/ImportRedirector.h"

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

namespace varnex::test
{

// The mutex of the daily counts, seen from outside. The module's name is led to one that only this test and its
// children know: tests that run side by side would meet in the module's own.
class CountsMutex
{
public:
    // key: what makes the name private; the same one for all processes of a test.
    CountsMutex(ImportRedirector& redirector, const std::wstring& key);
    ~CountsMutex();
    CountsMutex(const CountsMutex&) = delete;
    CountsMutex& operator=(const CountsMutex&) = delete;

    // Makes it exist from here on.
    void Make();
    // What the module asked for so far: "open 1f0001 0 Global\...", "create default 0 Global\...".
    std::vector<std::wstring> Asked() const;
    HANDLE Get() const noexcept { return m_mutex.Get(); }
    // What another thread's wait ends in right now; a mutex that it gets is given back.
    DWORD WaitElsewhere() const;
    // A thread takes it and ends with it.
    void Abandon() const;

private:
    struct State;
    std::shared_ptr<State> m_state;
    RestoredImports m_imports;
    UniqueHandle m_mutex;
};

// Another thread that has the mutex, until the end of the scope.
class CountsMutexOwner
{
public:
    explicit CountsMutexOwner(const CountsMutex& mutex);
    ~CountsMutexOwner();
    CountsMutexOwner(const CountsMutexOwner&) = delete;
    CountsMutexOwner& operator=(const CountsMutexOwner&) = delete;

private:
    static DWORD WINAPI Run(void* pOwner);

    HANDLE m_hMutex;
    UniqueHandle m_taken;
    UniqueHandle m_end;
    UniqueHandle m_thread;
};

} // namespace varnex::test
