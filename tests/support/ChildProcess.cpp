#include "support/ChildProcess.h"

#include "support/ScriptScope.h"
#include "support/TestFiles.h"
#include "support/TestText.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

constexpr DWORD KILLED_EXIT_CODE = 0xDEAD;

// One argument as the C library's start-up code takes the command line apart.
std::wstring Quoted(const std::wstring& argument)
{
    std::wstring quoted = L"\"";
    std::size_t nBackslashes = 0;
    for (const wchar_t chText : argument)
    {
        if (chText == L'"') // the backslashes before it and the quotation mark itself are escaped
        {
            quoted.append(nBackslashes + 1, L'\\');
        }
        nBackslashes = chText == L'\\' ? nBackslashes + 1 : 0;
        quoted += chText;
    }
    return quoted.append(nBackslashes, L'\\') + L"\"";
}

std::wstring CommandLine(const std::wstring& program, const std::vector<std::wstring>& arguments)
{
    std::wstring line = Quoted(program);
    for (const std::wstring& argument : arguments)
    {
        line += L" " + Quoted(argument);
    }
    return line;
}

std::map<std::wstring, std::wstring> OwnEnvironment()
{
    std::map<std::wstring, std::wstring> variables;
    wchar_t* pwszBlock = GetEnvironmentStringsW();
    for (const wchar_t* pwszEntry = pwszBlock; *pwszEntry != L'\0'; pwszEntry += wcslen(pwszEntry) + 1)
    {
        const std::wstring entry = pwszEntry;
        const std::size_t nEquals = entry.find(L'=', 1); // the drives' directories begin with one
        if (nEquals != std::wstring::npos)
        {
            variables[entry.substr(0, nEquals)] = entry.substr(nEquals + 1);
        }
    }
    FreeEnvironmentStringsW(pwszBlock);
    return variables;
}

std::wstring EnvironmentBlock(const std::map<std::wstring, std::wstring>& changes)
{
    std::map<std::wstring, std::wstring> variables = OwnEnvironment();
    for (const auto& [name, value] : changes)
    {
        variables[name] = value;
    }
    std::wstring block;
    for (const auto& [name, value] : variables)
    {
        block += name + L"=" + value;
        block += L'\0';
    }
    return block + L'\0';
}

UniqueFile CreateOutputFile(std::wstring& path)
{
    wchar_t wszTemp[MAX_PATH + 1];
    wchar_t wszFile[MAX_PATH + 1];
    REQUIRE(GetTempPathW(MAX_PATH + 1, wszTemp) != 0);
    REQUIRE(GetTempFileNameW(wszTemp, L"vnx", 0, wszFile) != 0);
    path = wszFile;
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
    UniqueFile file(CreateFileW(wszFile, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                &inheritable, CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY, nullptr));
    REQUIRE(file);
    return file;
}

PROCESS_INFORMATION StartProgram(std::wstring commandLine, const ChildOptions& options, HANDLE hOutput)
{
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = hOutput;
    startup.hStdError = hOutput;
    std::wstring environment = EnvironmentBlock(options.environment);
    PROCESS_INFORMATION process{};
    const BOOL bStarted = CreateProcessW(
        nullptr, commandLine.data(), nullptr, nullptr, TRUE, CREATE_UNICODE_ENVIRONMENT, environment.data(),
        options.directory.empty() ? nullptr : options.directory.c_str(), &startup, &process);
    if (bStarted == FALSE)
    {
        FAIL("Cannot start " << Utf8FromWide(commandLine) << ", error " << GetLastError());
    }
    return process;
}

} // namespace

ChildProcess::ChildProcess(const std::wstring& program, const ChildOptions& options)
{
    const UnscriptedScope unscripted;
    const UniqueFile output = CreateOutputFile(m_outputFile);
    const PROCESS_INFORMATION process = StartProgram(CommandLine(program, options.arguments), options, output.Get());
    const UniqueHandle thread(process.hThread);
    m_process.Reset(process.hProcess);
    m_dwId = process.dwProcessId;
}

ChildProcess ChildProcess::OfTestCase(const std::string& name, ChildOptions options)
{
    // Catch takes a comma, a bracket and a quotation mark in a name for its own unless they are escaped.
    std::wstring filter;
    for (const wchar_t chName : WideFromUtf8(name))
    {
        filter += wcschr(L",[\"\\", chName) != nullptr ? std::wstring(L"\\") + chName : std::wstring(1, chName);
    }
    options.arguments.insert(options.arguments.begin(), filter);
    return ChildProcess(OwnProgramPath(), options);
}

ChildProcess::~ChildProcess()
{
    const UnscriptedScope unscripted;
    if (m_process)
    {
        Kill();
    }
    if (!m_outputFile.empty())
    {
        DeleteFileW(m_outputFile.c_str());
    }
}

bool ChildProcess::WaitForEnd(DWORD dwMilliseconds) const
{
    const UnscriptedScope unscripted;
    return WaitForSingleObject(m_process.Get(), dwMilliseconds) == WAIT_OBJECT_0;
}

bool ChildProcess::Runs() const
{
    return !WaitForEnd(0);
}

DWORD ChildProcess::ExitCode() const
{
    const UnscriptedScope unscripted;
    REQUIRE_FALSE(Runs());
    DWORD dwExitCode = 0;
    REQUIRE(GetExitCodeProcess(m_process.Get(), &dwExitCode) != FALSE);
    return dwExitCode;
}

std::string ChildProcess::Output() const
{
    return ReadFileBytes(m_outputFile);
}

void ChildProcess::Kill()
{
    const UnscriptedScope unscripted;
    TerminateProcess(m_process.Get(), KILLED_EXIT_CODE);
    WaitForSingleObject(m_process.Get(), INFINITE);
}

} // namespace varnex::test
