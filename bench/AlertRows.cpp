#include "HeapPeak.h"
#include "Rows.h"

#include "floors/FloorAlerts.h"

#include "alerting/AlertFile.h"
#include "alerting/AlertStore.h"
#include "common/LocalTime.h"
#include "entry/ModuleState.h"
#include "support/TestFiles.h"
#include "support/TestText.h"

#include <varnex/Varnex.h>

#include <catch2/catch.hpp>

#include <array>

namespace varnex::bench
{

namespace
{

constexpr char FLOOR_DIRECTORY[] = "\\Floors\\";
constexpr int TAKEN = 16;

FILETIME Now()
{
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return now;
}

// A line of a disk alert raised just now.
std::string MakeLine()
{
    return "3;50;72;" + std::to_string(SecondsNow()) + "(2026-01-31 12:00:00);0 C:;\r\n";
}

std::string MakeLines(std::size_t nLines)
{
    std::string lines;
    const std::string line = MakeLine();
    lines.reserve(nLines * line.size());
    for (std::size_t i = 0; i < nLines; ++i)
    {
        lines += line;
    }
    return lines;
}

std::string CountText(std::size_t nLines)
{
    return std::to_string(nLines) + " stored";
}

struct Stores
{
    explicit Stores(Setting& setting)
        : floor(test::AnsiFromWide(setting.tree.BinPath()) + FLOOR_DIRECTORY),
          data(setting.tree.InBin(L"LocalAlt.dat")), floorData(setting.tree.BinPath() + L"\\Floors\\LocalAlt.dat")
    {
        CreateDirectoryW((setting.tree.BinPath() + L"\\Floors").c_str(), nullptr);
    }
    void Fill(const std::string& lines) const
    {
        test::WriteFileBytes(data, lines);
        test::WriteFileBytes(floorData, lines);
    }

    const FloorAlerts floor;
    const std::wstring data;
    const std::wstring floorData;
};

void MeasureStoring(Setting& setting, Results& results, const Stores& stores, std::size_t nLines)
{
    const std::string line = MakeLine();
    stores.Fill(MakeLines(nLines));
    const int nNow = AsHappenTime(SecondsNow());
    const FILETIME moment = Now();
    const auto cbLine = static_cast<DWORD>(line.size());
    int nResult = 0;
    Row row;
    row.operation = "alert stored";
    row.work = CountText(nLines);
    row.dWork = static_cast<double>(nLines);
    row.goal = {GoalKind::Ratio, 1.05};
    // Against an append that no torn line before it can swallow; and against a bare one.
    for (const bool bSafe : {true, false})
    {
        results.Add(Compare(
            row, setting.effort, 5, [&] { nResult |= SaveLocalAlertInfo(3, 50, 72, "0 C:", nNow, ""); },
            [&]
            {
                bSafe ? stores.floor.StoreSafely(g_hModule, moment, line.data(), cbLine)
                      : stores.floor.StoreBarely(line.data(), cbLine);
            }));
        row.work += ", bare floor";
        row.dWork = 0;
    }
    REQUIRE(nResult == 0);
}

class Fetch
{
public:
    Fetch()
    {
        for (std::size_t i = 0; i < m_texts.size(); ++i)
        {
            m_texts[i] = m_awszTexts[i].data();
        }
    }
    void Run()
    {
        m_nTaken =
            GetAlertRecord(m_types.data(), m_texts.data(), TEXT_CHARS, m_thresholds.data(), m_values.data(), TAKEN - 1);
    }
    int Taken() const { return m_nTaken; }

private:
    static constexpr unsigned TEXT_CHARS = 512;
    std::array<int, TAKEN> m_types{};
    std::array<int, TAKEN> m_thresholds{};
    std::array<int, TAKEN> m_values{};
    std::array<std::array<wchar_t, TEXT_CHARS>, TAKEN> m_awszTexts{};
    std::array<wchar_t*, TAKEN> m_texts{};
    int m_nTaken = -1;
};

void MeasureFetching(Setting& setting, Results& results, const Stores& stores, std::size_t nLines)
{
    const std::string lines = MakeLines(nLines);
    const unsigned nTaken = static_cast<unsigned>(nLines < TAKEN ? nLines : TAKEN);
    const auto cbTaken = static_cast<DWORD>(nTaken * MakeLine().size());
    const FILETIME moment = Now();
    static Fetch fetch;
    Row row;
    row.operation = "fetch 16 alerts";
    row.work = CountText(nLines);
    row.dWork = static_cast<double>(nLines);
    row.goal = {GoalKind::Ratio, 1.10};
    results.Add(Compare(
        row, setting.effort, 1, [] { fetch.Run(); }, [&] { stores.floor.Fetch(g_hModule, moment, cbTaken, nTaken); },
        [&] { stores.Fill(lines); }));
    REQUIRE(fetch.Taken() == static_cast<int>(nTaken));

    stores.Fill(lines);
    const HeapPeak peak;
    fetch.Run();
    // The reader, with its piece of the file, lies on the stack.
    results.Add(Figure{"memory of a fetch of 16 of " + std::to_string(nLines) + " alerts",
                       static_cast<double>(peak.Bytes() + sizeof(LineReader)) / 1024, "KiB", 64});
}

} // namespace

void MeasureAlerts(Setting& setting, Results& results)
{
    const Stores stores(setting);
    MeasureStoring(setting, results, stores, 10);
    MeasureStoring(setting, results, stores, 100'000);
    for (const std::size_t nLines : {10, 1'000, 100'000})
    {
        MeasureFetching(setting, results, stores, nLines);
    }
    DeleteFileW(stores.data.c_str());
}

} // namespace varnex::bench
