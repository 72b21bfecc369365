#include "LogEntries.h"

namespace varnex::test
{

const std::vector<NarrowEntry>& NarrowEntries()
{
    static const std::vector<NarrowEntry> entries = {
        {1, &SPLogger::Level1A}, {2, &SPLogger::Level2A}, {3, &SPLogger::Level3A}, {4, &SPLogger::Level4A}};
    return entries;
}

const std::vector<WideEntry>& WideEntries()
{
    static const std::vector<WideEntry> entries = {
        {1, &SPLogger::Level1W}, {2, &SPLogger::Level2W}, {3, &SPLogger::Level3W}, {4, &SPLogger::Level4W}};
    return entries;
}

void LogThroughEveryEntry(SPLogger& logger)
{
    for (std::size_t i = 0; i < NarrowEntries().size(); ++i)
    {
        const NarrowEntry& narrow = NarrowEntries()[i];
        const WideEntry& wide = WideEntries()[i];
        (logger.*narrow.pfnLog)("line %d %s", narrow.nLevel, "narrow");
        (logger.*wide.pfnLog)(L"line %d %s", wide.nLevel, L"wide");
    }
}

} // namespace varnex::test
