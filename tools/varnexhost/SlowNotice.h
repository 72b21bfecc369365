#pragma once

#include "common/Handles.h"

#include <string>

namespace varnex::host
{

// Says on standard error what is going on, when it takes longer than two seconds, and again every ten. From a thread of
// its own, so that it can stand around any call.
class SlowNotice
{
public:
    explicit SlowNotice(std::wstring activity);
    ~SlowNotice();
    SlowNotice(const SlowNotice&) = delete;
    SlowNotice& operator=(const SlowNotice&) = delete;

private:
    static DWORD WINAPI ThreadBody(void* pNotice) noexcept;
    void SpeakUntilDone() const;

    std::wstring m_activity;
    UniqueHandle m_done;
    UniqueHandle m_thread;
};

} // namespace varnex::host
