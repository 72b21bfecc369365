// Stands in for a process that has the module loaded: answers every request for a report with the text of a file, so
// that the tool meets reports that no machine here would give. It also plays a reader that has a file open.
// usage: ReportServer serve REPORT.xml      until it is ended, at most two minutes
//        ReportServer hold FILE MILLISECONDS
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

// As most programs open a file for reading: nobody may move another one over it.
int Hold(const char* pszFile, DWORD dwMilliseconds)
{
    const UniqueFile file(CreateFileA(pszFile, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
    {
        return 1;
    }
    SayReady();
    Sleep(dwMilliseconds);
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
        return Hold(apszArguments[2], static_cast<DWORD>(std::atoi(apszArguments[3])));
    }
    return 2;
}
