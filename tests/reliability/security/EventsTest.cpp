#include "HostUnderAttack.h"
#include "HostileObject.h"

#include "reliability/LongForm.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

// Events that somebody sets and resets at will.

namespace varnex::test
{

namespace
{

constexpr DWORD STORM_MS = 3000;

UniqueHandle OpenBegin()
{
    UniqueHandle begin(OpenEventW(EVENT_ALL_ACCESS, FALSE, BEGIN_NAME));
    REQUIRE(begin);
    return begin;
}

void WriteRequest(std::uint32_t nTotal, std::uint32_t nMinimum)
{
    const UniqueHandle section(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, SECTION_NAME));
    const UniqueView view(MapViewOfFile(section.Get(), FILE_MAP_ALL_ACCESS, 0, 0, SECTION_BYTES));
    REQUIRE(view);
    static_cast<volatile std::uint32_t*>(view.Get())[0] = nTotal;
    static_cast<volatile std::uint32_t*>(view.Get())[1] = nMinimum;
}

// For as long as the storm lasts, on this thread.
void KeepDoing(DWORD dwMilliseconds, const std::function<void()>& operation)
{
    const ULONGLONG ullEnd = GetTickCount64() + dwMilliseconds;
    while (GetTickCount64() < ullEnd)
    {
        operation();
        Sleep(0);
    }
}

std::string PerSecond(std::size_t nCount)
{
    return std::to_string(nCount * 1000 / STORM_MS);
}

} // namespace

TEST_CASE("a begin event that is set without an end makes the module answer without an end, and no more")
{
    HostUnderAttack host;
    host.Begin();
    host.AskForReport();
    const std::size_t nBefore = host.Log().CountContaining("CreatePKIXMLToMMF -- Should calculate");
    const UniqueHandle begin = OpenBegin();
    WriteRequest(1, 1);
    KeepDoing(STORM_MS, [&] { SetEvent(begin.Get()); });
    const std::size_t nReports = host.Log().CountContaining("CreatePKIXMLToMMF -- Should calculate") - nBefore;
    CHECK(nReports > 10);
    host.AwaitReset();
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    host.End();
    PrintFigure("hostile events: " + PerSecond(nReports) +
                " reports a second for one who sets the begin event at will");
}

TEST_CASE("a request of zero that is left standing keeps the report thread busy and the log growing until it is reset")
{
    HostUnderAttack host;
    host.Begin();
    host.AskForReport();
    const UniqueHandle begin = OpenBegin();
    WriteRequest(0, 0);
    const std::size_t cbBefore = host.Log().Bytes().size();
    SetEvent(begin.Get());
    Sleep(STORM_MS);
    ResetEvent(begin.Get());
    const std::size_t cbLogged = host.Log().Bytes().size() - cbBefore;
    CHECK(host.Log().CountContaining("total or minimum sampling amount is zero, exit...") > 10);
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    CHECK(host.FetchAll() == 2);
    host.End();
    PrintFigure("hostile events: a request of zero that is left standing grows the log by " +
                PerSecond(cbLogged / 1024) + " KiB a second");
}

TEST_CASE("a stop whose wake-up is taken away ends the report thread by force, and reporting can begin again")
{
    HostUnderAttack host;
    host.Begin();
    host.AskForReport();
    const UniqueHandle begin = OpenBegin();
    const UniqueHandle ended(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    struct Thief
    {
        HANDLE hBegin;
        HANDLE hEnded;
    } thief{begin.Get(), ended.Get()};
    const UniqueHandle thread(CreateThread(
        nullptr, 0,
        [](void* pThief) -> DWORD
        {
            const auto& self = *static_cast<Thief*>(pThief);
            while (WaitForSingleObject(self.hEnded, 0) != WAIT_OBJECT_0)
            {
                ResetEvent(self.hBegin);
            }
            return 0;
        },
        &thief, 0, nullptr));
    host.StopReports();
    SetEvent(ended.Get());
    WaitForSingleObject(thread.Get(), INFINITE);
    host.StartReports();
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    host.End();
}

TEST_CASE("a begin event with automatic reset, made by somebody else, brings reports like the module's own")
{
    const HostileObject begin(HostileObject::Kind::Event, BEGIN_NAME);
    HostUnderAttack host;
    host.Begin();
    HostAgent agent(L"");
    agent.Ask(1, 1);
    CHECK(agent.TakeFinish(HostUnderAttack::PATIENCE_MS));
    CHECK(agent.Length() > 0);
    host.End();
}

TEST_CASE("a finish event that somebody sets at will changes nothing in the module")
{
    HostUnderAttack host;
    host.Begin();
    const UniqueHandle finish(OpenEventW(EVENT_ALL_ACCESS, FALSE, FINISH_NAME));
    REQUIRE(finish);
    bool bSet = false;
    KeepDoing(STORM_MS / 3, [&] { (bSet = !bSet) ? SetEvent(finish.Get()) : ResetEvent(finish.Get()); });
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    host.End();
}

} // namespace varnex::test
