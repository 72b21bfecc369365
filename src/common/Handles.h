#pragma once

#include "common/LastError.h"
#include "common/UniqueResource.h"

#include <windows.h>

namespace varnex
{

// Null-invalid kernel object: thread, mutex, event.
struct HandleTraits
{
    using Type = HANDLE;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type hObject) noexcept
    {
        const LastErrorKeeper keeper;
        CloseHandle(hObject);
    }
};
using UniqueHandle = UniqueResource<HandleTraits>;

// File handle, invalid at -1.
struct FileTraits
{
    using Type = HANDLE;
    static Type Invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void Close(Type hFile) noexcept
    {
        const LastErrorKeeper keeper;
        CloseHandle(hFile);
    }
};

class UniqueFile : public UniqueResource<FileTraits>
{
public:
    using UniqueResource::UniqueResource;

    // Closes now and tells whether the system took everything that was written.
    bool Close() noexcept { return CloseHandle(Release()) != FALSE; }
};

struct ModuleTraits
{
    using Type = HMODULE;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type hModule) noexcept
    {
        const LastErrorKeeper keeper;
        FreeLibrary(hModule);
    }
};
using UniqueModule = UniqueResource<ModuleTraits>;

// A block from LocalAlloc that holds one T.
template <class T>
struct LocalBlockTraits
{
    using Type = T*;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type pBlock) noexcept
    {
        const LastErrorKeeper keeper;
        LocalFree(pBlock);
    }
};
template <class T>
using UniqueLocalBlock = UniqueResource<LocalBlockTraits<T>>;

// A view of a section.
struct ViewTraits
{
    using Type = void*;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type pView) noexcept
    {
        const LastErrorKeeper keeper;
        UnmapViewOfFile(pView);
    }
};
using UniqueView = UniqueResource<ViewTraits>;

struct RegistryKeyTraits
{
    using Type = HKEY;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type hKey) noexcept
    {
        const LastErrorKeeper keeper;
        RegCloseKey(hKey);
    }
};
using UniqueRegistryKey = UniqueResource<RegistryKeyTraits>;

// A mutex to be given back. The wait is the caller's: each mutex of the module has its own rule for a wait that ends
// in anything but success.
struct MutexHoldTraits
{
    using Type = HANDLE;
    static Type Invalid() noexcept { return nullptr; }
    static void Close(Type hMutex) noexcept
    {
        const LastErrorKeeper keeper;
        ReleaseMutex(hMutex);
    }
};
using MutexHold = UniqueResource<MutexHoldTraits>;

static_assert(isMoveOnly<UniqueHandle> && isMoveOnly<UniqueFile> && isMoveOnly<UniqueModule> &&
              isMoveOnly<UniqueLocalBlock<int>> && isMoveOnly<UniqueView> && isMoveOnly<UniqueRegistryKey> &&
              isMoveOnly<MutexHold>);
static_assert(!std::is_convertible_v<UniqueHandle, UniqueFile> && !std::is_convertible_v<UniqueFile, UniqueHandle>);

} // namespace varnex
