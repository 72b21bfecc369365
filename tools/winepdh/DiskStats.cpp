#include "DiskStats.h"

#include <algorithm>
#include <optional>
#include <regex>
#include <sstream>

namespace varnex::winepdh
{

namespace
{

// The kernel counts in these, whatever the device's own sectors are.
constexpr LONGLONG llSectorBytes = 512;

bool StartsWith(const std::string& text, const char* pszPrefix)
{
    return text.rfind(pszPrefix, 0) == 0;
}

bool IsWholeDisk(const std::string& name)
{
    static const std::regex wholeDisk("(sd|vd|xvd|hd)[a-z]+|nvme[0-9]+n[0-9]+|mmcblk[0-9]+");
    return std::regex_match(name, wholeDisk);
}

std::optional<BlockDevice> ParseLine(const std::string& line)
{
    std::istringstream fields(line);
    LONGLONG llIgnored = 0;
    BlockDevice device{};
    LONGLONG llSectorsRead = 0;
    LONGLONG llSectorsWritten = 0;
    fields >> llIgnored >> llIgnored >> device.name;   // major and minor number
    fields >> llIgnored >> llIgnored >> llSectorsRead; // reads done, reads merged
    fields >> llIgnored >> llIgnored >> llIgnored;     // milliseconds of reading, writes done, writes merged
    if (!(fields >> llSectorsWritten))
    {
        return std::nullopt;
    }
    device.llBytes = (llSectorsRead + llSectorsWritten) * llSectorBytes;
    return device;
}

std::wstring DiskInstanceName(std::size_t nDisk)
{
    std::wstring name = std::to_wstring(nDisk);
    constexpr std::size_t nLetters = L'Z' - L'C' + 1;
    // Windows names a disk that has no drive letter by its number alone.
    if (nDisk < nLetters)
    {
        name += L' ';
        name += static_cast<wchar_t>(L'C' + nDisk);
        name += L':';
    }
    return name;
}

} // namespace

BlockDeviceKind KindOfBlockDevice(const std::string& name)
{
    if (IsWholeDisk(name))
    {
        return BlockDeviceKind::WholeDisk;
    }
    if (StartsWith(name, "dm-") || StartsWith(name, "md"))
    {
        return BlockDeviceKind::Stacked;
    }
    if (StartsWith(name, "loop") || StartsWith(name, "ram") || StartsWith(name, "zram"))
    {
        return BlockDeviceKind::Memory;
    }
    return BlockDeviceKind::Other;
}

std::vector<BlockDevice> ParseDiskStats(const std::string& text)
{
    std::vector<BlockDevice> devices;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
    {
        if (auto device = ParseLine(line))
        {
            devices.push_back(std::move(*device));
        }
    }
    return devices;
}

std::vector<BlockDevice> SelectDisks(std::vector<BlockDevice> devices)
{
    std::optional<BlockDeviceKind> best;
    for (const BlockDevice& device : devices)
    {
        const BlockDeviceKind kind = KindOfBlockDevice(device.name);
        best = best ? (std::min)(*best, kind) : kind;
    }
    devices.erase(std::remove_if(devices.begin(), devices.end(),
                                 [&best](const BlockDevice& device) { return KindOfBlockDevice(device.name) != best; }),
                  devices.end());
    return devices;
}

InstanceSamples SampleDisks(const std::vector<BlockDevice>& disks, LONGLONG llTime)
{
    InstanceSamples samples;
    LONGLONG llTotal = 0;
    for (const BlockDevice& disk : disks)
    {
        samples.push_back({DiskInstanceName(samples.size()), {disk.llBytes, llTime}});
        llTotal += disk.llBytes;
    }
    samples.push_back({L"_Total", {llTotal, llTime}});
    return samples;
}

} // namespace varnex::winepdh
