#include "FuzzInput.h"

#include "alerting/AlertFile.h"
#include "alerting/AlertLine.h"

#include <memory>

// An alert file of any bytes, read as a fetch reads it: in pieces of any size, failing anywhere.

using namespace varnex;
using namespace varnex::fuzz;

namespace
{

bool IsTerminated(const char* pszText, std::size_t cchText)
{
    return std::memchr(pszText, '\0', cchText) != nullptr;
}

// A record comes back from its own line, but for what nothing escapes and what the line has no room for.
void CheckRoundTrip(const VARNEX_ALERT_BUF& record)
{
    if (std::strpbrk(record.ResourceName, ";") != nullptr || std::strpbrk(record.Extra, "\r\n") != nullptr)
    {
        return;
    }
    const auto line = std::make_unique<char[]>(ALERT_LINE_CHARS); // whose end a sanitizer watches
    FormatAlertLine(record, reinterpret_cast<char(&)[ALERT_LINE_CHARS]>(*line.get()));
    const auto again = std::make_unique<VARNEX_ALERT_BUF>();
    Require(ParseAlertLine(line.get(), again.get()) == 0, "a record's own line is one");
    Require(again->AlertType == record.AlertType && again->Threshold == record.Threshold &&
                again->Value == record.Value && again->HappenTime == record.HappenTime,
            "numbers come back");
    Require(std::strcmp(again->ResourceName, record.ResourceName) == 0, "the name comes back");
    Require(std::strcmp(again->Extra, record.Extra) == 0, "the extra text comes back");
}

void ReadAll(NativeFile& file)
{
    NativeFile rest;
    const auto reader = std::make_unique<LineReader>(&file);
    std::size_t cbRead = 0;
    while (!reader->AtEnd())
    {
        const auto line = std::make_unique<char[]>(ALERT_LINE_CHARS);
        reader->ReadLine(line.get(), ALERT_LINE_CHARS);
        Require(IsTerminated(line.get(), ALERT_LINE_CHARS), "a line is terminated");
        ++cbRead;
        Require(cbRead <= file.bytes.size(), "each line takes something");
        const auto record = std::make_unique<VARNEX_ALERT_BUF>();
        std::memset(record.get(), 'x', sizeof *record);
        if (ParseAlertLine(line.get(), record.get()) == 0)
        {
            Require(IsTerminated(record->ResourceName, sizeof record->ResourceName), "a name is terminated");
            Require(IsTerminated(record->Extra, sizeof record->Extra), "an extra text is terminated");
            CheckRoundTrip(*record);
        }
    }
    Require(reader->Error() == ERROR_SUCCESS || file.nReadLimit <= file.bytes.size(), "an error comes from the file");
}

// Some lines, then the copy of the rest: exactly what was not read.
void CopyRest(NativeFile& file, int nLines, std::size_t nWriteLimit)
{
    const auto reader = std::make_unique<LineReader>(&file);
    for (; nLines > 0 && !reader->AtEnd(); --nLines)
    {
        char szLine[ALERT_LINE_CHARS];
        reader->ReadLine(szLine, sizeof szLine);
    }
    NativeFile rest;
    rest.nWriteLimit = nWriteLimit;
    MissingLineEnd(&rest);
    const DWORD dwError = reader->CopyRestTo(&rest);
    Require(rest.bytes.size() <= file.bytes.size(), "no more is copied than there is");
    if (dwError == ERROR_SUCCESS)
    {
        Require(file.bytes.compare(file.bytes.size() - rest.bytes.size(), rest.bytes.size(), rest.bytes) == 0,
                "the rest is the file's end");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t cbData)
{
    FuzzInput input(pData, cbData);
    const auto nChunk = static_cast<std::size_t>(1 + input.Take<std::uint16_t>());
    const auto nReadLimit = static_cast<std::size_t>(input.Take<std::uint16_t>());
    const int nLines = input.Take<std::uint8_t>() % 8;
    const auto nWriteLimit = static_cast<std::size_t>(input.Take<std::uint16_t>());
    NativeFile file;
    file.bytes = input.Rest();
    file.nChunk = nChunk;
    if (nReadLimit % 4 == 0)
    {
        file.nReadLimit = nReadLimit;
    }
    ReadAll(file);
    file.nPosition = 0;
    CopyRest(file, nLines, nWriteLimit % 4 == 0 ? nWriteLimit : static_cast<std::size_t>(-1));
    return 0;
}
