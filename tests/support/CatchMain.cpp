// Catch's own main, compiled once for all test programs.
#define CATCH_CONFIG_MAIN
#define DO_NOT_USE_WMAIN // the run-time library's start-up code calls main
#include <catch2/catch.hpp>
