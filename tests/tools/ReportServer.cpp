// Stands in for a process that has the module loaded: answers every request for a report with the text of a file, so
// that the tool meets reports that no machine here would give. It also plays other programs that are in the tool's way:
// a reader that has a file open, one that keeps a file for itself, and one that has the mutex of the alert file.
// usage: ReportServer serve REPORT.xml      until it is ended, at most two minutes
//        ReportServer hold FILE MILLISECONDS
//        ReportServer keep FILE MILLISECONDS
//        ReportServer alerts FILE            as long as the file is there, at most two minutes
#include "reporting/ReportHandOff.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

namespace
{

using namespace varnex;

constexpr DWORD LIFE_MS = 120'000;
constexpr DWORD POLL_MS = 50;
constexpr char ALERT_MUTEX_NAME[] = "Global\\{A2C32408-95FF-4183-8208-1C370A075B80}";

void SayReady()
{
    std::puts("ready");
    std::fflush(stdout);
}

std::wstring ReadReport(const char* pszFile)
{
    std::ifstream file(pszFile, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::wstring text(bytes.size(), L'\0');
    text.resize(static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, bytes.data(), static_cast<int>(bytes.size()),
                                                             text.data(), static_cast<int>(text.size()))));
    return text;
}

int Serve(const char* pszFile)
{
    const std::wstring text = ReadReport(pszFile);
    const UniqueHandle begin(CreateEventW(nullptr, TRUE, FALSE, BEGIN_EVENT_NAME));
    const UniqueHandle finish(CreateEventW(nullptr, TRUE, FALSE, FINISH_EVENT_NAME));
    const UniqueHandle section(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                                  REPORT_SECTION_BYTES, REPORT_SECTION_NAME));
    const UniqueView view(MapViewOfFile(section.Get(), FILE_MAP_WRITE, 0, 0, REPORT_SECTION_BYTES));
    if (!view || text.empty() || text.size() > MAX_REPORT_CHARS)
    {
        return 1;
    }
    auto& report = *static_cast<ReportSection*>(view.Get());
    SayReady();
    while (WaitForSingleObject(begin.Get(), LIFE_MS) == WAIT_OBJECT_0)
    {
        std::copy(text.begin(), text.end(), report.awchText);
        report.nTextLength = static_cast<std::uint32_t>(text.size());
        ResetEvent(begin.Get());
        SetEvent(finish.Get());
    }
    return 0;
}

// dwShare: what others may open the file for meanwhile. As most programs open a file for reading, nobody may move another
// one over it.
int Hold(const char* pszFile, DWORD dwShare, DWORD dwMilliseconds)
{
    const UniqueFile file(
        CreateFileA(pszFile, GENERIC_READ, dwShare, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
    {
        return 1;
    }
    SayReady();
    Sleep(dwMilliseconds);
    return 0;
}

int HoldAlerts(const char* pszFile)
{
    const UniqueHandle mutex(CreateMutexA(nullptr, FALSE, ALERT_MUTEX_NAME));
    if (!mutex || WaitForSingleObject(mutex.Get(), 0) != WAIT_OBJECT_0)
    {
        return 1;
    }
    const MutexHold hold(mutex.Get());
    SayReady();
    for (DWORD dwHeld = 0; dwHeld < LIFE_MS && GetFileAttributesA(pszFile) != INVALID_FILE_ATTRIBUTES;
         dwHeld += POLL_MS)
    {
        Sleep(POLL_MS);
    }
    return 0;
}

} // namespace

int main(int nArguments, char** apszArguments)
{
    if (nArguments == 3 && std::strcmp(apszArguments[1], "serve") == 0)
    {
        return Serve(apszArguments[2]);
    }
    if (nArguments == 4 && std::strcmp(apszArguments[1], "hold") == 0)
    {
        return Hold(apszArguments[2], FILE_SHARE_READ | FILE_SHARE_WRITE,
                    static_cast<DWORD>(std::atoi(apszArguments[3])));
    }
    if (nArguments == 4 && std::strcmp(apszArguments[1], "keep") == 0)
    {
        return Hold(apszArguments[2], 0, static_cast<DWORD>(std::atoi(apszArguments[3])));
    }
    if (nArguments == 3 && std::strcmp(apszArguments[1], "alerts") == 0)
    {
        return HoldAlerts(apszArguments[2]);
    }
    return 2;
}
