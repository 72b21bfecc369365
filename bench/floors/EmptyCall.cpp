#include "EmptyCall.h"

namespace varnex::bench
{

void EmptyCall(const char*, ...) noexcept {}

} // namespace varnex::bench
