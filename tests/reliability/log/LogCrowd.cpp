#include "LogCrowd.h"

#include <algorithm>
#include <set>
#include <sstream>

namespace varnex::test
{

namespace
{

constexpr DWORD CROWD_MS = 600'000;
constexpr DWORD SENTINEL_ERROR = 4711;
constexpr std::size_t PAYLOAD_CHARS = 4000; // two thousand lines make a file
constexpr std::size_t HEADER_CHARS = sizeof("2026-01-31 12:00:00 [1] - ") - 1;

struct Member
{
    int nIndex;
    int nLines;
    CrowdResult result;
};

std::string TextOf(int nThread, int nLine)
{
    const char chFill = static_cast<char>('a' + (nThread + nLine) % 26);
    return std::to_string(nThread) + " " + std::to_string(nLine) + " " + std::string(PAYLOAD_CHARS, chFill);
}

DWORD WINAPI LogLines(void* pMember)
{
    Member& member = *static_cast<Member*>(pMember);
    for (int nLine = 0; nLine < member.nLines; ++nLine)
    {
        const std::string text = TextOf(member.nIndex, nLine);
        const ULONGLONG ullBegin = GetTickCount64();
        SetLastError(SENTINEL_ERROR);
        if (nLine % 2 == 0)
        {
            Log()->Level1A("%s", text.c_str());
        }
        else
        {
            Log()->Level1W(L"%S", text.c_str());
        }
        member.result.nErrorsSeen += GetLastError() == SENTINEL_ERROR ? 0 : 1;
        const auto nMs = static_cast<long>(GetTickCount64() - ullBegin);
        member.result.nLongestCallMs = (std::max)(member.result.nLongestCallMs, nMs);
        ++member.result.nLines;
    }
    return 0;
}

bool IsHeader(const std::string& line)
{
    const std::string form = "dddd-dd-dd dd:dd:dd [d] - ";
    if (line.size() < HEADER_CHARS)
    {
        return false;
    }
    return std::equal(form.begin(), form.end(), line.begin(),
                      [](char chForm, char ch) { return chForm == 'd' ? ch >= '0' && ch <= '9' : ch == chForm; });
}

} // namespace

LogUnderAttack::LogUnderAttack()
{
    Log()->Configure(AnsiFromWide(tree.LogsPath()).c_str(), "Varnex");
}

std::wstring LogUnderAttack::File() const
{
    return tree.InLogs(L"Varnex.log");
}

long long LogUnderAttack::Size() const
{
    return static_cast<long long>(tree.Log().size());
}

void LogUnderAttack::Fill(long long cbSize)
{
    WriteFileBytes(File(), std::string(static_cast<std::size_t>(cbSize) - 2, '-') + "\r\n");
}

CrowdResult LetCrowdLog(int nThreads, int nLinesOfEach)
{
    std::vector<Member> members(static_cast<std::size_t>(nThreads));
    std::vector<UniqueHandle> threads;
    for (int i = 0; i < nThreads; ++i)
    {
        Member& member = members[static_cast<std::size_t>(i)];
        member = {i, nLinesOfEach, {}};
        threads.emplace_back(CreateThread(nullptr, 0, &LogLines, &member, 0, nullptr));
        REQUIRE(threads.back());
    }
    CrowdResult sum{};
    for (int i = 0; i < nThreads; ++i)
    {
        REQUIRE(WaitForSingleObject(threads[static_cast<std::size_t>(i)].Get(), CROWD_MS) == WAIT_OBJECT_0);
        const CrowdResult& result = members[static_cast<std::size_t>(i)].result;
        sum.nLines += result.nLines;
        sum.nErrorsSeen += result.nErrorsSeen;
        sum.nLongestCallMs = (std::max)(sum.nLongestCallMs, result.nLongestCallMs);
    }
    sum.cbLongestLine = static_cast<long long>(HEADER_CHARS + TextOf(nThreads - 1, nLinesOfEach - 1).size() + 2);
    return sum;
}

CrowdLines ReadCrowdLines(const ModuleTree& tree, int nThreads, int nLinesOfEach)
{
    CrowdLines lines{};
    std::set<std::pair<int, int>> seen;
    for (const std::wstring& name : tree.FilesInLogs())
    {
        ++lines.nFiles;
        const std::string bytes = ReadFileBytes(tree.InLogs(name));
        lines.cbLargestFile = (std::max)(lines.cbLargestFile, static_cast<long long>(bytes.size()));
        for (std::size_t nBegin = 0; nBegin < bytes.size();)
        {
            const std::size_t nEnd = (std::min)(bytes.find("\r\n", nBegin), bytes.size());
            const std::string line = bytes.substr(nBegin, nEnd - nBegin);
            nBegin = nEnd + 2;
            int nThread = -1;
            int nLine = -1;
            std::istringstream(line.substr((std::min)(line.size(), HEADER_CHARS))) >> nThread >> nLine;
            const bool bWhole = IsHeader(line) && nThread >= 0 && nThread < nThreads && nLine >= 0 &&
                                nLine < nLinesOfEach && line.substr(HEADER_CHARS) == TextOf(nThread, nLine);
            lines.nBroken += bWhole ? 0 : 1;
            const bool bNew = bWhole && seen.emplace(nThread, nLine).second;
            lines.nTwice += bWhole && !bNew ? 1 : 0;
        }
    }
    lines.nWhole = static_cast<int>(seen.size());
    return lines;
}

} // namespace varnex::test
