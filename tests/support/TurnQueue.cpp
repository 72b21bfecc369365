#include "support/TurnQueue.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <tuple>

namespace varnex::test
{

namespace
{

const char* StateText(Worker::State state)
{
    static const char* const texts[] = {"suspended", "ready", "running", "sleeping", "waiting", "ended"};
    return texts[static_cast<int>(state)];
}

bool ComesBefore(const Worker& left, const Worker& right)
{
    return std::tie(left.ullDueMs, left.ullOrder) < std::tie(right.ullDueMs, right.ullOrder);
}

bool Lives(const WorkerPointer& worker)
{
    return worker->state != Worker::State::Ended;
}

bool IsInTime(const Worker& worker)
{
    return worker.state == Worker::State::Sleeping || worker.state == Worker::State::Waiting;
}

} // namespace

// --- the workers ----------------------------------------------------------------------------------------------------

void TurnQueue::Add(const WorkerPointer& worker)
{
    worker->ullDueMs = NowMs();
    worker->ullOrder = ++m_ullLastOrder;
    m_workers.push_back(worker);
}

WorkerPointer TurnQueue::Find(DWORD dwThreadId) const
{
    const auto found =
        std::find_if(m_workers.begin(), m_workers.end(),
                     [&](const WorkerPointer& worker) { return worker->dwThreadId == dwThreadId && Lives(worker); });
    return found == m_workers.end() ? nullptr : *found;
}

std::size_t TurnQueue::Count() const
{
    return static_cast<std::size_t>(std::count_if(m_workers.begin(), m_workers.end(), Lives));
}

std::vector<WorkerPointer> TurnQueue::TakeEnded()
{
    const auto firstEnded = std::stable_partition(m_workers.begin(), m_workers.end(), Lives);
    std::vector<WorkerPointer> ended(firstEnded, m_workers.end());
    m_workers.erase(firstEnded, m_workers.end());
    return ended;
}

void TurnQueue::NoticeDeadThreads()
{
    for (const WorkerPointer& worker : m_workers)
    {
        if (Lives(worker) && worker->thread && WaitForSingleObject(worker->thread.Get(), 0) == WAIT_OBJECT_0)
        {
            End(*worker);
        }
    }
}

void TurnQueue::WakeAll()
{
    for (const WorkerPointer& worker : m_workers)
    {
        WakeAllConditionVariable(&worker->wake);
    }
}

std::string TurnQueue::Describe() const
{
    std::string text;
    for (const WorkerPointer& worker : m_workers)
    {
        char szLine[160];
        std::snprintf(szLine, sizeof(szLine), "  thread %lu is %s%s, due at %lld ms of %llu ms\n", worker->dwThreadId,
                      StateText(worker->state), HasTurn(*worker) ? " and has the turn" : "",
                      static_cast<long long>(worker->ullDueMs), NowMs());
        text += szLine;
    }
    return text;
}

// --- the turn -------------------------------------------------------------------------------------------------------

void TurnQueue::OfferTurn()
{
    if (m_pTurn != nullptr)
    {
        return;
    }
    do
    {
        Worker* pNext = NextRunnable();
        if (pNext == nullptr)
        {
            pNext = NextLooker();
        }
        if (pNext != nullptr)
        {
            m_pTurn = pNext;
            WakeAllConditionVariable(&pNext->wake);
            return;
        }
    } while (MoveTime());
    WakeAllConditionVariable(&m_idle);
}

void TurnQueue::GiveTurnUp(const Worker& worker)
{
    if (HasTurn(worker))
    {
        m_pTurn = nullptr;
    }
    OfferTurn();
}

void TurnQueue::Enqueue(Worker& worker, Worker::State state, ULONGLONG ullDueMs)
{
    worker.state = state;
    worker.ullDueMs = ullDueMs;
    worker.ullOrder = ++m_ullLastOrder;
    ++m_ullActivity;
    GiveTurnUp(worker);
}

void TurnQueue::MakeReady(Worker& worker)
{
    worker.state = Worker::State::Ready;
    worker.ullDueMs = NowMs();
    worker.ullOrder = ++m_ullLastOrder;
    OfferTurn();
}

void TurnQueue::LookedInVain(Worker& worker)
{
    worker.ullLookedAt = m_ullActivity;
    GiveTurnUp(worker);
}

void TurnQueue::End(Worker& worker)
{
    worker.state = Worker::State::Ended;
    ++m_ullActivity;
    GiveTurnUp(worker);
}

bool TurnQueue::IsDue(const Worker& worker) const
{
    return worker.state == Worker::State::Ready ||
           (worker.state == Worker::State::Sleeping && worker.ullDueMs <= NowMs());
}

Worker* TurnQueue::NextRunnable() const
{
    Worker* pNext = nullptr;
    for (const WorkerPointer& worker : m_workers)
    {
        if (IsDue(*worker) && (pNext == nullptr || ComesBefore(*worker, *pNext)))
        {
            pNext = worker.get();
        }
    }
    return pNext;
}

// One that waits and has not looked since the last time that something may have changed.
Worker* TurnQueue::NextLooker() const
{
    Worker* pNext = nullptr;
    for (const WorkerPointer& worker : m_workers)
    {
        if (worker->state == Worker::State::Waiting && worker->ullLookedAt != m_ullActivity &&
            (pNext == nullptr || worker->ullOrder < pNext->ullOrder))
        {
            pNext = worker.get();
        }
    }
    return pNext;
}

// --- the time -------------------------------------------------------------------------------------------------------

void TurnQueue::Allow(ULONGLONG ullElapsedMs)
{
    m_ullAllowedMs = ullElapsedMs;
}

void TurnQueue::Stir()
{
    ++m_ullActivity;
    OfferTurn();
}

ULONGLONG TurnQueue::NextDue() const
{
    ULONGLONG ullDueMs = NEVER;
    for (const WorkerPointer& worker : m_workers)
    {
        if (IsInTime(*worker))
        {
            ullDueMs = std::min(ullDueMs, worker->ullDueMs);
        }
    }
    return ullDueMs;
}

// All sleep: on to the next one due. False when that is beyond what is allowed.
bool TurnQueue::MoveTime()
{
    const ULONGLONG ullNextMs = std::min(NextDue(), m_ullAllowedMs);
    if (ullNextMs <= NowMs() || ullNextMs == NEVER)
    {
        return false;
    }
    m_time.MoveTo(ullNextMs);
    ++m_ullActivity;
    return true;
}

} // namespace varnex::test
