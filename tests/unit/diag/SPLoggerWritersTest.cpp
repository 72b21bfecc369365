#include "LogFixture.h"

#include "support/ChildProcess.h"

#include <map>
#include <vector>

// Many writers at once, by the real clock.

namespace varnex::test
{

namespace
{

constexpr int THREADS = 4;
constexpr int LINES_OF_EACH = 150;

// Long enough that two writers in one line would be seen.
std::string PayloadOf(int nWriter)
{
    return std::string(300, static_cast<char>('a' + nWriter));
}

DWORD WINAPI WriteLines(void* pWriter)
{
    const int nWriter = *static_cast<const int*>(pWriter);
    const std::string payload = PayloadOf(nWriter);
    for (int nLine = 0; nLine < LINES_OF_EACH; ++nLine)
    {
        if (nLine % 2 == 0)
        {
            Log()->Level2A("%d %d %s", nWriter, nLine, payload.c_str());
        }
        else
        {
            Log()->Level2W(L"%d %d %S", nWriter, nLine, payload.c_str());
        }
    }
    return 0;
}

} // namespace

TEST_CASE("threads that log at once lose no line, tear none, and each one's lines keep their order")
{
    ModuleTree tree;
    const PrivateLogMutex mutex;
    Log()->Configure(AnsiFromWide(tree.LogsPath()).c_str(), "Varnex");
    std::vector<int> writers(THREADS);
    std::vector<UniqueHandle> threads;
    for (int nWriter = 0; nWriter < THREADS; ++nWriter)
    {
        writers[nWriter] = nWriter;
        threads.emplace_back(CreateThread(nullptr, 0, &WriteLines, &writers[nWriter], 0, nullptr));
        REQUIRE(threads.back());
    }
    for (const UniqueHandle& thread : threads)
    {
        REQUIRE(WaitForSingleObject(thread.Get(), 60'000) == WAIT_OBJECT_0);
    }
    const LogFile log(tree);
    CHECK(log.RawLines().size() == THREADS * LINES_OF_EACH);
    std::map<int, int> nextLines;
    for (const LogLine& line : log.Lines())
    {
        const int nWriter = std::stoi(line.text);
        const std::string expected =
            std::to_string(nWriter) + " " + std::to_string(nextLines[nWriter]++) + " " + PayloadOf(nWriter);
        REQUIRE(line.text == expected);
    }
    CHECK(log.Lines().size() == THREADS * LINES_OF_EACH);
}

} // namespace varnex::test
