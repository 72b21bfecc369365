#pragma once

#include "common/Handles.h"

namespace varnex::host
{

// A child process that keeps every processor busy, for demonstrations. It ends with this object and, by its job, with
// this process, however that ends.
class LoadProcess
{
public:
    // Throws HostError when the child cannot be started and tied to this process.
    LoadProcess();
    ~LoadProcess();
    LoadProcess(const LoadProcess&) = delete;
    LoadProcess& operator=(const LoadProcess&) = delete;

    bool Runs() const noexcept;

private:
    UniqueHandle m_job;
    UniqueHandle m_process;
};

} // namespace varnex::host
