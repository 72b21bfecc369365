#pragma once

#include "Sample.h"

#include <string>
#include <vector>

namespace varnex::winepdh
{

// A line of /proc/diskstats.
struct BlockDevice
{
    std::string name;
    LONGLONG llBytes; // read and written since the machine started
};

enum class BlockDeviceKind
{
    WholeDisk, // sda, vda, xvda, hda, nvme0n1, mmcblk0
    Other,     // partitions and what else has a medium
    Stacked,   // dm-0, md0: on top of other devices
    Memory     // loop0, ram0, zram0
};

BlockDeviceKind KindOfBlockDevice(const std::string& name);

std::vector<BlockDevice> ParseDiskStats(const std::string& text);

// The devices that stand for physical disks: the whole disks, or where a machine shows none (many containers and
// some virtual machines) the devices of the next kind that it has. Never two kinds, so that no byte counts twice.
std::vector<BlockDevice> SelectDisks(std::vector<BlockDevice> devices);

// "0 C:", "1 D:", ... and then "_Total". Part: bytes, whole: the given time.
InstanceSamples SampleDisks(const std::vector<BlockDevice>& disks, LONGLONG llTime);

} // namespace varnex::winepdh
