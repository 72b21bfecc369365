#include "common/EveryoneAccess.h"
#include "common/Handles.h"
#include "common/Locks.h"
#include "common/NeverDestroyed.h"
#include "common/Pdh.h"

#include "support/ImportRedirector.h"

#include <catch2/catch.hpp>

#include <utility>

using namespace varnex;
using namespace varnex::test;

namespace
{

// An owner's closing call: which, and how one is made that really holds something.
template <class Owner>
void CheckOwner(ImportRedirector& redirector, const char* pszClose, typename Owner::Type value)
{
    CAPTURE(pszClose);
    redirector.CountCalls(pszClose);
    const ULONGLONG ullBefore = redirector.Calls(pszClose);
    {
        const Owner nothing;
        CHECK_FALSE(nothing);
    }
    CHECK(redirector.Calls(pszClose) == ullBefore);
    {
        Owner first(value);
        CHECK(first.Get() == value);
        Owner second(std::move(first));
        CHECK_FALSE(first);
        CHECK(second);
        Owner third;
        third = std::move(second);
        CHECK(redirector.Calls(pszClose) == ullBefore);
        SetLastError(4711);
    }
    CHECK(GetLastError() == 4711); // closing keeps the caller's error
    CHECK(redirector.Calls(pszClose) == ullBefore + 1);
    Owner given(value);
    CHECK(given.Release() == value);
    given.Reset();
    CHECK(redirector.Calls(pszClose) == ullBefore + 1);
}

// A closing call that succeeds, changes the last error, and closes nothing.
template <class Signature, class Result>
void PretendToClose(ImportRedirector& redirector, const char* pszClose, Result result)
{
    redirector.Replace<Signature>(pszClose,
                                  [result](auto)
                                  {
                                      SetLastError(ERROR_GEN_FAILURE);
                                      return result;
                                  });
}

} // namespace

TEST_CASE("an owner closes what it holds once, with its own call, and keeps the last error")
{
    ImportRedirector redirector;
    int nObject = 0;
    void* const pAny = &nObject;

    PretendToClose<decltype(::CloseHandle)>(redirector, "CloseHandle", TRUE);
    CheckOwner<UniqueHandle>(redirector, "CloseHandle", pAny);
    CheckOwner<UniqueFile>(redirector, "CloseHandle", pAny);
    redirector.Restore("CloseHandle");
    PretendToClose<decltype(::FreeLibrary)>(redirector, "FreeLibrary", TRUE);
    CheckOwner<UniqueModule>(redirector, "FreeLibrary", static_cast<HMODULE>(pAny));
    PretendToClose<decltype(::LocalFree)>(redirector, "LocalFree", HLOCAL{nullptr});
    CheckOwner<UniqueLocalBlock<int>>(redirector, "LocalFree", &nObject);
    PretendToClose<decltype(::UnmapViewOfFile)>(redirector, "UnmapViewOfFile", TRUE);
    CheckOwner<UniqueView>(redirector, "UnmapViewOfFile", pAny);
    PretendToClose<decltype(::RegCloseKey)>(redirector, "RegCloseKey", LSTATUS{0});
    CheckOwner<UniqueRegistryKey>(redirector, "RegCloseKey", static_cast<HKEY>(pAny));
    PretendToClose<decltype(::ReleaseMutex)>(redirector, "ReleaseMutex", TRUE);
    CheckOwner<MutexHold>(redirector, "ReleaseMutex", pAny);
}

TEST_CASE("a null handle is a file, and -1 is a kernel object: each kind has its own nothing")
{
    ImportRedirector redirector;
    redirector.CountCalls("CloseHandle");
    {
        const UniqueHandle handle(nullptr);
        const UniqueFile file(INVALID_HANDLE_VALUE);
        CHECK_FALSE(handle);
        CHECK_FALSE(file);
    }
    CHECK(redirector.Calls("CloseHandle") == 0);
}

TEST_CASE("receiving a resource closes the one held before")
{
    ImportRedirector redirector;
    redirector.CountCalls("CloseHandle");
    UniqueHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    REQUIRE(event);
    HANDLE* const phEvent = event.Receive();
    CHECK(redirector.Calls("CloseHandle") == 1);
    *phEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    CHECK(event);
}

TEST_CASE("closing a file tells whether the system took everything")
{
    ImportRedirector redirector;
    redirector.FailCall("CloseHandle", 1, FailMode::Once, ERROR_DISK_FULL);
    int nObject = 0;
    UniqueFile file(&nObject);
    CHECK_FALSE(file.Close());
    CHECK(GetLastError() == ERROR_DISK_FULL);
    CHECK_FALSE(file); // it is not closed a second time
    CHECK(redirector.Failures("CloseHandle") == 1);
}

TEST_CASE("moving an owner onto itself keeps what it owns")
{
    UniqueHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const HANDLE hEvent = event.Get();
    UniqueHandle& same = event;
    event = std::move(same);
    CHECK(event.Get() == hEvent);
    CHECK(SetEvent(event.Get()) != FALSE);
}

TEST_CASE("an object for everyone has a list that is null, not an empty one, and is not inherited")
{
    EveryoneAccess everyone;
    const SECURITY_ATTRIBUTES& attributes = *everyone.Attributes();
    CHECK(attributes.nLength == sizeof attributes);
    CHECK_FALSE(attributes.bInheritHandle);
    BOOL bPresent = FALSE;
    BOOL bDefaulted = TRUE;
    ACL aclAny = {};
    PACL pList = &aclAny;
    REQUIRE(GetSecurityDescriptorDacl(attributes.lpSecurityDescriptor, &bPresent, &pList, &bDefaulted));
    CHECK(bPresent);
    CHECK(pList == nullptr);
}

TEST_CASE("a hold on a critical section and on a slim lock ends with its scope")
{
    CriticalSection section;
    InitializeCriticalSection(&section);
    SlimLock lock;
    {
        const CriticalSectionHold hold(section);
        const SlimLockHold slimHold(lock);
        CHECK(section.RecursionCount == 1);
        CHECK_FALSE(TryAcquireSRWLockExclusive(&lock));
    }
    CHECK(section.RecursionCount == 0);
    CHECK(TryAcquireSRWLockExclusive(&lock));
    ReleaseSRWLockExclusive(&lock);
    DeleteCriticalSection(&section);
}

namespace
{

int g_nDestroyed = 0;

struct Witness
{
    int nValue = 7;
    ~Witness() { ++g_nDestroyed; }
};

} // namespace

TEST_CASE("an object that is never destroyed is made at once and outlives its holder's scope")
{
    {
        NeverDestroyed<Witness> witness;
        CHECK(witness.Get().nValue == 7);
    }
    CHECK(g_nDestroyed == 0);
}

TEST_CASE("performance queries and counters are closed by their own calls")
{
    ImportRedirector redirector;
    int nObject = 0;
    redirector.Replace<decltype(::PdhCloseQuery)>("PdhCloseQuery", [](PDH_HQUERY) { return PDH_STATUS{0}; });
    redirector.Replace<decltype(::PdhRemoveCounter)>("PdhRemoveCounter", [](PDH_HCOUNTER) { return PDH_STATUS{0}; });
    redirector.CountCalls("PdhCloseQuery");
    redirector.CountCalls("PdhRemoveCounter");
    {
        const UniquePdhQuery query(&nObject);
        const UniquePdhCounter counter(&nObject);
    }
    CHECK(redirector.Calls("PdhCloseQuery") == 1);
    CHECK(redirector.Calls("PdhRemoveCounter") == 1);
}
