// Mutexes, events and sections with names, and waits for them.

#include "Codes.h"
#include "Conformance.h"
#include "OtherThread.h"

#include "common/EveryoneAccess.h"
#include "common/Handles.h"
#include "support/ChildProcess.h"
#include "support/ModuleTree.h"
#include "support/PrivateMutexes.h"
#include "support/PrivateNames.h"
#include "support/TestText.h"
#include "support/VirtualClock.h"

#include <catch2/catch.hpp>

#include <psapi.h>

#include <algorithm>

namespace varnex::test
{

namespace
{

constexpr DWORD SECTION_BYTES = 32768;
constexpr DWORD PATIENCE_MS = 20000;

struct PrivateObjects
{
    explicit PrivateObjects(ImportRedirector& redirector) : names(redirector, MakePrivateKey()), mutexes(redirector) {}
    PrivateNames names;
    PrivateMutexes mutexes;
};

Fakes NameFakes()
{
    return {FakeOf<PrivateObjects>("private names")};
}

Fakes WaitFakes()
{
    return {FakeOf<VirtualClock>("virtual clock")};
}

std::wstring NewName()
{
    return L"Local\\varnex-conformance" + MakePrivateKey();
}

HANDLE CreateSection(const std::wstring& name, DWORD cbSection, DWORD dwProtect = PAGE_READWRITE)
{
    return CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, dwProtect, 0, cbSection, name.c_str());
}

const std::string MUTEX_PAGE = "windows/win32/api/synchapi/nf-synchapi-createmutexw";
const std::string OPEN_MUTEX_PAGE = "windows/win32/api/synchapi/nf-synchapi-openmutexw";
const std::string RELEASE_PAGE = "windows/win32/api/synchapi/nf-synchapi-releasemutex";
const std::string MUTEXES_PAGE = "windows/win32/sync/mutex-objects";
const std::string WAIT_PAGE = "windows/win32/api/synchapi/nf-synchapi-waitforsingleobject";
const std::string EVENT_PAGE = "windows/win32/api/synchapi/nf-synchapi-createeventw";
const std::string OPEN_EVENT_PAGE = "windows/win32/api/synchapi/nf-synchapi-openeventw";
const std::string SECTION_PAGE = "windows/win32/api/memoryapi/nf-memoryapi-createfilemappingw";
const std::string VIEW_PAGE = "windows/win32/api/memoryapi/nf-memoryapi-mapviewoffile";
const std::string NAMES_PAGE = "windows/win32/sync/object-names";

} // namespace

// --- names ----------------------------------------------------------------------------------------------------------

TEST_CASE("named objects: a mutex that is there is opened by its creation, which says so")
{
    Verify(
        Documented("a handle, ERROR_ALREADY_EXISTS", MUTEX_PAGE),
        []
        {
            const std::wstring name = NewName();
            const UniqueHandle first(CreateMutexW(nullptr, FALSE, name.c_str()));
            const UniqueHandle second(CreateMutexW(nullptr, FALSE, name.c_str()));
            return HandleOutcome(second.Get());
        },
        NameFakes());
}

TEST_CASE("named objects: both widths of a name are the same mutex")
{
    Verify(
        Documented("a handle, ERROR_ALREADY_EXISTS", NAMES_PAGE),
        []
        {
            const std::wstring name = NewName();
            const UniqueHandle first(CreateMutexW(nullptr, FALSE, name.c_str()));
            const UniqueHandle second(CreateMutexA(nullptr, FALSE, AnsiFromWide(name).c_str()));
            return HandleOutcome(second.Get());
        },
        NameFakes());
}

TEST_CASE("named objects: a mutex that is not there is not opened")
{
    Verify(
        Documented("no handle, ERROR_FILE_NOT_FOUND", OPEN_MUTEX_PAGE),
        [] { return HandleOutcome(OpenMutexW(MUTEX_ALL_ACCESS, FALSE, NewName().c_str())); }, NameFakes());
}

TEST_CASE("named objects: the name of an event is not that of a mutex")
{
    Verify(Documented("no handle, ERROR_INVALID_HANDLE", MUTEX_PAGE),
           []
           {
               const std::wstring name = NewName();
               const UniqueHandle event(CreateEventW(nullptr, TRUE, FALSE, name.c_str()));
               return HandleOutcome(UniqueHandle(CreateMutexW(nullptr, FALSE, name.c_str())).Get());
           },
           {});
}

TEST_CASE("named objects: names are compared with regard to case")
{
    Verify(Documented("no handle, ERROR_FILE_NOT_FOUND", MUTEX_PAGE),
           []
           {
               std::wstring name = NewName() + L"a";
               const UniqueHandle mutex(CreateMutexW(nullptr, FALSE, name.c_str()));
               name.back() = L'A';
               return HandleOutcome(OpenMutexW(MUTEX_ALL_ACCESS, FALSE, name.c_str()));
           },
           {});
}

TEST_CASE("named objects: a name with a backslash of its own is refused")
{
    Verify(Documented("no handle, ERROR_PATH_NOT_FOUND", MUTEX_PAGE),
           [] { return HandleOutcome(CreateMutexW(nullptr, FALSE, (NewName() + L"\\more").c_str())); });
}

TEST_CASE("named objects: a mutex lasts as long as a handle of it")
{
    Verify(
        Documented("no handle, ERROR_FILE_NOT_FOUND", MUTEX_PAGE),
        []
        {
            const std::wstring name = NewName();
            UniqueHandle(CreateMutexW(nullptr, FALSE, name.c_str())).Reset();
            return HandleOutcome(OpenMutexW(MUTEX_ALL_ACCESS, FALSE, name.c_str()));
        },
        NameFakes());
}

TEST_CASE("named objects: an object without an access list is open to everyone")
{
    Verify(
        Documented("a handle", "windows/win32/secauthz/dacls-and-aces"),
        []
        {
            const std::wstring name = NewName();
            EveryoneAccess access;
            const UniqueHandle mutex(CreateMutexW(access.Attributes(), FALSE, name.c_str()));
            return HandleOutcome(UniqueHandle(OpenMutexW(MUTEX_ALL_ACCESS, FALSE, name.c_str())).Get());
        },
        NameFakes());
}

TEST_CASE("named objects: an event that is there keeps its state when it is created again")
{
    Verify(
        Documented("a handle, ERROR_ALREADY_EXISTS; WAIT_TIMEOUT", EVENT_PAGE),
        []
        {
            const std::wstring name = NewName();
            const UniqueHandle first(CreateEventW(nullptr, TRUE, FALSE, name.c_str()));
            const UniqueHandle second(CreateEventW(nullptr, FALSE, TRUE, name.c_str()));
            const std::string outcome = HandleOutcome(second.Get());
            return outcome + "; " + WaitName(WaitForSingleObject(second.Get(), 0));
        },
        NameFakes());
}

TEST_CASE("named objects: an event that is not there is not opened")
{
    Verify(
        Documented("no handle, ERROR_FILE_NOT_FOUND", OPEN_EVENT_PAGE),
        [] { return HandleOutcome(OpenEventW(EVENT_ALL_ACCESS, FALSE, NewName().c_str())); }, NameFakes());
}

TEST_CASE("named objects: an event that was opened is the one that was created")
{
    Verify(
        Documented("WAIT_OBJECT_0", OPEN_EVENT_PAGE),
        []
        {
            const std::wstring name = NewName();
            const UniqueHandle created(CreateEventW(nullptr, TRUE, FALSE, name.c_str()));
            const UniqueHandle opened(OpenEventW(EVENT_ALL_ACCESS, FALSE, name.c_str()));
            SetEvent(opened.Get());
            return WaitName(WaitForSingleObject(created.Get(), 0));
        },
        NameFakes());
}

// --- mutexes --------------------------------------------------------------------------------------------------------

TEST_CASE("named objects: a mutex is given back as often as it was taken")
{
    Verify(
        Documented("WAIT_OBJECT_0, TRUE, TRUE, FALSE, ERROR_NOT_OWNER", MUTEXES_PAGE),
        []
        {
            const UniqueHandle mutex(CreateMutexW(nullptr, TRUE, nullptr));
            std::string answer = WaitName(WaitForSingleObject(mutex.Get(), 0));
            for (int i = 0; i < 3; ++i)
            {
                answer += ", " + Outcome(ReleaseMutex(mutex.Get()));
            }
            return answer;
        },
        WaitFakes());
}

TEST_CASE("named objects: a mutex of another thread is not given back")
{
    Verify(
        Documented("FALSE, ERROR_NOT_OWNER", RELEASE_PAGE),
        []
        {
            const UniqueHandle mutex(CreateMutexW(nullptr, TRUE, nullptr));
            std::string answer;
            OtherThread thread([&] { answer = Outcome(ReleaseMutex(mutex.Get())); });
            thread.WaitForEnd();
            return answer;
        },
        WaitFakes());
}

TEST_CASE("named objects: a mutex in other hands is waited for as long as was said")
{
    Verify(
        Documented("WAIT_TIMEOUT, in time", WAIT_PAGE),
        []
        {
            const UniqueHandle mutex(CreateMutexW(nullptr, TRUE, nullptr));
            std::string answer;
            OtherThread thread(
                [&]
                {
                    const ULONGLONG ullBegin = GetTickCount64();
                    answer = WaitName(WaitForSingleObject(mutex.Get(), 200));
                    const ULONGLONG ullWaited = GetTickCount64() - ullBegin;
                    answer += ullWaited + 20 >= 200 && ullWaited < 5000 ? ", in time" : ", at another time";
                });
            thread.WaitForEnd();
            return answer;
        },
        WaitFakes());
}

TEST_CASE("named objects: a mutex that was waited for in vain is not given back")
{
    Verify(
        Documented("FALSE, ERROR_NOT_OWNER", RELEASE_PAGE),
        []
        {
            const UniqueHandle mutex(CreateMutexW(nullptr, TRUE, nullptr));
            std::string answer;
            OtherThread thread(
                [&]
                {
                    WaitForSingleObject(mutex.Get(), 10);
                    answer = Outcome(ReleaseMutex(mutex.Get()));
                });
            thread.WaitForEnd();
            return answer;
        },
        WaitFakes());
}

TEST_CASE("named objects: a mutex that is given back goes to one who waits")
{
    Verify(
        Documented("WAIT_OBJECT_0", MUTEXES_PAGE),
        []
        {
            const UniqueHandle mutex(CreateMutexW(nullptr, TRUE, nullptr));
            std::string answer;
            OtherThread thread([&] { answer = WaitName(WaitForSingleObject(mutex.Get(), PATIENCE_MS)); });
            Sleep(50);
            ReleaseMutex(mutex.Get());
            thread.WaitForEnd();
            return answer;
        },
        WaitFakes());
}

TEST_CASE("named objects: a mutex whose thread ended is told as abandoned once, and taken by that")
{
    Verify(
        Documented("WAIT_ABANDONED, TRUE, WAIT_OBJECT_0", MUTEXES_PAGE),
        []
        {
            const UniqueHandle mutex(CreateMutexW(nullptr, FALSE, nullptr));
            OtherThread thread([&] { WaitForSingleObject(mutex.Get(), 0); });
            thread.WaitForEnd();
            std::string answer = WaitName(WaitForSingleObject(mutex.Get(), 1000));
            answer += ", " + Outcome(ReleaseMutex(mutex.Get()));
            return answer + ", " + WaitName(WaitForSingleObject(mutex.Get(), 0));
        },
        WaitFakes());
}

TEST_CASE("named objects: a mutex whose thread was ended by force is told as abandoned")
{
    Verify(
        Documented("WAIT_ABANDONED", "windows/win32/api/processthreadsapi/nf-processthreadsapi-terminatethread"),
        []
        {
            const UniqueHandle mutex(CreateMutexW(nullptr, FALSE, nullptr));
            OtherThread thread(
                [&](HANDLE hReady)
                {
                    WaitForSingleObject(mutex.Get(), 0);
                    SetEvent(hReady);
                    Sleep(PATIENCE_MS);
                });
            thread.EndByForce();
            return WaitName(WaitForSingleObject(mutex.Get(), 1000));
        },
        WaitFakes());
}

TEST_CASE("child: takes a mutex and ends", "[.]")
{
    const std::wstring name = _wgetenv(L"VARNEX_CONFORMANCE_NAME");
    WaitForSingleObject(OpenMutexW(MUTEX_ALL_ACCESS, FALSE, name.c_str()), 0);
    TerminateProcess(GetCurrentProcess(), 7);
}

TEST_CASE("named objects: a mutex whose process ended is told as abandoned")
{
    Verify(Documented("WAIT_ABANDONED", MUTEXES_PAGE),
           []
           {
               const std::wstring name = NewName();
               const UniqueHandle mutex(CreateMutexW(nullptr, FALSE, name.c_str()));
               ChildOptions options;
               options.environment[L"VARNEX_CONFORMANCE_NAME"] = name;
               const ChildProcess child = ChildProcess::OfTestCase("child: takes a mutex and ends", options);
               return child.WaitForEnd(PATIENCE_MS) ? WaitName(WaitForSingleObject(mutex.Get(), 1000)) : "no end";
           });
}

// --- events and waits -----------------------------------------------------------------------------------------------

TEST_CASE("named objects: an event that is reset by hand stays set through waits")
{
    Verify(
        Documented("WAIT_OBJECT_0, WAIT_OBJECT_0, WAIT_TIMEOUT", "windows/win32/sync/event-objects"),
        []
        {
            const UniqueHandle event(CreateEventW(nullptr, TRUE, TRUE, nullptr));
            std::string answer = WaitName(WaitForSingleObject(event.Get(), 10));
            answer += ", " + WaitName(WaitForSingleObject(event.Get(), 10));
            ResetEvent(event.Get());
            return answer + ", " + WaitName(WaitForSingleObject(event.Get(), 10));
        },
        WaitFakes());
}

TEST_CASE("named objects: an event that resets itself lets one wait through")
{
    Verify(
        Documented("WAIT_OBJECT_0, WAIT_TIMEOUT", "windows/win32/sync/event-objects"),
        []
        {
            const UniqueHandle event(CreateEventW(nullptr, FALSE, TRUE, nullptr));
            const std::string first = WaitName(WaitForSingleObject(event.Get(), 10));
            return first + ", " + WaitName(WaitForSingleObject(event.Get(), 10));
        },
        WaitFakes());
}

TEST_CASE("named objects: an event that is set wakes one who waits")
{
    Verify(
        Documented("WAIT_OBJECT_0", WAIT_PAGE),
        []
        {
            const UniqueHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
            std::string answer;
            OtherThread thread([&] { answer = WaitName(WaitForSingleObject(event.Get(), PATIENCE_MS)); });
            Sleep(50);
            SetEvent(event.Get());
            thread.WaitForEnd();
            return answer;
        },
        WaitFakes());
}

TEST_CASE("named objects: a wait for a handle that was closed fails")
{
    Verify(
        Documented("WAIT_FAILED, ERROR_INVALID_HANDLE", WAIT_PAGE),
        []
        {
            UniqueHandle event(CreateEventW(nullptr, TRUE, TRUE, nullptr));
            const HANDLE hEvent = event.Get();
            event.Reset();
            const DWORD dwResult = WaitForSingleObject(hEvent, 10);
            const DWORD dwError = GetLastError();
            return WaitName(dwResult) + ", " + ErrorName(dwError);
        },
        WaitFakes());
}

TEST_CASE("named objects: a handle is closed once")
{
    Verify(Documented("TRUE, FALSE, ERROR_INVALID_HANDLE", "windows/win32/api/handleapi/nf-handleapi-closehandle"),
           []
           {
               const HANDLE hEvent = CreateEventW(nullptr, TRUE, TRUE, nullptr);
               const std::string first = Outcome(CloseHandle(hEvent));
               return first + ", " + Outcome(CloseHandle(hEvent));
           });
}

// --- sections -------------------------------------------------------------------------------------------------------

TEST_CASE("named objects: a new section reads as zeroes")
{
    Verify(
        Documented("zeroes", SECTION_PAGE),
        []
        {
            const UniqueHandle section(CreateSection(NewName(), SECTION_BYTES));
            const UniqueView view(MapViewOfFile(section.Get(), FILE_MAP_READ, 0, 0, SECTION_BYTES));
            const auto* pBytes = static_cast<const BYTE*>(view.Get());
            return std::string(
                pBytes != nullptr && std::all_of(pBytes, pBytes + SECTION_BYTES, [](BYTE nByte) { return nByte == 0; })
                    ? "zeroes"
                    : "something else");
        },
        NameFakes());
}

TEST_CASE("named objects: a section that somebody else made first keeps its content and its size")
{
    Verify(
        Documented("a handle, ERROR_ALREADY_EXISTS; x; no view of the larger size", SECTION_PAGE),
        []
        {
            const std::wstring name = NewName();
            const UniqueHandle theirs(CreateSection(name, 4096));
            const UniqueView their(MapViewOfFile(theirs.Get(), FILE_MAP_WRITE, 0, 0, 0));
            *static_cast<char*>(their.Get()) = 'x';
            const UniqueHandle ours(CreateSection(name, SECTION_BYTES));
            std::string answer = HandleOutcome(ours.Get());
            const UniqueView small(MapViewOfFile(ours.Get(), FILE_MAP_READ, 0, 0, 4096));
            answer += std::string("; ") + *static_cast<const char*>(small.Get());
            const UniqueView large(MapViewOfFile(ours.Get(), FILE_MAP_READ, 0, 0, SECTION_BYTES));
            return answer + (large ? "; a view of the larger size" : "; no view of the larger size");
        },
        NameFakes());
}

TEST_CASE("named objects: a view that is larger than its section is refused")
{
    Verify(
        Unknown(VIEW_PAGE).OnWine("ERROR_ACCESS_DENIED"),
        []
        {
            const UniqueHandle section(CreateSection(NewName(), 4096));
            const UniqueView view(MapViewOfFile(section.Get(), FILE_MAP_READ, 0, 0, SECTION_BYTES));
            const DWORD dwError = GetLastError();
            return view ? "a view" : ErrorName(dwError);
        },
        NameFakes());
}

TEST_CASE("named objects: a section that somebody made of reserved memory has no memory behind its view")
{
    Verify(
        Documented("MEM_RESERVE", SECTION_PAGE),
        []
        {
            const std::wstring name = NewName();
            const UniqueHandle theirs(CreateSection(name, SECTION_BYTES, PAGE_READWRITE | SEC_RESERVE));
            const UniqueHandle ours(CreateSection(name, SECTION_BYTES));
            const UniqueView view(MapViewOfFile(ours.Get(), FILE_MAP_READ, 0, 0, SECTION_BYTES));
            MEMORY_BASIC_INFORMATION region{};
            VirtualQuery(view.Get(), &region, sizeof region);
            return std::string(region.State == MEM_RESERVE ? "MEM_RESERVE" : "another state");
        },
        NameFakes());
}

TEST_CASE("named objects: the memory of a section's view is one committed region")
{
    Verify(
        Documented("MEM_COMMIT, the whole", "windows/win32/api/memoryapi/nf-memoryapi-virtualquery"),
        []
        {
            const UniqueHandle section(CreateSection(NewName(), SECTION_BYTES));
            const UniqueView view(MapViewOfFile(section.Get(), FILE_MAP_READ, 0, 0, SECTION_BYTES));
            MEMORY_BASIC_INFORMATION region{};
            VirtualQuery(view.Get(), &region, sizeof region);
            return std::string(region.State == MEM_COMMIT ? "MEM_COMMIT" : "another state") +
                   (region.RegionSize == SECTION_BYTES ? ", the whole" : ", a part");
        },
        NameFakes());
}

TEST_CASE("named objects: a view of a section without a file has no file name")
{
    Verify(
        Unknown("windows/win32/api/psapi/nf-psapi-getmappedfilenamew").OnWine("no name"),
        []
        {
            const UniqueHandle section(CreateSection(NewName(), SECTION_BYTES));
            const UniqueView view(MapViewOfFile(section.Get(), FILE_MAP_READ, 0, 0, SECTION_BYTES));
            wchar_t wszName[MAX_PATH];
            return std::string(GetMappedFileNameW(GetCurrentProcess(), view.Get(), wszName, MAX_PATH) == 0 ? "no name"
                                                                                                           : "a name");
        },
        NameFakes());
}

TEST_CASE("named objects: a view of a section over a file has the file's name")
{
    Verify(Documented("a name", "windows/win32/api/psapi/nf-psapi-getmappedfilenamew"),
           []
           {
               const ModuleTree tree;
               const std::wstring path = tree.Root() + L"\\file";
               WriteFileBytes(path, std::string(SECTION_BYTES, 'x'));
               std::string answer;
               {
                   const UniqueFile file(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                                     OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
                   const UniqueHandle section(CreateFileMappingW(file.Get(), nullptr, PAGE_READWRITE, 0, 0, nullptr));
                   const UniqueView view(MapViewOfFile(section.Get(), FILE_MAP_READ, 0, 0, SECTION_BYTES));
                   wchar_t wszName[MAX_PATH];
                   const DWORD cchName = GetMappedFileNameW(GetCurrentProcess(), view.Get(), wszName, MAX_PATH);
                   answer = cchName != 0 ? "a name" : "no name";
               }
               return answer;
           });
}

TEST_CASE("named objects: a view lasts when the section's handle is closed")
{
    Verify(
        Documented("x", "windows/win32/api/memoryapi/nf-memoryapi-unmapviewoffile"),
        []
        {
            UniqueHandle section(CreateSection(NewName(), SECTION_BYTES));
            const UniqueView view(MapViewOfFile(section.Get(), FILE_MAP_WRITE, 0, 0, SECTION_BYTES));
            *static_cast<char*>(view.Get()) = 'x';
            section.Reset();
            return std::string(1, *static_cast<const char*>(view.Get()));
        },
        NameFakes());
}

TEST_CASE("named objects: a section that is not there is not opened")
{
    Verify(
        Documented("no handle, ERROR_FILE_NOT_FOUND", "windows/win32/api/memoryapi/nf-memoryapi-openfilemappingw"),
        [] { return HandleOutcome(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, NewName().c_str())); }, NameFakes());
}

TEST_CASE("named objects: a section without a name is made")
{
    Verify(
        Documented("a handle", SECTION_PAGE),
        []
        {
            const UniqueHandle section(
                CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, nullptr));
            return HandleOutcome(section.Get());
        },
        NameFakes());
}

TEST_CASE("named objects: a section of a mutex's name is not made")
{
    Verify(Documented("no handle, ERROR_INVALID_HANDLE", SECTION_PAGE),
           []
           {
               const std::wstring name = NewName();
               const UniqueHandle mutex(CreateMutexW(nullptr, FALSE, name.c_str()));
               return HandleOutcome(CreateSection(name, SECTION_BYTES));
           });
}

} // namespace varnex::test
