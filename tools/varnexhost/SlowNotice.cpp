#include "SlowNotice.h"

#include "ConsoleStream.h"
#include "Text.h"

#include <exception>

namespace varnex::host
{

namespace
{

constexpr DWORD FIRST_AFTER_MS = 2000;
constexpr DWORD THEN_EVERY_MS = 10000;

} // namespace

// Without its thread it stays silent: the activity matters more than the words about it.
SlowNotice::SlowNotice(std::wstring activity)
    : m_activity(std::move(activity)), m_done(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_thread(m_done ? CreateThread(nullptr, 0, ThreadBody, this, 0, nullptr) : nullptr)
{
}

SlowNotice::~SlowNotice()
{
    if (m_thread)
    {
        SetEvent(m_done.Get());
        WaitForSingleObject(m_thread.Get(), INFINITE);
    }
}

DWORD WINAPI SlowNotice::ThreadBody(void* pNotice) noexcept
{
    try
    {
        static_cast<const SlowNotice*>(pNotice)->SpeakUntilDone();
    }
    catch (const std::exception&)
    {
        return 1; // no memory for the words
    }
    return 0;
}

void SlowNotice::SpeakUntilDone() const
{
    const std::uint64_t nBegin = GetTickCount64();
    for (DWORD dwWait = FIRST_AFTER_MS; WaitForSingleObject(m_done.Get(), dwWait) == WAIT_TIMEOUT;
         dwWait = THEN_EVERY_MS)
    {
        StandardError().TryWrite(L"varnexhost: " + m_activity + L" (" +
                                 std::to_wstring((GetTickCount64() - nBegin) / 1000) + L" s) ...\n");
    }
}

} // namespace varnex::host
