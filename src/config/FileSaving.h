#pragma once

#include <cstddef>

#include <windows.h>

namespace varnex
{

// Replaces a file's content so that it is the old or the new one, whole, at every instant: the new one is written beside
// it, under the name with ".tmp" behind, flushed, and moved over it. Sharing errors are tried again for at most a second
// in all. Only then, or when the longer name does not fit a path, the file is written in place, where a kill can leave it
// torn; a failure there, like that of a disk without room, has the old content written back.
// Returns S_OK when the new content is on the disk, or the status of the system error. A save in place that fails leaves
// the temporary file, which is the whole new one, if that could be written.
HRESULT SaveFile(const wchar_t* pwszPath, const char* pachData, std::size_t cbData) noexcept;

} // namespace varnex
