#include "Rows.h"

#include "support/TestFiles.h"

#include <catch2/catch.hpp>

namespace varnex::bench
{

namespace
{

void LoadAndUnload(const std::wstring& path)
{
    const HMODULE hModule = LoadLibraryW(path.c_str());
    if (hModule != nullptr)
    {
        FreeLibrary(hModule);
    }
}

} // namespace

void MeasureEntry(Setting& setting, Results& results)
{
    const ComScope com;                                            // so that neither side starts COM
    const std::wstring module = setting.tree.InBin(L"Loaded.dll"); // the tree's own is mapped already
    const std::wstring floor = setting.tree.InBin(L"FloorDl.dll");
    REQUIRE(CopyFileW(setting.tree.ModulePath().c_str(), module.c_str(), FALSE));
    REQUIRE(CopyFileW((test::ProgramDirectory() + L"\\FloorModule.dll").c_str(), floor.c_str(), FALSE));
    const HMODULE hModule = LoadLibraryW(module.c_str());
    REQUIRE(hModule != nullptr);
    REQUIRE(FreeLibrary(hModule));
    REQUIRE(GetModuleHandleW(L"Loaded.dll") == nullptr); // really gone, or the next load would do nothing
    Row row;
    row.operation = "load and unload";
    row.work = "COM in use already";
    row.goal = {GoalKind::Ratio, 1.10};
    results.Add(Compare(
        row, setting.effort, 1, [&] { LoadAndUnload(module); }, [&] { LoadAndUnload(floor); }));
}

} // namespace varnex::bench
