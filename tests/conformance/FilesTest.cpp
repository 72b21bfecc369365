// Files, their sharing, their moves, and the paths of modules.

#include "Codes.h"
#include "Conformance.h"

#include "common/Handles.h"
#include "support/ModulePathScript.h"
#include "support/ModuleTree.h"
#include "support/ScriptedExports.h"
#include "support/TestFiles.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

constexpr DWORD SHARE_NONE = 0;
constexpr DWORD SHARE_ALL = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD SHARE_ALL_BUT_DELETE = FILE_SHARE_READ | FILE_SHARE_WRITE;

struct Folder
{
    std::wstring Path(const wchar_t* pwszName) const { return tree.Root() + L"\\" + pwszName; }
    std::wstring Make(const wchar_t* pwszName, const std::string& bytes = "old") const
    {
        WriteFileBytes(Path(pwszName), bytes);
        return Path(pwszName);
    }
    ModuleTree tree;
};

HANDLE Open(const std::wstring& path, DWORD dwAccess, DWORD dwShare = SHARE_ALL, DWORD dwCreation = OPEN_EXISTING)
{
    return CreateFileW(path.c_str(), dwAccess, dwShare, nullptr, dwCreation, FILE_ATTRIBUTE_NORMAL, nullptr);
}

void Append(HANDLE hFile, const std::string& text)
{
    DWORD cbWritten = 0;
    WriteFile(hFile, text.data(), static_cast<DWORD>(text.size()), &cbWritten, nullptr);
}

// Which of the two errors a file in use gives is not documented; the module takes them alike.
std::string MoveOutcome(const std::wstring& from, const std::wstring& to)
{
    const BOOL bMoved = MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING);
    const DWORD dwError = GetLastError();
    if (bMoved)
    {
        return "moved";
    }
    return dwError == ERROR_ACCESS_DENIED || dwError == ERROR_SHARING_VIOLATION ? "in use" : ErrorName(dwError);
}

// A move onto a file that somebody has open for reading, shared in that way.
std::string MoveOntoOpen(DWORD dwShare)
{
    const Folder folder;
    const std::wstring from = folder.Make(L"new", "new");
    const std::wstring to = folder.Make(L"old");
    const UniqueFile held(Open(to, GENERIC_READ, dwShare));
    return MoveOutcome(from, to);
}

// A move of a file that somebody has open for reading, shared in that way.
std::string MoveOpen(DWORD dwShare)
{
    const Folder folder;
    const std::wstring from = folder.Make(L"new", "new");
    const UniqueFile held(Open(from, GENERIC_READ, dwShare));
    return MoveOutcome(from, folder.Path(L"moved"));
}

struct ScriptedPath
{
    explicit ScriptedPath(ImportRedirector& redirector) : path(redirector, L"C:\\Some\\Folder\\Varnex.dll") {}
    ModulePathScript path;
};

Fakes PathFakes()
{
    return {FakeOf<ScriptedPath>("module path script")};
}

// The path of this program into a buffer that is so much larger than its characters.
std::string AskForPath(int nMore)
{
    wchar_t wszWhole[32768];
    const DWORD cchWhole = GetModuleFileNameW(nullptr, wszWhole, 32768);
    const DWORD cchBuffer = cchWhole + static_cast<DWORD>(nMore);
    std::wstring text(cchBuffer + 1, L'#');
    SetLastError(77);
    const DWORD cchText = GetModuleFileNameW(nullptr, text.data(), cchBuffer);
    const DWORD dwError = GetLastError();
    const bool bTerminated = text[cchText == cchBuffer ? cchText - 1 : cchText] == L'\0';
    return std::string(cchText == cchBuffer  ? "the buffer's size"
                       : cchText == cchWhole ? "its length"
                                             : "0") +
           (bTerminated ? ", terminated" : ", not terminated") +
           (dwError == ERROR_INSUFFICIENT_BUFFER ? ", ERROR_INSUFFICIENT_BUFFER" : "");
}

const std::string CREATE_PAGE = "windows/win32/api/fileapi/nf-fileapi-createfilew";
const std::string SHARING_PAGE = "windows/win32/fileio/creating-and-opening-files";
const std::string MOVE_PAGE = "windows/win32/api/winbase/nf-winbase-movefileexw";
const std::string MOVING_PAGE = "windows/win32/fileio/moving-and-replacing-files";
const std::string READ_PAGE = "windows/win32/api/fileapi/nf-fileapi-readfile";
const std::string POINTER_PAGE = "windows/win32/api/fileapi/nf-fileapi-setfilepointerex";
const std::string DELETE_PAGE = "windows/win32/api/fileapi/nf-fileapi-deletefilew";
const std::string PATH_PAGE = "windows/win32/api/libloaderapi/nf-libloaderapi-getmodulefilenamew";
const std::string PROCEDURE_PAGE = "windows/win32/api/libloaderapi/nf-libloaderapi-getprocaddress";

} // namespace

// --- opening --------------------------------------------------------------------------------------------------------

TEST_CASE("files: a file that is not there is told from a directory that is not there")
{
    Verify(Documented("no handle, ERROR_FILE_NOT_FOUND; no handle, ERROR_PATH_NOT_FOUND", CREATE_PAGE),
           []
           {
               const Folder folder;
               const std::string file = HandleOutcome(Open(folder.Path(L"none"), GENERIC_READ));
               return file + "; " + HandleOutcome(Open(folder.Path(L"no\\none"), GENERIC_READ));
           });
}

TEST_CASE("files: opening always tells whether the file was there")
{
    Verify(Documented("a handle; a handle, ERROR_ALREADY_EXISTS", CREATE_PAGE),
           []
           {
               const Folder folder;
               std::string answer;
               for (int i = 0; i < 2; ++i)
               {
                   const UniqueFile file(Open(folder.Path(L"file"), FILE_APPEND_DATA, SHARE_ALL, OPEN_ALWAYS));
                   answer += (i == 0 ? "" : "; ") + HandleOutcome(file.Get());
               }
               return answer;
           });
}

TEST_CASE("files: creating always empties a file that was there, and says so")
{
    Verify(Documented("a handle, ERROR_ALREADY_EXISTS; []", CREATE_PAGE),
           []
           {
               const Folder folder;
               const std::wstring path = folder.Make(L"file");
               UniqueFile file(Open(path, GENERIC_WRITE, SHARE_ALL, CREATE_ALWAYS));
               const std::string answer = HandleOutcome(file.Get());
               file.Reset();
               return answer + "; [" + ReadFileBytes(path) + "]";
           });
}

TEST_CASE("files: a file that its opener shares with nobody is not opened by anybody")
{
    Verify(Documented("no handle, ERROR_SHARING_VIOLATION", SHARING_PAGE),
           []
           {
               const Folder folder;
               const std::wstring path = folder.Make(L"file");
               const UniqueFile held(Open(path, GENERIC_READ, SHARE_NONE));
               return HandleOutcome(UniqueFile(Open(path, GENERIC_READ)).Get());
           });
}

TEST_CASE("files: a file that its opener only lets be read is not opened for writing")
{
    Verify(Documented("no handle, ERROR_SHARING_VIOLATION; a handle", SHARING_PAGE),
           []
           {
               const Folder folder;
               const std::wstring path = folder.Make(L"file");
               const UniqueFile held(Open(path, GENERIC_READ, FILE_SHARE_READ));
               const std::string write = HandleOutcome(UniqueFile(Open(path, GENERIC_WRITE)).Get());
               SetLastError(ERROR_SUCCESS);
               return write + "; " + HandleOutcome(UniqueFile(Open(path, GENERIC_READ)).Get());
           });
}

TEST_CASE("files: a file that somebody writes is not opened by one who lets nobody write")
{
    Verify(Documented("no handle, ERROR_SHARING_VIOLATION", SHARING_PAGE),
           []
           {
               const Folder folder;
               const std::wstring path = folder.Make(L"file");
               const UniqueFile writer(Open(path, GENERIC_WRITE, SHARE_ALL));
               return HandleOutcome(UniqueFile(Open(path, GENERIC_READ, FILE_SHARE_READ)).Get());
           });
}

TEST_CASE("files: a read-only file is not opened for writing")
{
    Verify(Documented("no handle, ERROR_ACCESS_DENIED", CREATE_PAGE).OnWineOfRoot("a handle"),
           []
           {
               const Folder folder;
               const std::wstring path = folder.Make(L"file");
               SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY);
               const std::string answer = HandleOutcome(UniqueFile(Open(path, GENERIC_WRITE)).Get());
               SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
               return answer;
           });
}

TEST_CASE("files: a directory is not opened as a file")
{
    Verify(Documented("no handle, ERROR_ACCESS_DENIED", "windows/win32/fileio/obtaining-a-handle-to-a-directory"),
           []
           {
               const Folder folder;
               return HandleOutcome(Open(folder.tree.BinPath(), GENERIC_WRITE, SHARE_ALL, OPEN_ALWAYS));
           });
}

TEST_CASE("files: a directory that is there is not made")
{
    Verify(Documented("FALSE, ERROR_ALREADY_EXISTS", "windows/win32/api/fileapi/nf-fileapi-createdirectoryw"),
           []
           {
               const Folder folder;
               return Outcome(CreateDirectoryW(folder.tree.BinPath().c_str(), nullptr));
           });
}

TEST_CASE("files: a path of more than 259 characters is refused")
{
    Verify(Documented("no handle, ERROR_PATH_NOT_FOUND", "windows/win32/fileio/maximum-file-path-limitation")
               .OnWine("a handle", "unit_diag: a failing call costs one line, and neither a handle nor the caller's "
                                   "last error nor the next line"),
           []
           {
               const Folder folder;
               std::wstring path = folder.tree.Root();
               path += L"\\" + std::wstring(270 - path.size(), L'x');
               return HandleOutcome(UniqueFile(Open(path, GENERIC_WRITE, SHARE_ALL, CREATE_ALWAYS)).Get());
           });
}

TEST_CASE("files: a percent sign in a path is part of the name")
{
    Verify(Documented("part of the name", "windows/win32/fileio/naming-a-file"),
           []
           {
               const Folder folder;
               folder.Make(L"P%41");
               return std::string(FileExists(folder.Path(L"P%41")) && !FileExists(folder.Path(L"PA"))
                                      ? "part of the name"
                                      : "something else");
           });
}

TEST_CASE("files: names are found without regard to case")
{
    Verify(Documented("found", "windows/win32/fileio/naming-a-file"),
           []
           {
               const Folder folder;
               folder.Make(L"file");
               return std::string(FileExists(folder.Path(L"FILE")) ? "found" : "not found");
           });
}

// --- reading and writing --------------------------------------------------------------------------------------------

TEST_CASE("files: one who may only append writes at the end, wherever the pointer stands")
{
    Verify(Documented("oldnew", "windows/win32/fileio/file-access-rights-constants"),
           []
           {
               const Folder folder;
               const std::wstring path = folder.Make(L"file");
               UniqueFile file(Open(path, FILE_APPEND_DATA | FILE_READ_DATA));
               SetFilePointerEx(file.Get(), LARGE_INTEGER{}, nullptr, FILE_BEGIN);
               Append(file.Get(), "new");
               file.Reset();
               return ReadFileBytes(path);
           });
}

TEST_CASE("files: what two append never lies over each other")
{
    Verify(Documented("1111222211112222", "windows/win32/fileio/file-access-rights-constants"),
           []
           {
               const Folder folder;
               const std::wstring path = folder.Make(L"file", "");
               UniqueFile first(Open(path, FILE_APPEND_DATA));
               UniqueFile second(Open(path, FILE_APPEND_DATA));
               for (int i = 0; i < 2; ++i)
               {
                   Append(first.Get(), "1111");
                   Append(second.Get(), "2222");
               }
               first.Reset();
               second.Reset();
               return ReadFileBytes(path);
           });
}

TEST_CASE("files: the end of a file reads as nothing, successfully")
{
    Verify(Documented("TRUE, 0 bytes", READ_PAGE),
           []
           {
               const Folder folder;
               const UniqueFile file(Open(folder.Make(L"file", ""), GENERIC_READ));
               char ch = 0;
               DWORD cbRead = 99;
               const std::string answer = Outcome(ReadFile(file.Get(), &ch, 1, &cbRead, nullptr));
               return answer + ", " + std::to_string(cbRead) + " bytes";
           });
}

TEST_CASE("files: a pointer before the beginning of a file is told as such")
{
    Verify(Documented("FALSE, ERROR_NEGATIVE_SEEK", POINTER_PAGE),
           []
           {
               const Folder folder;
               const UniqueFile file(Open(folder.Make(L"file", ""), GENERIC_READ));
               LARGE_INTEGER nBack;
               nBack.QuadPart = -1;
               return Outcome(SetFilePointerEx(file.Get(), nBack, nullptr, FILE_END));
           });
}

TEST_CASE("files: a file is cut where its pointer stands")
{
    Verify(Documented("TRUE, [o]", "windows/win32/api/fileapi/nf-fileapi-setendoffile"),
           []
           {
               const Folder folder;
               const std::wstring path = folder.Make(L"file");
               UniqueFile file(Open(path, GENERIC_READ | GENERIC_WRITE));
               LARGE_INTEGER nPlace;
               nPlace.QuadPart = 1;
               SetFilePointerEx(file.Get(), nPlace, nullptr, FILE_BEGIN);
               const std::string answer = Outcome(SetEndOfFile(file.Get()));
               file.Reset();
               return answer + ", [" + ReadFileBytes(path) + "]";
           });
}

TEST_CASE("files: a file that is only read is not flushed")
{
    Verify(Documented("FALSE, ERROR_ACCESS_DENIED", "windows/win32/api/fileapi/nf-fileapi-flushfilebuffers"),
           []
           {
               const Folder folder;
               const UniqueFile file(Open(folder.Make(L"file"), GENERIC_READ));
               return Outcome(FlushFileBuffers(file.Get()));
           });
}

TEST_CASE("files: a place that another opener has locked is not written")
{
    Verify(Documented("FALSE, ERROR_LOCK_VIOLATION", "windows/win32/api/fileapi/nf-fileapi-lockfile").OnWine("TRUE"),
           []
           {
               const Folder folder;
               const std::wstring path = folder.Make(L"file");
               const UniqueFile locker(Open(path, GENERIC_READ | GENERIC_WRITE));
               LockFile(locker.Get(), 0, 0, 100, 0);
               const UniqueFile writer(Open(path, GENERIC_WRITE));
               DWORD cbWritten = 0;
               return Outcome(WriteFile(writer.Get(), "x", 1, &cbWritten, nullptr));
           });
}

TEST_CASE("files: the size of a file that another opener writes is told as it stands")
{
    Verify(Unknown("windows/win32/api/fileapi/nf-fileapi-getfileattributesexw").OnWine("5 of 5"),
           []
           {
               const Folder folder;
               const std::wstring path = folder.Make(L"file", "");
               const UniqueFile writer(Open(path, FILE_APPEND_DATA));
               Append(writer.Get(), "12345");
               WIN32_FILE_ATTRIBUTE_DATA attributes{};
               GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &attributes);
               return std::to_string(attributes.nFileSizeLow) + " of 5";
           });
}

// --- moving and deleting --------------------------------------------------------------------------------------------

TEST_CASE("files: a move replaces a file when it is told to, and not otherwise")
{
    Verify(Documented("FALSE, ERROR_ALREADY_EXISTS; TRUE; new", MOVE_PAGE),
           []
           {
               const Folder folder;
               const std::wstring from = folder.Make(L"new", "new");
               const std::wstring to = folder.Make(L"old");
               std::string answer = Outcome(MoveFileExW(from.c_str(), to.c_str(), 0));
               answer += "; " + Outcome(MoveFileExW(from.c_str(), to.c_str(),
                                                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH));
               return answer + "; " + ReadFileBytes(to);
           });
}

TEST_CASE("files: a file that is not there is not moved")
{
    Verify(Documented("FALSE, ERROR_FILE_NOT_FOUND", MOVE_PAGE),
           []
           {
               const Folder folder;
               return Outcome(MoveFileExW(folder.Path(L"none").c_str(), folder.Path(L"other").c_str(), 0));
           });
}

TEST_CASE("files: a file that is open without sharing is not replaced by a move")
{
    Verify(Documented("in use", MOVING_PAGE), [] { return MoveOntoOpen(SHARE_NONE); });
}

TEST_CASE("files: a file that its opener lets be read is not replaced by a move")
{
    Verify(Documented("in use", MOVING_PAGE), [] { return MoveOntoOpen(FILE_SHARE_READ); });
}

TEST_CASE("files: a file that its opener lets be read and written is not replaced by a move")
{
    Verify(Documented("in use", MOVING_PAGE), [] { return MoveOntoOpen(SHARE_ALL_BUT_DELETE); });
}

// The page says that a file must be closed before it is moved; newer systems replace it when its deletion is shared.
TEST_CASE("files: a file that its opener lets be deleted is replaced by a move")
{
    Verify(Unknown(MOVING_PAGE).OnWine("in use", "unit_config: a replacing that meets an opener is tried again"),
           [] { return MoveOntoOpen(SHARE_ALL); });
}

TEST_CASE("files: a file that is open without sharing is not moved")
{
    Verify(Documented("in use", CREATE_PAGE), [] { return MoveOpen(SHARE_NONE); });
}

TEST_CASE("files: a file that its opener lets be read is not moved")
{
    Verify(Documented("in use", CREATE_PAGE), [] { return MoveOpen(FILE_SHARE_READ); });
}

TEST_CASE("files: a file that its opener lets be read and written is not moved")
{
    Verify(Documented("in use", CREATE_PAGE), [] { return MoveOpen(SHARE_ALL_BUT_DELETE); });
}

TEST_CASE("files: a file that its opener lets be deleted is moved")
{
    Verify(Documented("moved", CREATE_PAGE), [] { return MoveOpen(SHARE_ALL); });
}

TEST_CASE("files: a read-only file is not replaced by a move")
{
    Verify(Unknown(MOVE_PAGE).OnWine("TRUE", "unit_config: a replacing that fails for another reason is neither tried "
                                             "again nor followed by a save in place"),
           []
           {
               const Folder folder;
               const std::wstring from = folder.Make(L"new", "new");
               const std::wstring to = folder.Make(L"old");
               SetFileAttributesW(to.c_str(), FILE_ATTRIBUTE_READONLY);
               const std::string answer = Outcome(MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING));
               SetFileAttributesW(to.c_str(), FILE_ATTRIBUTE_NORMAL);
               return answer;
           });
}

TEST_CASE("files: a directory is not replaced by a move")
{
    Verify(Documented("FALSE, ERROR_ACCESS_DENIED", MOVE_PAGE),
           []
           {
               const Folder folder;
               const std::wstring from = folder.Make(L"new", "new");
               return Outcome(MoveFileExW(from.c_str(), folder.tree.BinPath().c_str(), MOVEFILE_REPLACE_EXISTING));
           });
}

TEST_CASE("files: a file that is open is deleted only when its deletion is shared")
{
    Verify(Documented("FALSE, ERROR_SHARING_VIOLATION; TRUE", DELETE_PAGE),
           []
           {
               const Folder folder;
               const std::wstring path = folder.Make(L"file");
               std::string answer;
               {
                   const UniqueFile held(Open(path, GENERIC_READ, SHARE_ALL_BUT_DELETE));
                   answer = Outcome(DeleteFileW(path.c_str()));
               }
               const UniqueFile held(Open(path, GENERIC_READ, SHARE_ALL));
               return answer + "; " + Outcome(DeleteFileW(path.c_str()));
           });
}

TEST_CASE("files: a read-only file is not deleted")
{
    Verify(Documented("FALSE, ERROR_ACCESS_DENIED", DELETE_PAGE),
           []
           {
               const Folder folder;
               const std::wstring path = folder.Make(L"file");
               SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY);
               const std::string answer = Outcome(DeleteFileW(path.c_str()));
               SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
               return answer;
           });
}

TEST_CASE("files: a file that is not there is not deleted")
{
    Verify(Documented("FALSE, ERROR_FILE_NOT_FOUND", DELETE_PAGE),
           []
           {
               const Folder folder;
               return Outcome(DeleteFileW(folder.Path(L"none").c_str()));
           });
}

// --- modules --------------------------------------------------------------------------------------------------------

TEST_CASE("files: a module's path that fits with its terminator is told by its length")
{
    Verify(
        Documented("its length, terminated", PATH_PAGE), [] { return AskForPath(1); }, PathFakes());
}

TEST_CASE("files: a module's path without room for its terminator is cut, terminated and told as such")
{
    Verify(
        Documented("the buffer's size, terminated, ERROR_INSUFFICIENT_BUFFER", PATH_PAGE)
            .OnWine("the buffer's size, not terminated, ERROR_INSUFFICIENT_BUFFER"),
        [] { return AskForPath(0); }, PathFakes());
}

TEST_CASE("files: a module's path that does not fit is cut, terminated and told as such")
{
    Verify(
        Documented("the buffer's size, terminated, ERROR_INSUFFICIENT_BUFFER", PATH_PAGE)
            .OnWine("the buffer's size, not terminated, ERROR_INSUFFICIENT_BUFFER"),
        [] { return AskForPath(-5); }, PathFakes());
}

TEST_CASE("files: a module's path without any room is told as too long")
{
    Verify(
        Unknown(PATH_PAGE).OnWine("0, ERROR_INSUFFICIENT_BUFFER"),
        []
        {
            wchar_t wch = L'#';
            SetLastError(77);
            const DWORD cchText = GetModuleFileNameW(nullptr, &wch, 0);
            const DWORD dwError = GetLastError();
            return std::to_string(cchText) + ", " + ErrorName(dwError);
        },
        PathFakes());
}

TEST_CASE("files: the narrow path of a module is cut and told as such, too")
{
    Verify(
        Documented("5, terminated, ERROR_INSUFFICIENT_BUFFER", PATH_PAGE)
            .OnWine("5, not terminated, ERROR_INSUFFICIENT_BUFFER"),
        []
        {
            char szPath[] = "########";
            SetLastError(77);
            const DWORD cchText = GetModuleFileNameA(nullptr, szPath, 5);
            const DWORD dwError = GetLastError();
            return std::to_string(cchText) + (szPath[4] == '\0' ? ", terminated" : ", not terminated") + ", " +
                   ErrorName(dwError);
        },
        PathFakes());
}

TEST_CASE("files: a library that is not there is not loaded")
{
    Verify(Documented("ERROR_MOD_NOT_FOUND", "windows/win32/api/libloaderapi/nf-libloaderapi-loadlibrarya"),
           []
           {
               const UniqueModule library(LoadLibraryA("C:\\no such folder\\none.dll"));
               const DWORD dwError = GetLastError();
               return library ? "a library" : ErrorName(dwError);
           });
}

TEST_CASE("files: a library that is loaded again is the same one")
{
    Verify(Documented("the same", "windows/win32/api/libloaderapi/nf-libloaderapi-loadlibrarya"),
           []
           {
               const UniqueModule library(LoadLibraryA("KERNEL32.DLL"));
               return std::string(library.Get() == GetModuleHandleW(L"kernel32.dll") ? "the same" : "another");
           });
}

TEST_CASE("files: a function that a library does not have is told as such")
{
    Verify(Documented("none, ERROR_PROC_NOT_FOUND", PROCEDURE_PAGE),
           []
           {
               const FARPROC pfnFound = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "NoSuchFunction");
               const DWORD dwError = GetLastError();
               return std::string(pfnFound != nullptr ? "one" : "none") + ", " + ErrorName(dwError);
           },
           {{"scripted exports", []
             {
                 struct Machine
                 {
                     ImportRedirector redirector;
                     ScriptedExports exports{redirector};
                 };
                 const auto machine = std::make_shared<Machine>();
                 machine->exports.Hide("NoSuchFunction");
                 return machine;
             }}});
}

TEST_CASE("files: a function is found by its name with regard to case")
{
    Verify(Documented("found, not found", PROCEDURE_PAGE),
           []
           {
               const HMODULE hKernel = GetModuleHandleW(L"kernel32.dll");
               return std::string(GetProcAddress(hKernel, "GetTickCount64") != nullptr ? "found" : "not found") +
                      (GetProcAddress(hKernel, "gettickcount64") != nullptr ? ", found" : ", not found");
           },
           {FakeOf<ScriptedExports>("scripted exports")});
}

TEST_CASE("files: an environment variable that does not fit tells the room that it takes")
{
    Verify(Documented("10 for 4", "windows/win32/api/processenv/nf-processenv-expandenvironmentstringsa"),
           []
           {
               SetEnvironmentVariableA("VARNEX_CONFORMANCE", "123456789");
               char szText[32];
               const DWORD cchNeeded = ExpandEnvironmentStringsA("%VARNEX_CONFORMANCE%", szText, 4);
               return (cchNeeded >= 10 && cchNeeded <= 12 ? "10" : std::to_string(cchNeeded)) + " for 4";
           });
}

TEST_CASE("files: an environment variable that is not there stays as it was written")
{
    Verify(Documented("%VARNEX_NONE%", "windows/win32/api/processenv/nf-processenv-expandenvironmentstringsa"),
           []
           {
               char szText[32];
               ExpandEnvironmentStringsA("%VARNEX_NONE%", szText, sizeof szText);
               return std::string(szText);
           });
}

} // namespace varnex::test
