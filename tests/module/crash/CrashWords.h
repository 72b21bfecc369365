#pragma once

#include <cstdint>

namespace varnex::test
{

// What crash_host prints and the stand-in for the dump library writes, both as "word number" in a line each.

constexpr char CRASHING_THREAD[] = "thread";
constexpr char HEAP_ADDRESS[] = "heap";                     // of HEAP_SIZE times HEAP_FILL
constexpr char DATA_ADDRESS[] = "data";                     // of PROGRAM_DATA
constexpr char RETURNED_FILTER_OF[] = "returned-filter-of"; // a FilterOwner, once for each call
constexpr char PREVIOUS_FILTER_RAN[] = "previous-filter-ran";
constexpr char MODULE_FILTER_ANSWERED[] = "module-filter-answered";
constexpr char SURVIVED[] = "survived"; // its end, where it comes that far

constexpr char OWN_PROCESS[] = "own-process"; // what the dump was asked for, from here on
constexpr char DUMP_TYPE[] = "type";
constexpr char DUMPED_THREAD[] = "dumped-thread";
constexpr char EXCEPTION_CODE[] = "code";
constexpr char CLIENT_POINTERS[] = "client-pointers";
constexpr char EXTRAS[] = "extras"; // user streams and callbacks

enum class FilterOwner
{
    Host,
    Module,
    Another // the run-time library's, or none at all
};

constexpr char PROGRAM_DATA[] = "data of the host's program";
constexpr int HEAP_SIZE = 1000;
constexpr char HEAP_FILL = 'h';
constexpr std::uintptr_t BAD_ADDRESS = 0x1230; // no process has a page there
constexpr unsigned long RAISED_CODE = 0xE0001234;

constexpr int NO_MODULE_EXIT_CODE = 2;
constexpr int CHAINED_FILTER_EXIT_CODE = 77;

constexpr wchar_t FAIL_VARIABLE[] = L"VARNEX_TEST_DUMP_FAILS"; // set: the stand-in answers FALSE

} // namespace varnex::test
