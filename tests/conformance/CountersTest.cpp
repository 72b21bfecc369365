// The performance data helper. The checks read \Processor(_Total)\% Processor Time, which Wine has as well, by the names
// of the system's language.

#include "Codes.h"
#include "Conformance.h"

#include "common/Pdh.h"
#include "module/monitors/WinePdh.h"
#include "support/ChildProcess.h"
#include "support/ModuleTree.h"
#include "support/ScriptedPdh.h"
#include "support/TestFiles.h"

#include <catch2/catch.hpp>

#include <algorithm>

namespace varnex::test
{

namespace
{

constexpr DWORD PROCESSOR = 238; // the index of a name, the same in all languages
constexpr DWORD PROCESSOR_TIME = 6;
constexpr DWORD PROCESS = 230;

// A name in the system's language.
std::wstring NameOf(DWORD dwIndex, const wchar_t* pwszEnglish)
{
    wchar_t wszName[PDH_MAX_COUNTER_NAME];
    DWORD cchName = PDH_MAX_COUNTER_NAME;
    return PdhLookupPerfNameByIndexW(nullptr, dwIndex, wszName, &cchName) == ERROR_SUCCESS ? wszName : pwszEnglish;
}

std::wstring Processor()
{
    return NameOf(PROCESSOR, L"Processor");
}

std::wstring PathOf(const std::wstring& object, const std::wstring& instance, const std::wstring& counter)
{
    return L"\\" + object + L"(" + instance + L")\\" + counter;
}

std::wstring TotalPath()
{
    return PathOf(Processor(), L"_Total", NameOf(PROCESSOR_TIME, L"% Processor Time"));
}

struct ScriptedCounters
{
    explicit ScriptedCounters(ImportRedirector& redirector) : pdh(redirector)
    {
        pdh.SetInstances(Processor(), {L"0", L"1", L"_Total"});
        pdh.SetValue(TotalPath(), 42.0);
    }
    ScriptedPdh pdh;
};

// The stand-in library, with a processor that is busy for a quarter of the time.
struct WinePdhMachine
{
    explicit WinePdhMachine(ImportRedirector& redirector)
    {
        WriteFileBytes(source, "cpu  0 0 0 0 0 0 0 0 0 0\ncpu0 0 0 0 0 0 0 0 0 0 0\n");
        SetEnvironmentVariableW(L"WINEPDH_PROC_STAT", source.c_str());
        library.Serve(redirector);
        const auto collect = library.Collect;
        // The times move on with each collection.
        redirector.Replace<decltype(::PdhCollectQueryData)>("PdhCollectQueryData",
                                                            [this, collect](PDH_HQUERY hQuery)
                                                            {
                                                                Move();
                                                                return collect(hQuery);
                                                            });
    }
    ~WinePdhMachine() { SetEnvironmentVariableW(L"WINEPDH_PROC_STAT", nullptr); }
    WinePdhMachine(const WinePdhMachine&) = delete;
    WinePdhMachine& operator=(const WinePdhMachine&) = delete;

    void Move()
    {
        nTicks += 100;
        const std::string times = std::to_string(nTicks) + " 0 0 " + std::to_string(3 * nTicks) + " 0 0 0 0 0 0\n";
        WriteFileBytes(source, "cpu  " + times + "cpu0 " + times);
    }

    ModuleTree tree;
    std::wstring source = tree.Root() + L"\\stat";
    WinePdh library;
    int nTicks = 0;
};

Fakes CounterFakes()
{
    return {FakeOf<ScriptedCounters>("scripted PDH"), FakeOf<WinePdhMachine>("winepdh")};
}

UniquePdhQuery OpenQuery()
{
    UniquePdhQuery query;
    PdhOpenQueryW(nullptr, 0, query.Receive());
    return query;
}

std::string AddName(const std::wstring& path)
{
    const UniquePdhQuery query = OpenQuery();
    UniquePdhCounter counter;
    return CounterStatusName(PdhAddCounterW(query.Get(), path.c_str(), 0, counter.Receive()));
}

std::string ValueName(PDH_STATUS nStatus, const PDH_FMT_COUNTERVALUE& value)
{
    if (nStatus != ERROR_SUCCESS)
    {
        return CounterStatusName(nStatus);
    }
    return value.doubleValue >= 0.0 && value.doubleValue <= 100.0 ? "0 to 100" : "out of range";
}

std::string ReadTotal(PDH_HCOUNTER hCounter, DWORD dwFormat = PDH_FMT_DOUBLE)
{
    PDH_FMT_COUNTERVALUE value{};
    const PDH_STATUS nStatus = PdhGetFormattedCounterValue(hCounter, dwFormat, nullptr, &value);
    return ValueName(nStatus, value);
}

// The total's value after so many collections, with a pause after each.
std::string ReadAfter(int nCollections, DWORD dwPauseMs, DWORD dwFormat = PDH_FMT_DOUBLE)
{
    const UniquePdhQuery query = OpenQuery();
    UniquePdhCounter counter;
    PDH_STATUS nStatus = PdhAddCounterW(query.Get(), TotalPath().c_str(), 0, counter.Receive());
    for (int i = 0; i < nCollections && nStatus == ERROR_SUCCESS; ++i)
    {
        nStatus = PdhCollectQueryData(query.Get());
        Sleep(dwPauseMs);
    }
    return nStatus != ERROR_SUCCESS ? CounterStatusName(nStatus) : ReadTotal(counter.Get(), dwFormat);
}

struct Listing
{
    PDH_STATUS nStatus;
    DWORD cchCounters;
    DWORD cchInstances;
    std::wstring instances;
};

Listing Enumerate(const std::wstring& object, DWORD cchCounters, DWORD cchInstances)
{
    std::wstring counters(cchCounters, L'#');
    Listing listing{0, cchCounters, cchInstances, std::wstring(cchInstances, L'#')};
    listing.nStatus = PdhEnumObjectItemsW(
        nullptr, nullptr, object.c_str(), cchCounters == 0 ? nullptr : counters.data(), &listing.cchCounters,
        cchInstances == 0 ? nullptr : listing.instances.data(), &listing.cchInstances, PERF_DETAIL_ADVANCED, 0);
    return listing;
}

Listing EnumerateAll(const std::wstring& object)
{
    const Listing sizes = Enumerate(object, 0, 0);
    return sizes.nStatus == static_cast<PDH_STATUS>(PDH_MORE_DATA)
               ? Enumerate(object, sizes.cchCounters, sizes.cchInstances)
               : sizes;
}

const std::string COLLECT_PAGE = "windows/win32/api/pdh/nf-pdh-pdhcollectquerydata";
const std::string ADD_PAGE = "windows/win32/api/pdh/nf-pdh-pdhaddcounterw";
const std::string VALUE_PAGE = "windows/win32/api/pdh/nf-pdh-pdhgetformattedcountervalue";
const std::string ENUM_PAGE = "windows/win32/api/pdh/nf-pdh-pdhenumobjectitemsw";
const std::string CLOSE_PAGE = "windows/win32/api/pdh/nf-pdh-pdhclosequery";
const std::string REMOVE_PAGE = "windows/win32/api/pdh/nf-pdh-pdhremovecounter";
const std::string STATUS_PAGE = "windows/win32/perfctrs/checking-pdh-interface-return-values";
const std::string COLLECTING_PAGE = "windows/win32/perfctrs/collecting-performance-data";

} // namespace

TEST_CASE("counters: a query without counters answers PDH_NO_DATA at its collection")
{
    Verify(
        Documented("PDH_NO_DATA", COLLECT_PAGE),
        [] { return CounterStatusName(PdhCollectQueryData(OpenQuery().Get())); }, CounterFakes());
}

TEST_CASE("counters: a counter that was refused is not in its query")
{
    Verify(
        Documented("PDH_NO_DATA", STATUS_PAGE),
        []
        {
            const UniquePdhQuery query = OpenQuery();
            UniquePdhCounter counter;
            const std::wstring path = PathOf(Processor(), L"_Total", L"No Such Counter");
            PdhAddCounterW(query.Get(), path.c_str(), 0, counter.Receive());
            return CounterStatusName(PdhCollectQueryData(query.Get()));
        },
        CounterFakes());
}

TEST_CASE("counters: a query with one counter collects")
{
    Verify(
        Documented("ERROR_SUCCESS", COLLECT_PAGE),
        []
        {
            const UniquePdhQuery query = OpenQuery();
            UniquePdhCounter counter;
            PdhAddCounterW(query.Get(), TotalPath().c_str(), 0, counter.Receive());
            return CounterStatusName(PdhCollectQueryData(query.Get()));
        },
        CounterFakes());
}

TEST_CASE("counters: a query whose counters were all removed answers PDH_NO_DATA again")
{
    Verify(
        Documented("PDH_NO_DATA", COLLECT_PAGE),
        []
        {
            const UniquePdhQuery query = OpenQuery();
            UniquePdhCounter counter;
            PdhAddCounterW(query.Get(), TotalPath().c_str(), 0, counter.Receive());
            counter.Reset();
            return CounterStatusName(PdhCollectQueryData(query.Get()));
        },
        CounterFakes());
}

TEST_CASE("counters: a handle that is no query is told from one at the collection")
{
    Verify(
        Documented("PDH_INVALID_HANDLE", COLLECT_PAGE), [] { return CounterStatusName(PdhCollectQueryData(nullptr)); },
        CounterFakes());
}

TEST_CASE("counters: an unknown object is refused when its counter is added")
{
    Verify(
        Documented("PDH_CSTATUS_NO_OBJECT", ADD_PAGE).OnWine("PDH_CSTATUS_NO_COUNTER"),
        [] { return AddName(L"\\No Such Object(_Total)\\% Processor Time"); }, CounterFakes());
}

TEST_CASE("counters: an unknown counter of a known object is refused")
{
    Verify(
        Documented("PDH_CSTATUS_NO_COUNTER", ADD_PAGE),
        [] { return AddName(PathOf(Processor(), L"_Total", L"No Such Counter")); }, CounterFakes());
}

TEST_CASE("counters: a counter of an instance that is not there is added all the same")
{
    Verify(
        Documented("a counter", STATUS_PAGE).OnWine("no counter"),
        []
        {
            const UniquePdhQuery query = OpenQuery();
            UniquePdhCounter counter;
            const std::wstring path = PathOf(Processor(), L"4095", NameOf(PROCESSOR_TIME, L"% Processor Time"));
            PdhAddCounterW(query.Get(), path.c_str(), 0, counter.Receive());
            return std::string(counter ? "a counter" : "no counter");
        },
        CounterFakes());
}

TEST_CASE("counters: a query whose only counter is of an instance that is not there has no data")
{
    Verify(
        Documented("PDH_NO_DATA", COLLECT_PAGE),
        []
        {
            const UniquePdhQuery query = OpenQuery();
            UniquePdhCounter counter;
            const std::wstring path = PathOf(Processor(), L"4095", NameOf(PROCESSOR_TIME, L"% Processor Time"));
            PdhAddCounterW(query.Get(), path.c_str(), 0, counter.Receive());
            return CounterStatusName(PdhCollectQueryData(query.Get()));
        },
        CounterFakes());
}

TEST_CASE("counters: an empty path is told from one that cannot be found")
{
    Verify(
        Documented("PDH_CSTATUS_NO_COUNTERNAME", ADD_PAGE)
            .OnWine("PDH_CSTATUS_NO_COUNTER")
            .OnFake("scripted PDH", "PDH_CSTATUS_BAD_COUNTERNAME", "takes an empty path for a malformed one"),
        [] { return AddName(L""); }, CounterFakes());
}

TEST_CASE("counters: a path that cannot be taken apart is told from one that cannot be found")
{
    Verify(
        Documented("PDH_CSTATUS_BAD_COUNTERNAME", ADD_PAGE).OnWine("PDH_CSTATUS_NO_COUNTER"),
        [] { return AddName(L"no path"); }, CounterFakes());
}

TEST_CASE("counters: a counter is not added to what is no query")
{
    Verify(
        Documented("PDH_INVALID_HANDLE", ADD_PAGE),
        []
        {
            UniquePdhCounter counter;
            return CounterStatusName(PdhAddCounterW(nullptr, TotalPath().c_str(), 0, counter.Receive()));
        },
        CounterFakes());
}

TEST_CASE("counters: both widths find the same counter")
{
    Verify(
        Documented("ERROR_SUCCESS", "windows/win32/api/pdh/nf-pdh-pdhaddcountera"),
        []
        {
            PDH_HQUERY hQuery = nullptr;
            PdhOpenQueryA(nullptr, 0, &hQuery);
            const UniquePdhQuery query(hQuery);
            UniquePdhCounter counter;
            const std::string path = AnsiFromWide(TotalPath());
            return CounterStatusName(PdhAddCounterA(query.Get(), path.c_str(), 0, counter.Receive()));
        },
        CounterFakes());
}

TEST_CASE("counters: names of objects and counters are found without regard to case")
{
    Verify(
        Unknown("windows/win32/perfctrs/specifying-a-counter-path")
            .OnWine("PDH_CSTATUS_NO_COUNTER")
            .OnFake("scripted PDH", "PDH_CSTATUS_NO_OBJECT", "knows its names in one case")
            .OnFake("winepdh", "ERROR_SUCCESS", "takes any case, to be found by whatever a module makes of it"),
        []
        {
            std::wstring path = TotalPath();
            CharUpperW(path.data());
            return AddName(path);
        },
        CounterFakes());
}

TEST_CASE("counters: a query that was closed is unknown")
{
    Verify(
        Documented("PDH_INVALID_HANDLE", CLOSE_PAGE),
        []
        {
            UniquePdhQuery query = OpenQuery();
            const PDH_HQUERY hQuery = query.Get();
            query.Reset();
            return CounterStatusName(PdhCloseQuery(hQuery));
        },
        CounterFakes());
}

TEST_CASE("counters: closing a query closes its counters")
{
    Verify(
        Documented("PDH_INVALID_HANDLE", CLOSE_PAGE),
        []
        {
            UniquePdhQuery query = OpenQuery();
            UniquePdhCounter counter;
            PdhAddCounterW(query.Get(), TotalPath().c_str(), 0, counter.Receive());
            query.Reset();
            return CounterStatusName(PdhRemoveCounter(counter.Release()));
        },
        CounterFakes());
}

TEST_CASE("counters: a counter that was removed is unknown")
{
    Verify(
        Documented("PDH_INVALID_HANDLE, PDH_INVALID_HANDLE", REMOVE_PAGE),
        []
        {
            const UniquePdhQuery query = OpenQuery();
            UniquePdhCounter counter;
            PdhAddCounterW(query.Get(), TotalPath().c_str(), 0, counter.Receive());
            const PDH_HCOUNTER hCounter = counter.Get();
            counter.Reset();
            return ReadTotal(hCounter) + ", " + CounterStatusName(PdhRemoveCounter(hCounter));
        },
        CounterFakes());
}

TEST_CASE("counters: a rate has no value before the first collection")
{
    Verify(
        Documented("PDH_INVALID_DATA", VALUE_PAGE).OnWine("0 to 100"), [] { return ReadAfter(0, 0); }, CounterFakes());
}

TEST_CASE("counters: a rate has no value after one collection")
{
    Verify(
        Documented("PDH_INVALID_DATA", COLLECTING_PAGE).OnWine("0 to 100"), [] { return ReadAfter(1, 0); },
        CounterFakes());
}

TEST_CASE("counters: a processor's time is a percentage after two collections")
{
    Verify(
        Documented("0 to 100", COLLECTING_PAGE), [] { return ReadAfter(2, 200); }, CounterFakes());
}

TEST_CASE("counters: a processor's time read twice between two collections is the same")
{
    Verify(
        Documented("the same", VALUE_PAGE),
        []
        {
            const UniquePdhQuery query = OpenQuery();
            UniquePdhCounter counter;
            PdhAddCounterW(query.Get(), TotalPath().c_str(), 0, counter.Receive());
            PdhCollectQueryData(query.Get());
            Sleep(200);
            PdhCollectQueryData(query.Get());
            PDH_FMT_COUNTERVALUE first{};
            PDH_FMT_COUNTERVALUE second{};
            PdhGetFormattedCounterValue(counter.Get(), PDH_FMT_DOUBLE, nullptr, &first);
            PdhGetFormattedCounterValue(counter.Get(), PDH_FMT_DOUBLE, nullptr, &second);
            return std::string(first.doubleValue == second.doubleValue ? "the same" : "another value");
        },
        CounterFakes());
}

// The document says that a difference of two equal samples is usually 0; the counter's formula gives 100 when only the
// time has moved on.
TEST_CASE("counters: two collections a millisecond apart read a processor's time that can be 0 or 100")
{
    Verify(Unknown(COLLECTING_PAGE).OnWine("never 0, never 100"),
           []
           {
               const UniquePdhQuery query = OpenQuery();
               UniquePdhCounter counter;
               PDH_STATUS nStatus = PdhAddCounterW(query.Get(), TotalPath().c_str(), 0, counter.Receive());
               int nZero = 0;
               int nFull = 0;
               for (int i = 0; i < 20 && nStatus == ERROR_SUCCESS; ++i)
               {
                   PDH_FMT_COUNTERVALUE value{};
                   PdhCollectQueryData(query.Get());
                   Sleep(1);
                   PdhCollectQueryData(query.Get());
                   nStatus = PdhGetFormattedCounterValue(counter.Get(), PDH_FMT_DOUBLE, nullptr, &value);
                   nZero += nStatus == ERROR_SUCCESS && value.doubleValue == 0.0 ? 1 : 0;
                   nFull += nStatus == ERROR_SUCCESS && value.doubleValue == 100.0 ? 1 : 0;
               }
               if (nStatus != ERROR_SUCCESS)
               {
                   return CounterStatusName(nStatus);
               }
               return std::string(nZero != 0 ? "sometimes 0" : "never 0") +
                      (nFull != 0 ? ", sometimes 100" : ", never 100");
           });
}

TEST_CASE("counters: a value is not read in no format")
{
    Verify(
        Documented("PDH_INVALID_ARGUMENT", VALUE_PAGE), [] { return ReadAfter(2, 20, 0); }, CounterFakes());
}

TEST_CASE("counters: the sizes of an object's lists are asked for with sizes of 0")
{
    Verify(
        Documented("PDH_MORE_DATA, sizes", ENUM_PAGE).OnWine("PDH_NOT_IMPLEMENTED, no sizes"),
        []
        {
            const Listing listing = Enumerate(Processor(), 0, 0);
            return CounterStatusName(listing.nStatus) +
                   (listing.cchCounters > 1 && listing.cchInstances > 1 ? ", sizes" : ", no sizes");
        },
        CounterFakes());
}

TEST_CASE("counters: lists of the sizes that were told fit, and those are their lengths with all terminators")
{
    Verify(
        Documented("ERROR_SUCCESS, two terminators at the end", ENUM_PAGE).OnWine("PDH_NOT_IMPLEMENTED"),
        []
        {
            const Listing listing = EnumerateAll(Processor());
            const std::wstring& list = listing.instances;
            const bool bEnded = list.size() > 2 && listing.cchInstances == list.size() &&
                                list.find(std::wstring(2, L'\0')) == list.size() - 2;
            return CounterStatusName(listing.nStatus) + (bEnded ? ", two terminators at the end" : "");
        },
        CounterFakes());
}

TEST_CASE("counters: a list of instances that does not fit answers PDH_MORE_DATA")
{
    Verify(
        Documented("PDH_MORE_DATA", ENUM_PAGE).OnWine("PDH_NOT_IMPLEMENTED"),
        [] { return CounterStatusName(Enumerate(Processor(), 4096, 2).nStatus); }, CounterFakes());
}

TEST_CASE("counters: the processors have an aggregate instance named _Total")
{
    Verify(
        Documented("it is there", "windows/win32/perfctrs/object-and-counter-design").OnWine("PDH_NOT_IMPLEMENTED"),
        []
        {
            const Listing listing = EnumerateAll(Processor());
            const bool bFound = listing.instances.find(std::wstring(L"_Total") + L'\0') != std::wstring::npos;
            return bFound ? std::string("it is there") : CounterStatusName(listing.nStatus);
        },
        CounterFakes());
}

TEST_CASE("counters: both widths list the same instances")
{
    Verify(
        Documented("the same", "windows/win32/api/pdh/nf-pdh-pdhenumobjectitemsa").OnWine("PDH_NOT_IMPLEMENTED"),
        []
        {
            const Listing listing = EnumerateAll(Processor());
            std::string counters(4096, '#');
            std::string instances(4096, '#');
            DWORD cchCounters = 4096;
            DWORD cchInstances = 4096;
            const PDH_STATUS nStatus =
                PdhEnumObjectItemsA(nullptr, nullptr, AnsiFromWide(Processor()).c_str(), counters.data(), &cchCounters,
                                    instances.data(), &cchInstances, PERF_DETAIL_ADVANCED, 0);
            if (nStatus != ERROR_SUCCESS)
            {
                return CounterStatusName(nStatus);
            }
            instances.resize(cchInstances);
            return std::string(instances == AnsiFromWide(listing.instances) ? "the same" : "others");
        },
        CounterFakes());
}

TEST_CASE("child: waits to be ended", "[.]")
{
    Sleep(60000);
}

// What an enumeration tells of a process that began after the first one, with and without a refresh.
TEST_CASE("counters: a list of instances that was asked for before is asked for anew only after a refresh")
{
    Verify(Unknown("windows/win32/api/pdh/nf-pdh-pdhenumobjectsw").OnWine("PDH_NOT_IMPLEMENTED"),
           []
           {
               const std::wstring object = NameOf(PROCESS, L"Process");
               const std::size_t cchBefore = EnumerateAll(object).instances.size();
               const ChildProcess child = ChildProcess::OfTestCase("child: waits to be ended");
               Sleep(1000);
               const Listing after = EnumerateAll(object);
               if (after.nStatus != ERROR_SUCCESS)
               {
                   return CounterStatusName(after.nStatus);
               }
               DWORD cchObjects = 0;
               PdhEnumObjectsW(nullptr, nullptr, nullptr, &cchObjects, PERF_DETAIL_ADVANCED, TRUE);
               const std::size_t cchRefreshed = EnumerateAll(object).instances.size();
               return std::string(after.instances.size() == cchBefore ? "the old list" : "a new list") +
                      (cchRefreshed == cchBefore ? ", the old list" : ", a new list after a refresh");
           });
}

TEST_CASE("counters: the items of an unknown object are told as such")
{
    Verify(
        Documented("PDH_CSTATUS_NO_OBJECT", ENUM_PAGE).OnWine("PDH_NOT_IMPLEMENTED"),
        [] { return CounterStatusName(Enumerate(L"No Such Object", 0, 0).nStatus); }, CounterFakes());
}

TEST_CASE("counters: a null name of an object is refused")
{
    Verify(
        Documented("PDH_INVALID_ARGUMENT", ENUM_PAGE)
            .OnWine("PDH_NOT_IMPLEMENTED")
            .OnFake("scripted PDH", "PDH_CSTATUS_NO_OBJECT", "looks it up as an empty one"),
        []
        {
            DWORD cchCounters = 0;
            DWORD cchInstances = 0;
            return CounterStatusName(PdhEnumObjectItemsW(nullptr, nullptr, nullptr, nullptr, &cchCounters, nullptr,
                                                         &cchInstances, PERF_DETAIL_ADVANCED, 0));
        },
        CounterFakes());
}

} // namespace varnex::test
