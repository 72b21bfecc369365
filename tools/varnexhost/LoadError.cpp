#include "LoadError.h"

#include "Text.h"
#include "common/Com.h"

namespace varnex::host
{

namespace
{

// The module refuses to be loaded when it cannot initialise COM on the loading thread, which is this one: try the same.
std::wstring RefusalText(const ModuleFiles& files)
{
    const ThreadApartment apartment(S_OK);
    if (!apartment.Usable())
    {
        return L"COM is not available to this process (" + HexText(static_cast<DWORD>(apartment.Result())) +
               L"), and the module needs it.";
    }
    ThreadApartment::Leave();
    return L"The module itself refused. COM is available here; its log may tell more: " + files.log.wstring();
}

std::wstring AdviceFor(const ModuleFiles& files, DWORD dwError)
{
    switch (dwError)
    {
    case ERROR_MOD_NOT_FOUND:
        return L"A DLL that it needs is missing on this machine.";
    case ERROR_PROC_NOT_FOUND:
        return L"A DLL that it needs is there, but of another version.";
    case ERROR_BAD_EXE_FORMAT:
        return L"The file is damaged, or it is not a 64-bit DLL.";
    case ERROR_ACCESS_DENIED:
        return L"This account may not read the file, or a protection program holds it back.";
    case ERROR_DLL_INIT_FAILED:
        return RefusalText(files);
    default:
        return L"Nothing more is known.";
    }
}

// Some of the system's sentences name the file by a placeholder.
std::wstring NameFile(std::wstring sentence, const std::filesystem::path& file)
{
    const std::size_t nPlace = sentence.find(L"%1");
    return nPlace == std::wstring::npos ? sentence : sentence.replace(nPlace, 2, file.filename().wstring());
}

} // namespace

std::wstring LoadErrorText(const ModuleFiles& files, DWORD dwError)
{
    return files.module.wstring() + L" cannot be loaded: " + NameFile(SystemErrorText(dwError), files.module) + L"\n" +
           AdviceFor(files, dwError);
}

} // namespace varnex::host
