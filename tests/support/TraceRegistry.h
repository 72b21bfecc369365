#pragma once

#include "support/ImportRedirector.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace varnex::test
{

// Stands in for the two keys of the machine hive that the trace switch reads:
//
//     TraceRegistry registry(redirector);
//     registry.SetSwitch(1); // at first there is no trace key
class TraceRegistry
{
public:
    explicit TraceRegistry(ImportRedirector& redirector);
    ~TraceRegistry();
    TraceRegistry(const TraceRegistry&) = delete;
    TraceRegistry& operator=(const TraceRegistry&) = delete;

    void SetSwitch(DWORD dwSwitch);
    // The key is there and the value is not.
    void RemoveSwitch();
    void RemoveKey();
    // What the directory of 32-bit programs reads; nothing: there is no such value. At first "C:\Programs".
    void SetProgramsDirectory(const std::optional<std::wstring>& directory);
    void RemoveWindowsKey();

    struct Opened
    {
        std::wstring key;
        REGSAM nAccess;
    };
    std::vector<Opened> OpenedKeys() const;
    void ForgetOpenedKeys();
    // Keys that were opened and not closed.
    long LiveKeys() const;
    // Calls with other arguments than they should have.
    int WrongCalls() const;

private:
    struct State;
    std::shared_ptr<State> m_state;
    RestoredImports m_imports;
};

} // namespace varnex::test
