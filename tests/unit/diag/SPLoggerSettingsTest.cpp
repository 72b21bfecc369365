#include "LogFixture.h"

// Where the log lies and how much it tells.

namespace varnex::test
{

TEST_CASE("configuring puts the log into its directory under its name, at level 3")
{
    LogFixture fixture;
    fixture.logger.Level = 1;
    fixture.logger.Configure("D:\\A\\B\\Logs", "Varnex");
    CHECK(std::string(fixture.logger.LogDirectory) == "D:\\A\\B\\Logs");
    CHECK(std::string(fixture.logger.LoggerName) == "Varnex");
    CHECK(std::string(fixture.logger.LogFilePath) == "D:\\A\\B\\Logs\\Varnex.log");
    CHECK(fixture.logger.Level == 3);
}

TEST_CASE("a module without two backslashes in its path logs into the root of drive c:")
{
    LogFixture fixture;
    fixture.logger.Configure("c:", "Varnex");
    CHECK(std::string(fixture.logger.LogFilePath) == "c:\\Varnex.log");
}

TEST_CASE("configuring keeps the mutex and its name")
{
    LogFixture fixture;
    const std::string mutexName = fixture.logger.MutexName;
    const HANDLE hMutex = fixture.logger.Mutex;
    fixture.logger.Configure("D:\\Logs", "Other");
    CHECK(fixture.logger.MutexName == mutexName);
    CHECK(fixture.logger.Mutex == hMutex);
}

TEST_CASE("a shorter name and directory leave nothing of the longer ones")
{
    LogFixture fixture;
    fixture.logger.Configure("D:\\A\\very\\long\\directory", "LongerName");
    fixture.logger.Configure("E:", "V");
    CHECK(std::string(fixture.logger.LogDirectory) == "E:");
    CHECK(std::string(fixture.logger.LoggerName) == "V");
    CHECK(std::string(fixture.logger.LogFilePath) == "E:\\V.log");
}

TEST_CASE("names that are too long are cut and terminated")
{
    LogFixture fixture;
    fixture.logger.Configure(std::string(400, 'd').c_str(), std::string(200, 'n').c_str());
    CHECK(std::string(fixture.logger.LogDirectory) == std::string(259, 'd'));
    CHECK(std::string(fixture.logger.LoggerName) == std::string(127, 'n'));
    CHECK(std::string(fixture.logger.LogFilePath) == std::string(259, 'd'));
}

TEST_CASE("the configured level is taken from 0 to 4 and otherwise ignored")
{
    struct Case
    {
        int nConfigured;
        int nLevel; // afterwards, when it was 2
    };
    const auto expected = GENERATE(Case{0, 0}, Case{1, 1}, Case{2, 2}, Case{3, 3}, Case{4, 4}, Case{5, 2}, Case{-1, 2},
                                   Case{100, 2}, Case{INT_MAX, 2}, Case{INT_MIN, 2});
    LogFixture fixture;
    fixture.logger.Level = 2;
    fixture.logger.SetConfiguredLevel(expected.nConfigured);
    CHECK(fixture.logger.Level == expected.nLevel);
}

TEST_CASE("the directory of the log is made when it is missing")
{
    LogFixture fixture(false);
    REQUIRE_FALSE(FileExists(fixture.tree.LogsPath()));
    fixture.logger.Level1A("text");
    CHECK(fixture.tree.Log() == "2024-01-31 23:59:59 [1] - text\r\n");
}

TEST_CASE("the directory is made anew before every line")
{
    LogFixture fixture;
    fixture.logger.Level1A("lost with the directory");
    REQUIRE(DeleteFileW(fixture.tree.InLogs(L"Varnex.log").c_str()));
    REQUIRE(RemoveDirectoryW(fixture.tree.LogsPath().c_str()));
    fixture.logger.Level1A("text");
    CHECK(fixture.tree.Log() == "2024-01-31 23:59:59 [1] - text\r\n");
}

TEST_CASE("only one level of the directory is made")
{
    LogFixture fixture;
    const std::wstring parent = fixture.tree.InBin(L"missing");
    fixture.logger.Configure(AnsiFromWide(parent + L"\\Logs").c_str(), "Varnex");
    fixture.logger.Level1A("text");
    CHECK_FALSE(FileExists(parent));
}

} // namespace varnex::test
