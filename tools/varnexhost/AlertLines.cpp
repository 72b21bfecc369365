#include "AlertLines.h"

#include "AlertKinds.h"
#include "Text.h"

namespace varnex::host
{

std::wstring AlertLine(const FetchedAlert& alert)
{
    return Printable(alert.text) + L" | " + AlertKindName(alert.nType) + L" " + AlertAmount(alert.nType, alert.nValue) +
           L", threshold " + AlertAmount(alert.nType, alert.nThreshold);
}

} // namespace varnex::host
