#include "support/ScriptedPdh.h"

#include "common/Locks.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <pdhmsg.h>

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <utility>

namespace varnex::test
{

namespace
{

constexpr PDH_STATUS Status(unsigned nCode)
{
    return static_cast<PDH_STATUS>(nCode);
}

template <class Character>
std::basic_string<Character> FromWide(const std::wstring& text);

template <>
std::wstring FromWide(const std::wstring& text)
{
    return text;
}

template <>
std::string FromWide(const std::wstring& text)
{
    return AnsiFromWide(text);
}

// Names one behind the other, each terminated, and an empty one at the end.
template <class Character>
std::basic_string<Character> NameList(const std::vector<std::wstring>& names)
{
    std::basic_string<Character> list;
    for (const std::wstring& name : names)
    {
        list += FromWide<Character>(name);
        list += Character();
    }
    list += Character();
    return list;
}

template <class Character>
PDH_STATUS CopyNameList(const std::vector<std::wstring>& names, Character* pTarget, LPDWORD pcchTarget)
{
    const auto list = NameList<Character>(names);
    const DWORD cchTarget = std::exchange(*pcchTarget, static_cast<DWORD>(list.size()));
    if (pTarget == nullptr || cchTarget < list.size())
    {
        return Status(PDH_MORE_DATA);
    }
    std::copy(list.begin(), list.end(), pTarget);
    return ERROR_SUCCESS;
}

// "\\Object(instance)\\Counter"; an instance may hold any of these characters.
struct PathParts
{
    std::wstring object;
    std::wstring counter;
};

std::optional<PathParts> PartsOf(const std::wstring& path)
{
    const std::size_t nInstance = path.find(L'(');
    const std::size_t nCounter = path.rfind(L")\\");
    if (path.empty() || path[0] != L'\\' || nInstance == std::wstring::npos || nCounter == std::wstring::npos ||
        nCounter < nInstance)
    {
        return std::nullopt;
    }
    return PathParts{path.substr(1, nInstance - 1), path.substr(nCounter + 2)};
}

} // namespace

struct ScriptedPdh::State
{
    struct Reading
    {
        PDH_STATUS status;
        double dValue;
    };
    struct Counter
    {
        std::wstring path;
        void* hQuery;
        unsigned nSamples = 0;
    };
    struct Source
    {
        std::deque<Reading> queue;
        std::optional<double> value;
    };

    SlimLock lock;
    std::map<std::wstring, std::vector<std::wstring>> objects;
    std::map<std::wstring, Source> sources;
    std::map<std::string, std::deque<PDH_STATUS>> queuedStatuses;
    std::map<std::string, PDH_STATUS> statuses;
    std::vector<PdhCall> calls;
    std::set<void*> queries;
    std::map<void*, Counter> counters;
    std::size_t nWrongHandles = 0;
    std::uintptr_t nLastHandle = 0x1000; // handles are numbers that nobody can mistake for memory

    void* NewHandle()
    {
        nLastHandle += 0x10;
        return reinterpret_cast<void*>(nLastHandle);
    }

    // Runs one call: its scripted status comes first, the call itself only when there is none. The call may name its
    // subject later.
    template <class Call>
    PDH_STATUS Run(const char* pszFunction, std::wstring subject, const Call& call)
    {
        const SlimLockHold hold(lock);
        PDH_STATUS status = ScriptedStatus(pszFunction);
        if (status == ERROR_SUCCESS)
        {
            status = call(subject);
        }
        calls.push_back({pszFunction, std::move(subject), status});
        return status;
    }

    PDH_STATUS ScriptedStatus(const char* pszFunction)
    {
        std::deque<PDH_STATUS>& queue = queuedStatuses[pszFunction];
        if (queue.empty())
        {
            return statuses[pszFunction];
        }
        const PDH_STATUS status = queue.front();
        queue.pop_front();
        return status;
    }

    PDH_STATUS WrongHandle()
    {
        ++nWrongHandles;
        return Status(PDH_INVALID_HANDLE);
    }

    template <class Character>
    PDH_STATUS EnumerateItems(const std::wstring& object, Character* pCounters, LPDWORD pcchCounters,
                              Character* pInstances, LPDWORD pcchInstances)
    {
        const auto found = objects.find(object);
        if (found == objects.end())
        {
            return Status(PDH_CSTATUS_NO_OBJECT);
        }
        const PDH_STATUS counterStatus = CopyNameList<Character>({L"A Counter"}, pCounters, pcchCounters);
        const PDH_STATUS instanceStatus = CopyNameList<Character>(found->second, pInstances, pcchInstances);
        return counterStatus != ERROR_SUCCESS ? counterStatus : instanceStatus;
    }

    PDH_STATUS OpenQuery(PDH_HQUERY* phQuery)
    {
        *phQuery = *queries.insert(NewHandle()).first;
        return ERROR_SUCCESS;
    }

    PDH_STATUS CloseQuery(PDH_HQUERY hQuery)
    {
        if (queries.erase(hQuery) == 0)
        {
            return WrongHandle();
        }
        for (auto counter = counters.begin(); counter != counters.end();)
        {
            counter = counter->second.hQuery == hQuery ? counters.erase(counter) : std::next(counter);
        }
        return ERROR_SUCCESS;
    }

    PDH_STATUS AddCounter(PDH_HQUERY hQuery, const std::wstring& path, PDH_HCOUNTER* phCounter)
    {
        if (queries.count(hQuery) == 0)
        {
            return WrongHandle();
        }
        const PDH_STATUS status = StatusOfPath(path);
        if (status == ERROR_SUCCESS)
        {
            *phCounter = NewHandle();
            counters[*phCounter] = {path, hQuery};
        }
        return status;
    }

    // An instance that is not there is no reason to refuse a counter: it may come.
    PDH_STATUS StatusOfPath(const std::wstring& path) const
    {
        const std::optional<PathParts> asked = PartsOf(path);
        if (!asked)
        {
            return Status(PDH_CSTATUS_BAD_COUNTERNAME);
        }
        bool bObject = objects.count(asked->object) != 0;
        for (const auto& [known, source] : sources)
        {
            const std::optional<PathParts> parts = PartsOf(known);
            if (parts && parts->object == asked->object)
            {
                if (parts->counter == asked->counter)
                {
                    return ERROR_SUCCESS;
                }
                bObject = true;
            }
        }
        return Status(bObject ? PDH_CSTATUS_NO_COUNTER : PDH_CSTATUS_NO_OBJECT);
    }

    PDH_STATUS RemoveCounter(PDH_HCOUNTER hCounter)
    {
        return counters.erase(hCounter) == 0 ? WrongHandle() : ERROR_SUCCESS;
    }

    // No data: the query has no counter, or there is no instance for any that it has.
    PDH_STATUS Collect(PDH_HQUERY hQuery)
    {
        if (queries.count(hQuery) == 0)
        {
            return WrongHandle();
        }
        PDH_STATUS status = Status(PDH_NO_DATA);
        for (auto& [hCounter, counter] : counters)
        {
            if (counter.hQuery == hQuery && sources.count(counter.path) != 0)
            {
                ++counter.nSamples;
                status = ERROR_SUCCESS;
            }
        }
        return status;
    }

    PDH_STATUS Read(PDH_HCOUNTER hCounter, DWORD dwFormat, PPDH_FMT_COUNTERVALUE pValue, std::wstring& subject)
    {
        const auto counter = counters.find(hCounter);
        if (counter == counters.end())
        {
            return WrongHandle();
        }
        subject = counter->second.path;
        if ((dwFormat & PDH_FMT_DOUBLE) == 0)
        {
            return Status(PDH_INVALID_ARGUMENT); // the module reads doubles only
        }
        if (counter->second.nSamples < 2)
        {
            return Status(PDH_INVALID_DATA); // a rate lies between two samples
        }
        const Reading reading = NextReading(sources[subject]);
        if (reading.status == ERROR_SUCCESS)
        {
            pValue->CStatus = PDH_CSTATUS_VALID_DATA;
            pValue->doubleValue = reading.dValue;
        }
        return reading.status;
    }

    static Reading NextReading(Source& source)
    {
        if (!source.queue.empty())
        {
            const Reading reading = source.queue.front();
            source.queue.pop_front();
            return reading;
        }
        return source.value ? Reading{ERROR_SUCCESS, *source.value} : Reading{Status(PDH_INVALID_DATA), 0.0};
    }
};

namespace
{

std::wstring TextOf(const char* pszText)
{
    return pszText != nullptr ? WideFromAnsi(pszText) : std::wstring();
}

std::wstring TextOf(const wchar_t* pwszText)
{
    return pwszText != nullptr ? pwszText : std::wstring();
}

// The calls that exist in two widths differ in their character type only.
template <class Character, class State>
void ScriptEnumeration(RestoredImports& imports, const char* pszFunction, const std::shared_ptr<State>& state)
{
    using Signature = PDH_STATUS(const Character*, const Character*, const Character*, Character*, LPDWORD, Character*,
                                 LPDWORD, DWORD, DWORD);
    imports.TryReplace<Signature>(
        pszFunction,
        [=](const Character*, const Character*, const Character* pObject, Character* pCounters, LPDWORD pcchCounters,
            Character* pInstances, LPDWORD pcchInstances, DWORD, DWORD)
        {
            return state->Run(
                pszFunction, TextOf(pObject),
                [&](const std::wstring& object)
                { return state->EnumerateItems(object, pCounters, pcchCounters, pInstances, pcchInstances); });
        });
}

template <class Character, class State>
void ScriptOpening(RestoredImports& imports, const char* pszFunction, const std::shared_ptr<State>& state)
{
    imports.TryReplace<PDH_STATUS(const Character*, DWORD_PTR, PDH_HQUERY*)>(
        pszFunction, [=](const Character*, DWORD_PTR, PDH_HQUERY* phQuery)
        { return state->Run(pszFunction, {}, [&](const std::wstring&) { return state->OpenQuery(phQuery); }); });
}

template <class Character, class State>
void ScriptAdding(RestoredImports& imports, const char* pszFunction, const std::shared_ptr<State>& state)
{
    imports.TryReplace<PDH_STATUS(PDH_HQUERY, const Character*, DWORD_PTR, PDH_HCOUNTER*)>(
        pszFunction,
        [=](PDH_HQUERY hQuery, const Character* pPath, DWORD_PTR, PDH_HCOUNTER* phCounter)
        {
            return state->Run(pszFunction, TextOf(pPath),
                              [&](const std::wstring& path) { return state->AddCounter(hQuery, path, phCounter); });
        });
}

// A module that reads no counters at all has no business with this script: the collection must be there.
template <class State>
void ScriptHandleCalls(RestoredImports& imports, const std::shared_ptr<State>& state)
{
    const auto collect = [=](PDH_HQUERY hQuery)
    { return state->Run("PdhCollectQueryData", {}, [&](const std::wstring&) { return state->Collect(hQuery); }); };
    const auto close = [=](PDH_HQUERY hQuery)
    { return state->Run("PdhCloseQuery", {}, [&](const std::wstring&) { return state->CloseQuery(hQuery); }); };
    const auto remove = [=](PDH_HCOUNTER hCounter)
    { return state->Run("PdhRemoveCounter", {}, [&](const std::wstring&) { return state->RemoveCounter(hCounter); }); };
    const auto read = [=](PDH_HCOUNTER hCounter, DWORD dwFormat, LPDWORD, PPDH_FMT_COUNTERVALUE pValue)
    {
        const auto readCounter = [&](std::wstring& subject)
        { return state->Read(hCounter, dwFormat, pValue, subject); };
        return state->Run("PdhGetFormattedCounterValue", {}, readCounter);
    };
    imports.Replace<decltype(::PdhCollectQueryData)>("PdhCollectQueryData", collect);
    imports.TryReplace<decltype(::PdhCloseQuery)>("PdhCloseQuery", close);
    imports.TryReplace<decltype(::PdhRemoveCounter)>("PdhRemoveCounter", remove);
    imports.TryReplace<decltype(::PdhGetFormattedCounterValue)>("PdhGetFormattedCounterValue", read);
}

void RequireKnown(const char* pszFunction)
{
    static const std::set<std::string> known = {"PdhEnumObjectItemsA", "PdhEnumObjectItemsW",
                                                "PdhOpenQueryA",       "PdhOpenQueryW",
                                                "PdhAddCounterA",      "PdhAddCounterW",
                                                "PdhRemoveCounter",    "PdhCloseQuery",
                                                "PdhCollectQueryData", "PdhGetFormattedCounterValue"};
    if (known.count(pszFunction) == 0)
    {
        FAIL("ScriptedPdh does not answer for " << pszFunction);
    }
}

} // namespace

ScriptedPdh::ScriptedPdh(ImportRedirector& redirector) : m_state(std::make_shared<State>()), m_imports(redirector)
{
    ScriptEnumeration<char>(m_imports, "PdhEnumObjectItemsA", m_state);
    ScriptEnumeration<wchar_t>(m_imports, "PdhEnumObjectItemsW", m_state);
    ScriptOpening<char>(m_imports, "PdhOpenQueryA", m_state);
    ScriptOpening<wchar_t>(m_imports, "PdhOpenQueryW", m_state);
    ScriptAdding<char>(m_imports, "PdhAddCounterA", m_state);
    ScriptAdding<wchar_t>(m_imports, "PdhAddCounterW", m_state);
    ScriptHandleCalls(m_imports, m_state);
}

ScriptedPdh::~ScriptedPdh() = default;

void ScriptedPdh::SetInstances(const std::wstring& object, const std::vector<std::wstring>& instances)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->objects[object] = instances;
}

void ScriptedPdh::SetValue(const std::wstring& path, double dValue)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->sources[path].value = dValue;
}

void ScriptedPdh::QueueValues(const std::wstring& path, const std::vector<double>& values)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    for (const double dValue : values)
    {
        m_state->sources[path].queue.push_back({ERROR_SUCCESS, dValue});
    }
}

void ScriptedPdh::QueueReadStatus(const std::wstring& path, PDH_STATUS status)
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->sources[path].queue.push_back({status, 0.0});
}

void ScriptedPdh::QueueStatus(const char* pszFunction, const std::vector<PDH_STATUS>& statuses)
{
    const UnscriptedScope unscripted;
    RequireKnown(pszFunction);
    const SlimLockHold hold(m_state->lock);
    std::deque<PDH_STATUS>& queue = m_state->queuedStatuses[pszFunction];
    queue.insert(queue.end(), statuses.begin(), statuses.end());
}

void ScriptedPdh::SetStatus(const char* pszFunction, PDH_STATUS status)
{
    const UnscriptedScope unscripted;
    RequireKnown(pszFunction);
    const SlimLockHold hold(m_state->lock);
    m_state->statuses[pszFunction] = status;
}

std::vector<PdhCall> ScriptedPdh::Calls() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    return m_state->calls;
}

std::size_t ScriptedPdh::CountCalls(const char* pszFunction) const
{
    const UnscriptedScope unscripted;
    RequireKnown(pszFunction);
    const SlimLockHold hold(m_state->lock);
    const auto isWanted = [&](const PdhCall& call) { return call.function == pszFunction; };
    return static_cast<std::size_t>(std::count_if(m_state->calls.begin(), m_state->calls.end(), isWanted));
}

void ScriptedPdh::ForgetCalls()
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    m_state->calls.clear();
}

std::size_t ScriptedPdh::OpenQueries() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    return m_state->queries.size();
}

std::size_t ScriptedPdh::OpenCounters() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    return m_state->counters.size();
}

std::size_t ScriptedPdh::WrongHandles() const
{
    const UnscriptedScope unscripted;
    const SlimLockHold hold(m_state->lock);
    return m_state->nWrongHandles;
}

} // namespace varnex::test
