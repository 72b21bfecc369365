#pragma once

namespace varnex::host
{

// What varnexhost leaves to its caller; --help lists the same.
enum class ExitCode : int
{
    Done = 0,
    Failed = 1,
    WrongUsage = 2
};

} // namespace varnex::host
