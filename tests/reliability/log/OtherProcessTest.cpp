#include "LogCrowd.h"

#include "support/ChildProcess.h"

namespace varnex::test
{

namespace
{

constexpr wchar_t FILE_VARIABLE[] = L"VARNEX_TEST_LOG_FILE";
constexpr wchar_t SHARE_VARIABLE[] = L"VARNEX_TEST_SHARE";
constexpr wchar_t READY_VARIABLE[] = L"VARNEX_TEST_READY_EVENT";
constexpr DWORD PATIENCE_MS = 60'000;
constexpr int THREADS = 10;
constexpr int LINES_OF_EACH = 10;
constexpr long PROMPT_MS = 5000;

std::wstring Variable(const wchar_t* pwszName)
{
    wchar_t wszValue[512];
    const DWORD cchValue = GetEnvironmentVariableW(pwszName, wszValue, 512);
    return std::wstring(wszValue, cchValue);
}

// Another process that has the log open from here on.
ChildProcess StartHolder(const LogUnderAttack& log, DWORD dwShare)
{
    const std::wstring readyName = L"varnex-test-holds-" + std::to_wstring(GetCurrentProcessId());
    const UniqueHandle ready(CreateEventW(nullptr, FALSE, FALSE, readyName.c_str()));
    ChildOptions options;
    options.environment = {
        {FILE_VARIABLE, log.File()}, {SHARE_VARIABLE, std::to_wstring(dwShare)}, {READY_VARIABLE, readyName}};
    ChildProcess holder = ChildProcess::OfTestCase("child: holds the log open", options);
    REQUIRE(WaitForSingleObject(ready.Get(), PATIENCE_MS) == WAIT_OBJECT_0);
    return holder;
}

} // namespace

TEST_CASE("child: holds the log open", "[.]")
{
    const UniqueFile file(CreateFileW(Variable(FILE_VARIABLE).c_str(), GENERIC_READ,
                                      static_cast<DWORD>(std::stoul(Variable(SHARE_VARIABLE))), nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    REQUIRE(file);
    const UniqueHandle ready(OpenEventW(EVENT_MODIFY_STATE, FALSE, Variable(READY_VARIABLE).c_str()));
    SetEvent(ready.Get());
    Sleep(PATIENCE_MS);
}

TEST_CASE("a log that another process reads when it should roll goes on in the same file, and rolls when it is let go")
{
    LogUnderAttack log;
    log.Fill(MAX_LOG_BYTES + 1);
    ChildProcess holder = StartHolder(log, FILE_SHARE_READ | FILE_SHARE_WRITE);
    const CrowdResult crowd = LetCrowdLog(THREADS, LINES_OF_EACH);
    CHECK(holder.Runs());
    CHECK(log.tree.FilesInLogs() == std::vector<std::wstring>{L"Varnex.log"});
    holder.Kill();
    CHECK(crowd.nErrorsSeen == 0);
    CHECK(crowd.nLongestCallMs < PROMPT_MS);
    CHECK(ReadCrowdLines(log.tree, THREADS, LINES_OF_EACH).nWhole == THREADS * LINES_OF_EACH);

    LetCrowdLog(1, 1);
    CHECK(log.tree.FilesInLogs().size() == 2);
    CHECK(log.Size() < MAX_LOG_BYTES);
    CHECK(ReadCrowdLines(log.tree, THREADS, LINES_OF_EACH).nTwice == 1); // the last line is one of those again
}

TEST_CASE("a log that another process keeps for itself loses the lines of that time and nothing else")
{
    LogUnderAttack log;
    LetCrowdLog(1, 1);
    const long long cbBefore = log.Size();
    ChildProcess holder = StartHolder(log, 0);
    const CrowdResult crowd = LetCrowdLog(THREADS, LINES_OF_EACH);
    CHECK(holder.Runs());
    holder.Kill();
    CHECK(crowd.nErrorsSeen == 0);
    CHECK(crowd.nLongestCallMs < PROMPT_MS);
    CHECK(log.Size() == cbBefore);
    LetCrowdLog(1, 1);
    CHECK(log.Size() == 2 * cbBefore);
}

} // namespace varnex::test
