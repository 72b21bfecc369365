#include "alerting/AlertFile.h"

#include "common/WriteWhole.h"
#include "support/ImportRedirector.h"
#include "support/ModuleTree.h"

#include <catch2/catch.hpp>

#include <algorithm>
#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

constexpr std::size_t g_cbChunk = LineReader::PIECE_BYTES;

// Two files of a tree: one to read, one to write.
class Files
{
public:
    explicit Files(const std::string& bytes) : m_source(m_tree.InBin(L"source")), m_target(m_tree.InBin(L"target"))
    {
        WriteFileBytes(m_source, bytes);
    }
    UniqueFile OpenSource() const { return Open(m_source, GENERIC_READ); }
    UniqueFile OpenTarget() const { return Open(m_target, GENERIC_READ | GENERIC_WRITE); }
    std::string Target() const { return ReadFileBytes(m_target); }

private:
    static UniqueFile Open(const std::wstring& path, DWORD dwAccess)
    {
        UniqueFile file(CreateFileW(path.c_str(), dwAccess, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
        REQUIRE(file);
        return file;
    }

    ModuleTree m_tree;
    std::wstring m_source;
    std::wstring m_target;
};

using Lines = std::vector<std::string>;

// Every line until the end, read through a buffer of that size.
Lines LinesOfBytes(const std::string& bytes, std::size_t cchLine)
{
    const Files files(bytes);
    const UniqueFile file = files.OpenSource();
    LineReader reader(file.Get());
    Lines lines;
    std::string buffer(cchLine, '#');
    while (!reader.AtEnd())
    {
        reader.ReadLine(buffer.data(), cchLine);
        lines.push_back(buffer.c_str());
    }
    CHECK(reader.Error() == ERROR_SUCCESS);
    reader.ReadLine(buffer.data(), cchLine);
    CHECK(buffer[0] == '\0');
    return lines;
}

void SkipLine(LineReader& reader)
{
    char szLine[1024];
    reader.ReadLine(szLine, sizeof szLine);
}

void CutWrites(ImportRedirector& imports, DWORD cbTaken)
{
    imports.Replace<decltype(::WriteFile)>(
        "WriteFile", [cbTaken](HANDLE hFile, LPCVOID pData, DWORD cbData, LPDWORD pcbWritten, LPOVERLAPPED)
        { return WriteFile(hFile, pData, std::min(cbData, cbTaken), pcbWritten, nullptr); });
}

} // namespace

TEST_CASE("a line reader gives the lines of a text file")
{
    struct Row
    {
        std::string bytes;
        Lines lines;
    };
    const auto row = GENERATE(values<Row>({
        {"", {}},
        {"\r\n", {"\n"}},
        {"a\r\nb\r\n", {"a\n", "b\n"}},
        {"a\nb\n", {"a\n", "b\n"}},
        {"a\r\nb", {"a\n", "b"}},
        {"\r\n\r\na\r\n", {"\n", "\n", "a\n"}},
        // A carriage return by itself is data, also the first of two and one at the end of the file.
        {"a\rb\r\n", {"a\rb\n"}},
        {"a\r\r\n", {"a\r\n"}},
        {"a\r", {"a\r"}},
        // So is the byte that ends a file for a text-mode stream.
        {"a\x1A"
         "b\r\nc\r\n",
         {"a\x1A"
          "b\n",
          "c\n"}},
        {"\x1A", {"\x1A"}},
        {"\xE4\xFF\r\n", {"\xE4\xFF\n"}},
    }));
    CHECK(LinesOfBytes(row.bytes, 1024) == row.lines);
}

TEST_CASE("a line that does not fit its buffer comes in pieces")
{
    CHECK(LinesOfBytes("abcdefg\r\nh\r\n", 4) == Lines{"abc", "def", "g\n", "h\n"});
    CHECK(LinesOfBytes("abc\r\nd\r\n", 4) == Lines{"abc", "\n", "d\n"});
    CHECK(LinesOfBytes("ab\r\nd\r\n", 4) == Lines{"ab\n", "d\n"});
    CHECK(LinesOfBytes(std::string(1024, 'x') + "\r\n", 1024) == Lines{std::string(1023, 'x'), "x\n"});
}

TEST_CASE("a line end that lies across two reads is one line end")
{
    const auto nBefore = GENERATE(g_cbChunk - 3, g_cbChunk - 2, g_cbChunk - 1, g_cbChunk, 2 * g_cbChunk - 1);
    const std::string text(nBefore, 'x');

    CHECK(LinesOfBytes(text + "\r\nnext\r\n", 4 * g_cbChunk) == Lines{text + "\n", "next\n"});
}

TEST_CASE("a read that fails ends the lines and is remembered")
{
    ImportRedirector imports;
    const Files files("first\r\n" + std::string(g_cbChunk, 'x'));
    const UniqueFile file = files.OpenSource();
    LineReader reader(file.Get());
    imports.FailCall("ReadFile", 2, FailMode::Once, ERROR_CRC);
    std::string line(2 * g_cbChunk, '#');

    reader.ReadLine(line.data(), line.size());
    CHECK(line.c_str() == std::string("first\n"));
    CHECK(reader.Error() == ERROR_SUCCESS);
    reader.ReadLine(line.data(), line.size());
    CHECK(line.c_str() == std::string(g_cbChunk - 7, 'x'));
    CHECK(reader.Error() == ERROR_CRC);
    // The rest of the file is never taken for readable again.
    CHECK(reader.AtEnd());
    reader.ReadLine(line.data(), line.size());
    CHECK(line[0] == '\0');
    CHECK(imports.Failures("ReadFile") == 1);
    CHECK(imports.Calls("ReadFile") == 2);
}

TEST_CASE("the rest of a file is copied byte by byte")
{
    std::string bytes("keep\x1Athis\0and\r\r\nthis\nand a torn line", 37);
    bytes = GENERATE_COPY(values<std::string>({"", bytes, std::string(3 * g_cbChunk + 5, 'x') + bytes}));
    const Files files("first\r\n" + bytes);
    const UniqueFile source = files.OpenSource();
    const UniqueFile target = files.OpenTarget();
    LineReader reader(source.Get());
    SkipLine(reader);

    CHECK(reader.CopyRestTo(target.Get()) == ERROR_SUCCESS);
    CHECK(files.Target() == bytes);
    CHECK(reader.AtEnd());
}

TEST_CASE("a copy tells which call failed")
{
    ImportRedirector imports;
    const Files files("first\r\n" + std::string(2 * g_cbChunk, 'x'));
    const UniqueFile source = files.OpenSource();
    const UniqueFile target = files.OpenTarget();
    LineReader reader(source.Get());
    SkipLine(reader);

    SECTION("a write")
    {
        imports.FailCall("WriteFile", 2, FailMode::Once, ERROR_HANDLE_DISK_FULL);
        CHECK(reader.CopyRestTo(target.Get()) == ERROR_HANDLE_DISK_FULL);
    }
    SECTION("a write that took only a part")
    {
        CutWrites(imports, 10);
        CHECK(reader.CopyRestTo(target.Get()) == ERROR_DISK_FULL);
        CHECK(files.Target() == std::string(10, 'x'));
    }
    SECTION("a read")
    {
        imports.FailCall("ReadFile", 1, FailMode::Once, ERROR_CRC);
        CHECK(reader.CopyRestTo(target.Get()) == ERROR_CRC);
    }
    SECTION("a read that leaves no error")
    {
        imports.FailCall("ReadFile", 1, FailMode::Once, ERROR_SUCCESS);
        CHECK(reader.CopyRestTo(target.Get()) == ERROR_GEN_FAILURE);
    }
}

TEST_CASE("a write is whole or an error")
{
    ImportRedirector imports;
    const Files files("");
    const UniqueFile target = files.OpenTarget();

    SECTION("whole")
    {
        CHECK(WriteWhole(target.Get(), "text", 4) == ERROR_SUCCESS);
        CHECK(files.Target() == "text");
    }
    SECTION("failed")
    {
        imports.FailCall("WriteFile", 1, FailMode::Once, ERROR_HANDLE_DISK_FULL);
        CHECK(WriteWhole(target.Get(), "text", 4) == ERROR_HANDLE_DISK_FULL);
    }
    SECTION("failed without an error")
    {
        imports.FailCall("WriteFile", 1, FailMode::Once, ERROR_SUCCESS);
        CHECK(WriteWhole(target.Get(), "text", 4) == ERROR_GEN_FAILURE);
    }
    SECTION("cut")
    {
        CutWrites(imports, 3);
        CHECK(WriteWhole(target.Get(), "text", 4) == ERROR_DISK_FULL);
    }
}

TEST_CASE("a torn last line is told from one that ended")
{
    struct Row
    {
        const char* pszBytes;
        const char* pszMissing;
    };
    const auto row = GENERATE(values<Row>(
        {{"", ""}, {"\n", ""}, {"a\r\n", ""}, {"a\n", ""}, {"a", "\r\n"}, {"a\r\nb", "\r\n"}, {"a\r", "\n"}}));
    const Files files(row.pszBytes);

    CAPTURE(row.pszBytes);
    CHECK(MissingLineEnd(files.OpenSource().Get()) == std::string(row.pszMissing));
}

TEST_CASE("a file whose end cannot be read is taken as torn")
{
    ImportRedirector imports;
    const Files files("whole\r\n");
    const UniqueFile file = files.OpenSource();

    SECTION("because a call fails")
    {
        const auto import = GENERATE(values<std::string>({"SetFilePointerEx", "ReadFile"}));
        imports.FailCall(import.c_str(), 1, FailMode::Once, ERROR_CRC);
        CHECK(MissingLineEnd(file.Get()) == std::string("\r\n"));
        CHECK(imports.Failures(import.c_str()) == 1);
    }
    SECTION("because it is shorter by then")
    {
        imports.Replace<decltype(::ReadFile)>("ReadFile",
                                              [](HANDLE, LPVOID, DWORD, LPDWORD pcbRead, LPOVERLAPPED)
                                              {
                                                  *pcbRead = 0;
                                                  return TRUE;
                                              });
        CHECK(MissingLineEnd(file.Get()) == std::string("\r\n"));
        imports.Restore("ReadFile");
    }
    CHECK(MissingLineEnd(file.Get()) == std::string());
}

} // namespace varnex::test
