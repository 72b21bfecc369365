#include "HostUnderAttack.h"
#include "HostileObject.h"

#include "reliability/LongForm.h"
#include "reliability/hostile/HostileInput.h"
#include "support/ImportRedirector.h"
#include "support/LoadedModule.h"
#include "support/PrivateNames.h"
#include "support/TestText.h"
#include "support/XmlReader.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>
#include <regex>
#include <set>

// The report section, which every account may make first, and write to at any time.

namespace varnex::test
{

namespace
{

constexpr char PATTERN = '\x5A';
constexpr std::size_t MAX_TEXT = (SECTION_BYTES - TEXT_OFFSET) / sizeof(wchar_t);
constexpr char REFUSED[] = "PrepareSendingMMFAndEvent -- MapViewOfFile fail(";

// A file outside the module's folders, which goes with the last handle. The module's own handle of a section over it
// stays open until the process ends, so each is another file.
UniqueFile MakeVictim()
{
    static int s_nVictims = 0;
    wchar_t wszFolder[MAX_PATH + 1];
    REQUIRE(GetTempPathW(MAX_PATH + 1, wszFolder) != 0);
    const std::wstring path = std::wstring(wszFolder) + L"varnex-victim-" + std::to_wstring(GetCurrentProcessId()) +
                              L"-" + std::to_wstring(++s_nVictims);
    UniqueFile file(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE | DELETE, FILE_SHARE_DELETE, nullptr,
                                CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    REQUIRE(file);
    return file;
}

// A section of somebody else's, filled with a pattern.
class ForeignSection
{
public:
    explicit ForeignSection(DWORD dwBytes, HANDLE hFile = INVALID_HANDLE_VALUE, const wchar_t* pwszName = SECTION_NAME)
        : m_dwBytes(dwBytes), m_section(CreateFileMappingW(hFile, nullptr, PAGE_READWRITE, 0, dwBytes, pwszName))
    {
        REQUIRE(m_section);
        REQUIRE(GetLastError() != ERROR_ALREADY_EXISTS);
        m_view.Reset(MapViewOfFile(m_section.Get(), FILE_MAP_ALL_ACCESS, 0, 0, dwBytes));
        REQUIRE(m_view);
        std::memset(m_view.Get(), PATTERN, dwBytes);
    }

    // Whether everything from that offset on is as it was.
    bool IsUntouchedFrom(std::size_t nOffset) const
    {
        const char* const pBytes = static_cast<const char*>(m_view.Get());
        return std::all_of(pBytes + nOffset, pBytes + m_dwBytes, [](char chByte) { return chByte == PATTERN; });
    }

private:
    DWORD m_dwBytes;
    UniqueHandle m_section;
    UniqueView m_view;
};

// Runs an operation again and again on another thread until its scope ends.
class Storm
{
public:
    explicit Storm(std::function<void()> operation) : m_operation(std::move(operation))
    {
        m_thread.Reset(CreateThread(nullptr, 0, &Storm::Run, this, 0, nullptr));
        REQUIRE(m_thread);
    }
    ~Storm()
    {
        m_bEnd = true;
        WaitForSingleObject(m_thread.Get(), INFINITE);
    }
    Storm(const Storm&) = delete;
    Storm& operator=(const Storm&) = delete;

private:
    static DWORD WINAPI Run(void* pStorm)
    {
        auto& storm = *static_cast<Storm*>(pStorm);
        while (!storm.m_bEnd)
        {
            storm.m_operation();
        }
        return 0;
    }

    std::function<void()> m_operation;
    std::atomic<bool> m_bEnd{false};
    UniqueHandle m_thread;
};

// The numbers of the requests that were answered, as the log has them where they were read and where they were used.
using Numbers = std::vector<std::pair<std::string, std::string>>;
Numbers NumbersIn(const LogFile& log, const std::string& pattern)
{
    Numbers numbers;
    const std::regex expression(pattern);
    for (const LogLine& line : log.Lines())
    {
        std::smatch match;
        if (std::regex_search(line.text, match, expression))
        {
            numbers.emplace_back(match[1], match[2]);
        }
    }
    return numbers;
}
Numbers NumbersRead(const LogFile& log)
{
    return NumbersIn(log, "MMF data: TotalSamplingAmout\\((-?[0-9]+)\\), MinimumSamplingAmout\\((-?[0-9]+)\\)");
}
Numbers NumbersUsed(const LogFile& log)
{
    return NumbersIn(log, "CreatePKIXMLToMMF -- Should calculate.*nTotalSampleNum\\((-?[0-9]+)\\), "
                          "nMinSampleNum\\((-?[0-9]+)\\)");
}

std::size_t CountSame(const Numbers& used, const Numbers& read)
{
    std::size_t nSame = 0;
    for (std::size_t i = 0; i < (std::min)(used.size(), read.size()); ++i)
    {
        nSame += used[i] == read[i] ? 1 : 0;
    }
    return nSame;
}

// Everything of the section as the hostile process sees it.
class OpenSection
{
public:
    OpenSection()
        : m_section(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, SECTION_NAME)),
          m_view(MapViewOfFile(m_section.Get(), FILE_MAP_ALL_ACCESS, 0, 0, SECTION_BYTES))
    {
        REQUIRE(m_view);
    }
    volatile std::uint32_t* Words() const { return static_cast<volatile std::uint32_t*>(m_view.Get()); }
    char* Bytes() const { return static_cast<char*>(m_view.Get()); }

private:
    UniqueHandle m_section;
    UniqueView m_view;
};

bool EndsWithRoot(std::wstring text)
{
    constexpr wchar_t LAST_TAG[] = L"</ServerPKIInformation>";
    text.erase(text.find_last_not_of(L"\r\n") + 1);
    return text.size() >= std::size(LAST_TAG) - 1 &&
           text.compare(text.size() - (std::size(LAST_TAG) - 1), std::wstring::npos, LAST_TAG) == 0;
}

// The host's life beside a section that it refuses, and a request that stands meanwhile.
void CheckRefused(HostUnderAttack& host, const ForeignSection& foreign)
{
    host.Begin();
    SetEvent(UniqueHandle(OpenEventW(EVENT_MODIFY_STATE, FALSE, BEGIN_NAME)).Get());
    Sleep(100);
    CHECK(host.AwaitAlerts());
    ResetEvent(UniqueHandle(OpenEventW(EVENT_MODIFY_STATE, FALSE, BEGIN_NAME)).Get());
    host.End();
    CHECK(foreign.IsUntouchedFrom(0));
    CHECK_THAT(host.Log(), HasLineContaining(REFUSED));
    CHECK_THAT(host.Log(), HasLineContaining("CPKIUtlCheckingThread -- MapViewOfFile("));
}

} // namespace

TEST_CASE("a section that is too small is refused, and nothing is written to it")
{
    const DWORD dwBytes = GENERATE(16, 4096, 28'672);
    CAPTURE(dwBytes);
    const ForeignSection foreign(dwBytes);
    HostUnderAttack host;
    CheckRefused(host, foreign);
}

TEST_CASE("of a section that is larger only the first 32768 bytes are written, and reports come")
{
    const DWORD dwBytes = GENERATE(36'864, 16 * 1024 * 1024);
    CAPTURE(dwBytes);
    const ForeignSection foreign(dwBytes);
    HostUnderAttack host;
    host.Begin();
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    host.End();
    CHECK(foreign.IsUntouchedFrom(SECTION_BYTES));
}

// The disk or network behind a file can fail at any touch, which would end the host.
TEST_CASE("a section that is laid over a file is refused, and the file is not written to")
{
    HostUnderAttack host;
    const UniqueFile file = MakeVictim();
    const ForeignSection foreign(SECTION_BYTES, file.Get());
    CheckRefused(host, foreign);
}

TEST_CASE("a name of a file that is too long to be asked for does not hide it, however the system says so")
{
    const DWORD dwTooLong = GENERATE(values<DWORD>({ERROR_INSUFFICIENT_BUFFER, ERROR_MORE_DATA, ERROR_BAD_LENGTH}));
    CAPTURE(dwTooLong);
    ModuleTree tree;
    tree.CopyModule();
    LoadedModule module(tree, LoadedModule::Start::Later);
    ImportRedirector imports(module.Handle());
    const PrivateNames names(imports, MakePrivateKey()); // the section of the answer before still has its name
    const UniqueFile file = MakeVictim();
    const ForeignSection foreign(SECTION_BYTES, file.Get(), PrivateName(SECTION_NAME, names.Key()).c_str());
    imports.FailCall("K32GetMappedFileNameW", 1, FailMode::FromThereOn, dwTooLong);
    REQUIRE(module.Attach());
    CHECK(imports.Failures("K32GetMappedFileNameW") == 1);
    CHECK(foreign.IsUntouchedFrom(0));
    CHECK_THAT(LogFile(tree), HasLineContaining(REFUSED));
}

TEST_CASE("a request that changes as soon as it was read is answered as it was read")
{
    ModuleTree tree;
    tree.CopyModule();
    LoadedModule module(tree, LoadedModule::Start::Later);
    ImportRedirector imports(module.Handle());
    REQUIRE(module.Attach());
    const OpenSection section;
    std::atomic<int> nChanges{0};
    // The module logs what it read before it uses it: each line that it writes changes the section.
    imports.Replace<decltype(::WriteFile)>(
        "WriteFile",
        [&](HANDLE hFile, LPCVOID pData, DWORD cbData, LPDWORD pcbWritten, LPOVERLAPPED pOverlapped)
        {
            const BOOL bWritten = WriteFile(hFile, pData, cbData, pcbWritten, pOverlapped);
            if (std::string(static_cast<const char*>(pData), cbData).find("MMF data") != std::string::npos)
            {
                section.Words()[0] = 0;
                section.Words()[1] = 0;
                section.Words()[2] = 0xFFFFFFFF;
                ++nChanges;
            }
            return bWritten;
        });
    imports.Replace<decltype(::Sleep)>("Sleep", [](DWORD dwMilliseconds) { Sleep((dwMilliseconds + 19) / 20); });
    module.Export<decltype(::StartPKIUtlThread)>("StartPKIUtlThread")();
    HostAgent agent(L"");
    agent.Ask(7, 3);
    CHECK(agent.TakeFinish(HostUnderAttack::PATIENCE_MS));
    module.Export<decltype(::StopPKIUtlThread)>("StopPKIUtlThread")();
    CHECK(nChanges > 0);
    CHECK(agent.Length() > 0);
    CHECK(agent.Length() <= MAX_TEXT);
    const LogFile log(tree);
    CHECK(NumbersRead(log) == Numbers{{"7", "3"}});
    CHECK(NumbersUsed(log) == Numbers{{"7", "3"}});
}

TEST_CASE("a section that another process never stops writing to is answered, and the host lives")
{
    HostUnderAttack host;
    host.Begin();
    host.AskForReport(); // the samplers have begun
    const int nReports = IsLongForm() ? 3000 : 300;
    int nAnswered = 0;
    {
        const OpenSection section;
        std::mt19937 random(20260131);
        const Storm storm(
            [&]
            {
                const std::uint32_t nWhere = random() % 3 == 0 ? random() % (SECTION_BYTES / 4) : random() % 3;
                section.Words()[nWhere] = random() % 4 == 0 ? random() : 1 + random() % 3;
            });
        const UniqueHandle begin(OpenEventW(EVENT_ALL_ACCESS, FALSE, BEGIN_NAME));
        const UniqueHandle finish(OpenEventW(EVENT_ALL_ACCESS, FALSE, FINISH_NAME));
        for (int i = 0; i < nReports; ++i)
        {
            CAPTURE(i);
            SetEvent(begin.Get());
            REQUIRE(WaitForSingleObject(finish.Get(), HostUnderAttack::PATIENCE_MS) == WAIT_OBJECT_0);
            ++nAnswered;
            ResetEvent(finish.Get());
            host.AwaitReset();
        }
    }
    CHECK(nAnswered == nReports);
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil")); // the next honest one
    host.End();
    const Numbers used = NumbersUsed(host.Log());
    const Numbers read = NumbersRead(host.Log());
    CHECK(used == read);
    CHECK(std::set(used.begin(), used.end()).size() > 5); // or the storm did not meet the readings
    PrintFigure("hostile section: " + std::to_string(nReports) +
                " reports asked for while another process writes to it without a pause: " + std::to_string(nAnswered) +
                " answered; with the honest ones before and after them " + std::to_string(used.size()) +
                " numbers used, " + std::to_string(CountSame(used, read)) + " of them as they were read");
}

// The module's view ends where its memory ends: 32,768 bytes are half of what addresses are given out by.
TEST_CASE("a section of any content is answered by a whole report within it, in bounded memory")
{
    constexpr std::uint32_t NUMBERS[] = {1, 2, 3, 1440, 1441, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};
    // Wine's document object keeps some 115 bytes of each attribute that is made in a namespace, 1.5 KiB a report here.
    constexpr std::size_t KILOBYTES_OF_A_REPORT = 2;
    constexpr std::size_t MORE_KILOBYTES = 512;
    HostUnderAttack host;
    host.Begin();
    host.AskForReport();
    const OpenSection section;
    const UniqueHandle begin(OpenEventW(EVENT_ALL_ACCESS, FALSE, BEGIN_NAME));
    const UniqueHandle finish(OpenEventW(EVENT_ALL_ACCESS, FALSE, FINISH_NAME));
    const std::size_t nKilobytes = host.PrivateKilobytes();
    int nWhole = 0; // from the first tag to the last one
    int nParsed = 0;
    int nRestKept = 0; // the request and all behind the answer
    FuzzRun run(15);
    while (run.Next())
    {
        CAPTURE(run.Cases());
        std::string content(SECTION_BYTES, '\0');
        std::generate(content.begin(), content.end(), [&] { return static_cast<char>(run.Random()()); });
        std::uint32_t anNumbers[2];
        for (std::uint32_t& nNumber : anNumbers)
        {
            const auto nRandom = static_cast<std::uint32_t>(run.Random()()) | 1;
            nNumber = run.Upto(2) == 0 ? nRandom : NUMBERS[run.Upto(std::size(NUMBERS) - 1)];
        }
        std::memcpy(content.data(), anNumbers, sizeof anNumbers);
        std::memcpy(section.Bytes(), content.data(), SECTION_BYTES);
        SetEvent(begin.Get());
        REQUIRE(WaitForSingleObject(finish.Get(), HostUnderAttack::PATIENCE_MS) == WAIT_OBJECT_0);
        ResetEvent(finish.Get());
        host.AwaitReset();
        const std::size_t cchText = section.Words()[2];
        REQUIRE(cchText > 0);
        REQUIRE(cchText <= MAX_TEXT);
        const std::wstring text(reinterpret_cast<const wchar_t*>(section.Bytes() + TEXT_OFFSET), cchText);
        REQUIRE(text.rfind(L"<ServerPKIInformation", 0) == 0);
        REQUIRE(EndsWithRoot(text));
        ++nWhole;
        const std::size_t cbAnswer = TEXT_OFFSET + cchText * sizeof(wchar_t);
        REQUIRE(std::memcmp(section.Bytes(), content.data(), 8) == 0);
        REQUIRE(std::memcmp(section.Bytes() + cbAnswer, content.data() + cbAnswer, SECTION_BYTES - cbAnswer) == 0);
        ++nRestKept;
        if (run.Cases() % 50 == 1)
        {
            CHECK(XmlReader::FromText(text).Count(L"ServerPKIInformation") == 1);
            ++nParsed;
        }
    }
    CHECK(run.Cases() > 50);
    const std::size_t nMore = (std::max)(host.PrivateKilobytes(), nKilobytes) - nKilobytes;
    CHECK(nMore < MORE_KILOBYTES + KILOBYTES_OF_A_REPORT * run.Cases());
    host.End();
    PrintFigure("hostile sections: " + std::to_string(run.Cases()) + " contents, " + std::to_string(nWhole) +
                " answered by a report from its first tag to its last, " + std::to_string(nParsed) +
                " of these parsed; " + std::to_string(nRestKept) + " times all other bytes were kept; " +
                std::to_string(nMore) + " KiB of memory more at the end");
}

} // namespace varnex::test
