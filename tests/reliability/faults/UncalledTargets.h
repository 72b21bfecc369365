#pragma once

#include <string>
#include <vector>

namespace varnex::test
{

// A function that can fail and that a healthy life does not call: the loop cannot make it fail.
struct UncalledTarget
{
    std::string name;
    const char* pszReason; // and where it is made to fail instead
};

const std::vector<UncalledTarget>& UncalledTargets();

bool IsUncalled(const std::string& name);

} // namespace varnex::test
