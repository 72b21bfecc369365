#pragma once

#include "common/Com.h"

#include <wbemidl.h>

namespace varnex
{

// The Ethernet adapters that WMI knows, one after the other.
class AdapterQuery
{
public:
    // Connects and asks. The status of the step that failed, else one that is not negative.
    HRESULT Open() noexcept;

    // The next adapter; null at the end and on failure. The status is negative for a failure.
    HRESULT Next(ComPtr<IWbemClassObject>& adapter) noexcept;

private:
    ComPtr<IWbemServices> m_services;
    ComPtr<IEnumWbemClassObject> m_enumerator;
};

} // namespace varnex
