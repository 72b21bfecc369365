#pragma once

#include "common/Com.h"

#include <wbemidl.h>

namespace varnex
{

// The Ethernet adapters that WMI knows, one after the other.
class AdapterQuery
{
public:
    // Connects and asks. The status of the step that failed, else one that is not negative. Once for a query, on a
    // thread that has initialised COM.
    HRESULT Open() noexcept;

    // The next adapter; null at the end and on failure. The status is negative for a failure. After Open has succeeded.
    HRESULT Next(ComPtr<IWbemClassObject>& adapter) noexcept;

private:
    HRESULT Connect() noexcept;

    // In this order, so that the enumerator is released first and the locator last.
    ComPtr<IWbemLocator> m_locator;
    ComPtr<IWbemServices> m_services;
    ComPtr<IEnumWbemClassObject> m_enumerator;
};

} // namespace varnex
