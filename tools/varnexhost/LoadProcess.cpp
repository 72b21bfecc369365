#include "LoadProcess.h"

#include "HostError.h"
#include "common/ModulePath.h"

namespace varnex::host
{

namespace
{

constexpr DWORD END_WAIT_MS = 5000;

[[noreturn]] void ThrowLoadError(DWORD dwError)
{
    throw HostError(L"The load process for --burn cannot be started: " + SystemErrorText(dwError));
}

UniqueHandle MakeKillingJob()
{
    UniqueHandle job(CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (!job || !SetInformationJobObject(job.Get(), JobObjectExtendedLimitInformation, &limits, sizeof(limits)))
    {
        ThrowLoadError(GetLastError());
    }
    return job;
}

std::wstring ProgramPath()
{
    wchar_t wszPath[PATH_CHARS];
    const DWORD cchPath = GetModuleFileNameW(nullptr, wszPath, PATH_CHARS);
    if (cchPath == 0 || cchPath >= PATH_CHARS)
    {
        ThrowLoadError(cchPath == 0 ? GetLastError() : ERROR_FILENAME_EXCED_RANGE);
    }
    return wszPath;
}

// Suspended, so that it is in the job before it runs; below normal priority, so that the machine stays usable.
PROCESS_INFORMATION CreateSuspended()
{
    const std::wstring program = ProgramPath();
    std::wstring commandLine = L"\"" + program + L"\" burn --seconds 0";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION child = {};
    if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                        CREATE_SUSPENDED | CREATE_NO_WINDOW | BELOW_NORMAL_PRIORITY_CLASS, nullptr, nullptr, &startup,
                        &child))
    {
        ThrowLoadError(GetLastError());
    }
    return child;
}

} // namespace

LoadProcess::LoadProcess() : m_job(MakeKillingJob())
{
    const PROCESS_INFORMATION child = CreateSuspended();
    m_process.Reset(child.hProcess);
    const UniqueHandle thread(child.hThread);
    if (!AssignProcessToJobObject(m_job.Get(), m_process.Get()) || ResumeThread(thread.Get()) == static_cast<DWORD>(-1))
    {
        const DWORD dwError = GetLastError();
        TerminateProcess(m_process.Get(), 1);
        ThrowLoadError(dwError);
    }
}

LoadProcess::~LoadProcess()
{
    m_job.Reset();
    // So that the load is over when this program says that it has ended.
    WaitForSingleObject(m_process.Get(), END_WAIT_MS);
}

bool LoadProcess::Runs() const noexcept
{
    return WaitForSingleObject(m_process.Get(), 0) == WAIT_TIMEOUT;
}

} // namespace varnex::host
