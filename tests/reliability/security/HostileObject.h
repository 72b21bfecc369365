#pragma once

#include "common/Handles.h"

#include <string>
#include <vector>

namespace varnex::test
{

// An object of somebody else's under a name of the module's, there before the module is loaded.
class HostileObject
{
public:
    enum class Kind
    {
        Event, // with automatic reset
        Mutex,
        Semaphore,
        Timer,
        Section
    };
    static constexpr Kind KINDS[] = {Kind::Event, Kind::Mutex, Kind::Semaphore, Kind::Timer, Kind::Section};

    // pszAccess: who may use it, as a security descriptor's text; null for the system's default. Fails the test when it
    // cannot be made or is there already.
    HostileObject(Kind kind, const std::wstring& name, const char* pszAccess = nullptr);

    HANDLE Handle() const noexcept { return m_object.Get(); }

private:
    UniqueHandle m_object;
};

const char* TextOf(HostileObject::Kind kind);

// The names that the log's mutex of a process has which starts within the next seconds.
std::vector<std::wstring> LogMutexNames(int nSeconds);

} // namespace varnex::test
