#pragma once

namespace varnex
{

// What a monitor watches; also what GetAlertRecord reports.
enum AlertType : int
{
    ALERT_TYPE_CPU = 1,
    ALERT_TYPE_MEMORY = 2,
    ALERT_TYPE_DISK = 3,
    ALERT_TYPE_NETWORK = 4,
    ALERT_TYPE_PAGING_FILE = 5, // only in what GetAlertRecord returns: a memory alert named "PF"
};

// One alert, zero-filled when it is made.
struct VARNEX_ALERT_BUF
{
    int AlertType;
    int Threshold;          // percent, or MB/s for a disk, in force when the alert was raised
    int Value;              // the average that reached it, in the same unit
    int HappenTime;         // seconds since 1970-01-01 UTC; 0 is no valid time
    char ResourceName[384]; // ANSI: empty (CPU), "PH" or "PF" (memory), the disk's or the adapter's name
    char Extra[32];         // ANSI: a trailing field of the stored line; the module writes it empty
};

// The resource names of the two memory alerts.
constexpr char PHYSICAL_MEMORY_NAME[] = "PH";
constexpr char PAGING_FILE_NAME[] = "PF";

} // namespace varnex
