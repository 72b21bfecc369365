#include "sampling/MemorySampling.h"

#include "support/ScriptedExports.h"
#include "support/ScriptedMemoryStatus.h"
#include "unit/sampling/SamplingTest.h"

#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

constexpr ULONGLONG MB = 1'048'576;
constexpr unsigned UNTOUCHED = 4711;

// Both operations have the same form and share their failures.
using MemoryOperation = int (*)(unsigned*, unsigned*);

struct Result
{
    int nStatus = 0;
    unsigned nPhysical = UNTOUCHED;
    unsigned nPagingFile = UNTOUCHED;
};

class MemorySamplingTest : public SamplingTest
{
protected:
    static Result Run(MemoryOperation pfnOperation)
    {
        Result result;
        result.nStatus = pfnOperation(&result.nPhysical, &result.nPagingFile);
        return result;
    }

    ScriptedExports m_exports{m_redirector};
    ScriptedMemoryStatus m_memory{m_exports};
};

MemoryOperation EitherOperation()
{
    return GENERATE(values<MemoryOperation>({&GetAvaMemoryUtilization, &GetTotalMemorySize}));
}

} // namespace

TEST_CASE_METHOD(MemorySamplingTest, "8 GiB with 2 GiB available are 75 percent")
{
    m_memory.SetPhysicalMB(8192, 2048);
    m_memory.SetPagingMB(10240, 9216);
    const Result result = Run(&GetAvaMemoryUtilization);
    CHECK(result.nStatus == 0);
    CHECK(result.nPhysical == 75);
    CHECK(result.nPagingFile == 10);
    CHECK(m_memory.Reads() == 1);
    CHECK(m_memory.BadReads() == 0);
    CheckNoLog();
}

TEST_CASE_METHOD(MemorySamplingTest, "percentages are truncated from whole megabytes in 32 bits")
{
    struct Memory
    {
        ULONGLONG ullTotalBytes;
        ULONGLONG ullAvailableBytes;
        unsigned nPercent;
    };
    const auto memory = GENERATE(values<Memory>({
        {8192 * MB, 8192 * MB, 0},
        {8192 * MB, 0, 100},
        {101 * MB, 100 * MB, 0},
        {100 * MB, 99 * MB, 1},
        {3 * MB, MB, 66},
        {8192 * MB, 8192 * MB - 1, 0}, // 8191 MB available: 1 MB used, which is less than a percent
        {2 * MB - 1, MB, 0},           // both are one megabyte
        {2 * MB, 2 * MB - 1, 50},      // one byte used, but half of the whole megabytes
        {MB - 1, 0, 0},                // no whole megabyte at all
        {0, 0, 0},
        {50'000'000 * MB, 5'000'000 * MB, 4}, // 45000000 * 100 is cut to 32 bits
        {4 * MB, 5 * MB, 1'073'741'799},      // more available than there is: (2^32 - 100) / 4
    }));
    CAPTURE(memory.ullTotalBytes, memory.ullAvailableBytes);
    SECTION("physical memory")
    {
        m_memory.SetPhysicalBytes(memory.ullTotalBytes, memory.ullAvailableBytes);
        CHECK(Run(&GetAvaMemoryUtilization).nPhysical == memory.nPercent);
    }
    SECTION("paging file")
    {
        m_memory.SetPagingBytes(memory.ullTotalBytes, memory.ullAvailableBytes);
        CHECK(Run(&GetAvaMemoryUtilization).nPagingFile == memory.nPercent);
    }
}

TEST_CASE_METHOD(MemorySamplingTest, "total sizes are whole megabytes")
{
    m_memory.SetPhysicalBytes(8192 * MB - 1, 0);
    m_memory.SetPagingBytes(10240 * MB + MB / 2, 0);
    const Result result = Run(&GetTotalMemorySize);
    CHECK(result.nStatus == 0);
    CHECK(result.nPhysical == 8191);
    CHECK(result.nPagingFile == 10240);
    CHECK(m_memory.BadReads() == 0);
}

TEST_CASE_METHOD(MemorySamplingTest, "a status call that fails gives percentages of 0 and leaves sizes alone")
{
    m_memory.Fail(ERROR_INVALID_PARAMETER);
    const Result utilization = Run(&GetAvaMemoryUtilization);
    CHECK(utilization.nStatus == 0);
    CHECK(utilization.nPhysical == 0);
    CHECK(utilization.nPagingFile == 0);

    const Result size = Run(&GetTotalMemorySize);
    CHECK(size.nStatus == 0);
    CHECK(size.nPhysical == UNTOUCHED);
    CHECK(size.nPagingFile == UNTOUCHED);
    CHECK(m_memory.Reads() == 2);
    CheckNoLog();
}

TEST_CASE_METHOD(MemorySamplingTest, "a null result pointer gives -1 without loading anything")
{
    const MemoryOperation pfnOperation = EitherOperation();
    m_redirector.CountCalls("LoadLibraryA");
    unsigned nValue = UNTOUCHED;
    CHECK(pfnOperation(nullptr, &nValue) == -1);
    CHECK(pfnOperation(&nValue, nullptr) == -1);
    CHECK(pfnOperation(nullptr, nullptr) == -1);
    CHECK(nValue == UNTOUCHED);
    CHECK(m_redirector.Calls("LoadLibraryA") == 0);
    CheckNoLog();
}

TEST_CASE_METHOD(MemorySamplingTest, "the status function is looked up in kernel32 which is freed again")
{
    const MemoryOperation pfnOperation = EitherOperation();
    std::vector<std::string> libraries;
    std::vector<HMODULE> freed;
    m_redirector.Replace<decltype(::LoadLibraryA)>("LoadLibraryA",
                                                   [&](LPCSTR pszName)
                                                   {
                                                       libraries.emplace_back(pszName);
                                                       return LoadLibraryA(pszName);
                                                   });
    m_redirector.Replace<decltype(::FreeLibrary)>("FreeLibrary",
                                                  [&](HMODULE hModule)
                                                  {
                                                      freed.push_back(hModule);
                                                      return FreeLibrary(hModule);
                                                  });
    Run(pfnOperation);
    CHECK(libraries == std::vector<std::string>{"kernel32.dll"});
    CHECK(m_exports.LookUps("GlobalMemoryStatusEx") == 1);
    CHECK(freed == std::vector<HMODULE>{GetModuleHandleW(L"kernel32.dll")});
}

TEST_CASE_METHOD(MemorySamplingTest, "a library that does not load is logged and its error returned")
{
    const MemoryOperation pfnOperation = EitherOperation();
    m_redirector.FailCall("LoadLibraryA", 1, FailMode::Once, ERROR_MOD_NOT_FOUND);
    m_redirector.CountCalls("FreeLibrary");
    CHECK(Run(pfnOperation).nStatus == ERROR_MOD_NOT_FOUND);
    CHECK(m_memory.Reads() == 0);
    CHECK(m_redirector.Calls("FreeLibrary") == 0);
    CheckLog({{1, "GetAvaMemoryUtilization -- LoadLibrary kernel32.dll failed(126)."}});
}

TEST_CASE_METHOD(MemorySamplingTest, "a function that is not found is logged and its library stays loaded")
{
    const MemoryOperation pfnOperation = EitherOperation();
    m_exports.Hide("GlobalMemoryStatusEx");
    m_redirector.CountCalls("FreeLibrary");
    CHECK(Run(pfnOperation).nStatus == ERROR_PROC_NOT_FOUND);
    CHECK(m_redirector.Calls("FreeLibrary") == 0);
    CheckLog({{1, "GetAvaMemoryUtilization -- GetProcAddress GlobalMemoryStatusEx failed(127)."}});
}

TEST_CASE_METHOD(MemorySamplingTest, "a failure without an error number is still a failure")
{
    const MemoryOperation pfnOperation = EitherOperation();
    m_redirector.FailCall("LoadLibraryA", 1, FailMode::Once, ERROR_SUCCESS);
    CHECK(Run(pfnOperation).nStatus != 0);
    CheckLog({{1, "GetAvaMemoryUtilization -- LoadLibrary kernel32.dll failed(0)."}});
}

TEST_CASE("the memory of this very machine is in use")
{
    const auto read = [](MemoryOperation pfnOperation)
    {
        Result result;
        result.nStatus = pfnOperation(&result.nPhysical, &result.nPagingFile);
        return result;
    };
    const Result utilization = read(&GetAvaMemoryUtilization);
    CHECK(utilization.nStatus == 0);
    CHECK(utilization.nPhysical >= 1);
    CHECK(utilization.nPhysical <= 100);
    CHECK(utilization.nPagingFile <= 100);
    CHECK(read(&GetTotalMemorySize).nPhysical >= 256);
}

} // namespace varnex::test
