// Saves on a disk that is really full: full_disk_test.sh mounts a small one and runs each of these cases there.

#include "ConfigFixture.h"

#include "common/Handles.h"
#include "config/DailyCounters.h"
#include "config/XmlConfig.h"
#include "support/TestText.h"
#include "support/VirtualClock.h"
#include "support/XmlReader.h"

#include <catch2/catch.hpp>

#include <windows.h>

#include <algorithm>

namespace varnex::test
{

namespace
{

constexpr wchar_t TODAY[] = L"2026-01-31";
constexpr wchar_t TOMORROW[] = L"2026-02-01";
constexpr wchar_t COUNT_PATH[] = L"KPMConfiguration/PkiAlertNum/CPU";
constexpr int DISK_FULL = HRESULT_FROM_WIN32(ERROR_DISK_FULL);
constexpr ULONGLONG PAGE_BYTES = 4096; // what the disk gives out at a time

std::wstring Disk()
{
    wchar_t wszDisk[260];
    const DWORD cchDisk = GetEnvironmentVariableW(L"VARNEX_TEST_SMALL_DISK", wszDisk, 260);
    REQUIRE(cchDisk != 0);
    return std::wstring(wszDisk, cchDisk);
}

// A day's counts in a file of that many bytes.
std::string DayOf(std::size_t cbFile)
{
    const std::string begin = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<KPMConfiguration><PkiAlert>"
                              "<CPUThreshold>85</CPUThreshold></PkiAlert><PkiAlertNum><Date>2026-01-31</Date>"
                              "<CPU>1</CPU><Disk>4</Disk></PkiAlertNum><!--";
    const std::string end = "--></KPMConfiguration>\r\n";
    return begin + std::string(cbFile - begin.size() - end.size(), '#') + end;
}

// The configuration on the small disk, the log on another one. The document objects and the files are real.
struct SmallDisk : ConfigFixture
{
    const std::wstring file = Disk() + L"\\KpmCfg.xml";
    const std::wstring filler = Disk() + L"\\filler";
    VirtualClock clock{redirector};
    const std::string day;

    explicit SmallDisk(std::size_t cbFile)
        : ConfigFixture(Disk(), L"-" + std::to_wstring(GetCurrentProcessId())), day(DayOf(cbFile))
    {
        WriteFileBytes(file, day);
        redirector.CountCalls("WriteFile");
    }
    static ULONGLONG Room()
    {
        ULARGE_INTEGER cbRoom;
        REQUIRE(GetDiskFreeSpaceExW(Disk().c_str(), &cbRoom, nullptr, nullptr));
        return cbRoom.QuadPart;
    }
    void FillUpTo(ULONGLONG cbRoom) const
    {
        WriteFileBytes(filler, std::string(static_cast<std::size_t>(Room() - cbRoom), '#'));
        REQUIRE(Room() == cbRoom);
    }
    // The name of the temporary file is a directory's, so that every save is in place.
    void KeepTemporaryFileAway() const { REQUIRE(CreateDirectoryW((file + L".tmp").c_str(), nullptr)); }
    std::string SaveFailed() const
    {
        return Line(1, "SetXMLNodeValue -- DocumentPtr save to file(%s) fail(0x80070070)", {AnsiFromWide(file)});
    }
    void CheckIsOld() const
    {
        CHECK((ReadFileBytes(file) == day)); // too long to be printed
        int nCount = -1;
        CHECK(GetAlertNumFromLocal(TODAY, ALERT_COUNTER_DISK, &nCount) == 0);
        CHECK(nCount == 4);
        CHECK(GetAlertConfValue(1, 2) == 85);
    }
    bool HasTemporaryFile() const { return FileExists(file + L".tmp"); }
    std::wstring Count() const { return XmlReader::FromFile(file).Text(COUNT_PATH).value_or(L"none"); }
};

std::size_t CountOf(const Lines& lines, const std::string& line)
{
    return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
}

} // namespace

TEST_CASE("small disk: a save that has room for a part of the file leaves the old one", "[.]")
{
    SmallDisk config(42'277);
    config.FillUpTo(4 * PAGE_BYTES);
    CHECK(SaveAlertNumIntoLocal(TODAY, ALERT_COUNTER_CPU, 2) == DISK_FULL);
    CHECK(CountOf(config.TakeLog(), config.SaveFailed()) == 1);
    config.CheckIsOld();
    CHECK_FALSE(config.HasTemporaryFile());
    DeleteFileW(config.filler.c_str());
    CHECK(SaveAlertNumIntoLocal(TODAY, ALERT_COUNTER_CPU, 2) == 0);
    CHECK(config.Count() == L"2");
}

TEST_CASE("small disk: a save without any room leaves the old file", "[.]")
{
    SmallDisk config(42'277);
    config.FillUpTo(0);
    CHECK(SaveAlertNumIntoLocal(TODAY, ALERT_COUNTER_CPU, 2) == DISK_FULL);
    CHECK(CountOf(config.TakeLog(), config.SaveFailed()) == 1);
    config.CheckIsOld();
    CHECK_FALSE(config.HasTemporaryFile());
}

TEST_CASE("small disk: a new day without any room leaves the old one", "[.]")
{
    SmallDisk config(42'277);
    config.FillUpTo(0);
    CHECK(SaveAlertNumIntoLocal(TOMORROW, ALERT_COUNTER_CPU, 1) == DISK_FULL);
    const Lines log = config.TakeLog();
    CHECK(CountOf(log, config.SaveFailed()) == 7); // the date, five counts, and the one that was to be saved
    CHECK(CountOf(log, "[2] - SaveAlertNumIntoLocal -- Reset new date failed, continue reset alert number.") == 1);
    config.CheckIsOld();
    CHECK_FALSE(config.HasTemporaryFile());
}

TEST_CASE("small disk: a save in place that needs more room than there is leaves the old file", "[.]")
{
    SmallDisk config(10 * PAGE_BYTES);
    config.KeepTemporaryFileAway();
    config.FillUpTo(0);
    CHECK(SetXMLNodeValue(nullptr, COUNT_PATH, std::wstring(5000, L'2').c_str()) == DISK_FULL);
    CHECK(config.TakeLog() == Lines{config.SaveFailed()});
    config.CheckIsOld();
}

TEST_CASE("small disk: a save in place that needs no more room than the old file has succeeds on a full disk", "[.]")
{
    SmallDisk config(10 * PAGE_BYTES + 100);
    config.KeepTemporaryFileAway();
    config.FillUpTo(0);
    CHECK(SetXMLNodeValue(nullptr, COUNT_PATH, L"2") == 0);
    CHECK(config.Count() == L"2");
    CHECK(config.TakeLog().empty());
}

} // namespace varnex::test
