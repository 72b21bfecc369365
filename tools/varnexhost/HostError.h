#pragma once

#include "Text.h"

#include <stdexcept>
#include <string>

namespace varnex::host
{

// The command cannot go on. The text is for the operator, in whole sentences; what() is UTF-8.
class HostError : public std::runtime_error
{
public:
    explicit HostError(const std::wstring& text) : std::runtime_error(ToUtf8(text)) {}
};

} // namespace varnex::host
