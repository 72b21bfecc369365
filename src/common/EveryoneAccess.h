#pragma once

#include <windows.h>

namespace varnex
{

// Security attributes with a null access list: every account may use the object. Not inheritable.
class EveryoneAccess
{
public:
    EveryoneAccess() noexcept
    {
        InitializeSecurityDescriptor(&m_descriptor, SECURITY_DESCRIPTOR_REVISION);
        SetSecurityDescriptorDacl(&m_descriptor, TRUE, nullptr, FALSE);
        m_attributes.nLength = sizeof m_attributes;
        m_attributes.lpSecurityDescriptor = &m_descriptor;
        m_attributes.bInheritHandle = FALSE;
    }
    EveryoneAccess(const EveryoneAccess&) = delete;
    EveryoneAccess& operator=(const EveryoneAccess&) = delete;

    // Valid as long as this object.
    SECURITY_ATTRIBUTES* Attributes() noexcept { return &m_attributes; }

private:
    SECURITY_DESCRIPTOR m_descriptor;
    SECURITY_ATTRIBUTES m_attributes;
};

} // namespace varnex
