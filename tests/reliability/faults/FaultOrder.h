#pragma once

#include "FaultTarget.h"

#include <windows.h>

#include <string>
#include <vector>

namespace varnex::test
{

// A fault point: this call of this target fails, alone or with all later ones.
struct FaultPoint
{
    std::string target;
    FailMode mode = FailMode::Once;
    ULONGLONG ullCall = 0;

    // "CreateFileA once 3"
    std::string Text() const;
    static FaultPoint OfText(const std::string& text);
};

// What a child process is to do: all points of these targets in one mode, or as many of each target as said (0: all; 1:
// the one in the middle), behind the last one that another child came to.
struct FaultOrder
{
    std::vector<std::string> targets;
    FailMode mode = FailMode::Once;
    ULONGLONG ullPoints = 0;
    int nLogLevel = 1;
    FaultPoint last;      // of the first target; call 0: from the beginning
    std::string sabotage; // what the child is to do wrong, to see it noticed

    // By way of the environment.
    std::wstring Text() const;
    static FaultOrder OfThisProcess();
};

constexpr wchar_t FAULT_ORDER_VARIABLE[] = L"VARNEX_FAULT_ORDER";

// The words by which a child tells how far it is; each stands at a line's begin.
constexpr char POINT_BEGINS[] = "POINT ";
constexpr char POINT_ENDS[] = "DONE ";
constexpr char ORDER_ENDS[] = "ORDER DONE";

} // namespace varnex::test
