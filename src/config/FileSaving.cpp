#include "config/FileSaving.h"

#include "common/BoundedText.h"
#include "common/Handles.h"
#include "common/LastError.h"
#include "common/ModulePath.h"
#include "common/SharingPatience.h"
#include "common/WriteWhole.h"

#include <algorithm>
#include <climits>
#include <cwchar>
#include <memory>
#include <new>

namespace varnex
{

namespace
{

constexpr wchar_t TEMPORARY_ENDING[] = L".tmp";

// What a file holds, or is to hold.
struct Content
{
    const char* pachData;
    std::size_t cbData;
};

DWORD LastFailure() noexcept
{
    return LastErrorOr(ERROR_GEN_FAILURE);
}

// ERROR_SUCCESS is S_OK.
HRESULT StatusOf(DWORD dwError) noexcept
{
    return HRESULT_FROM_WIN32(dwError);
}

// False when there is no room for the name.
bool TemporaryPathOf(const wchar_t* pwszPath, wchar_t (&wszTemporaryPath)[PATH_CHARS]) noexcept
{
    FormatTextW(wszTemporaryPath, L"%s%s", pwszPath, TEMPORARY_ENDING);
    return std::wcslen(wszTemporaryPath) == std::wcslen(pwszPath) + std::wcslen(TEMPORARY_ENDING);
}

DWORD WriteNew(const wchar_t* pwszPath, const Content& content) noexcept
{
    UniqueFile file(CreateFileW(pwszPath, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
    {
        return LastFailure();
    }
    const DWORD dwError = WriteWhole(file.Get(), content.pachData, content.cbData);
    if (dwError != ERROR_SUCCESS)
    {
        return dwError;
    }
    return FlushFileBuffers(file.Get()) && file.Close() ? ERROR_SUCCESS : LastFailure();
}

DWORD ReplaceFileBy(const wchar_t* pwszPath, const wchar_t* pwszNewPath) noexcept
{
    const bool bMoved = MoveFileExW(pwszNewPath, pwszPath, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
    return bMoved ? ERROR_SUCCESS : LastFailure();
}

// A file that is written over, and can be put back.
class FileInPlace
{
public:
    // Opens the file and reads its content. Others may read it meanwhile, as those do for whom it is written in place.
    DWORD Open(const wchar_t* pwszPath) noexcept
    {
        m_file.Reset(CreateFileW(pwszPath, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                 FILE_ATTRIBUTE_NORMAL, nullptr));
        LARGE_INTEGER cbOld;
        if (!m_file || !GetFileSizeEx(m_file.Get(), &cbOld))
        {
            return LastFailure();
        }
        if (cbOld.QuadPart > INT_MAX)
        {
            return ERROR_FILE_TOO_LARGE;
        }
        m_cbOld = static_cast<std::size_t>(cbOld.QuadPart);
        m_oldData.reset(new (std::nothrow) char[m_cbOld]);
        if (m_oldData == nullptr)
        {
            return ERROR_NOT_ENOUGH_MEMORY;
        }
        DWORD cbRead = 0;
        if (!ReadFile(m_file.Get(), m_oldData.get(), static_cast<DWORD>(m_cbOld), &cbRead, nullptr))
        {
            return LastFailure();
        }
        return cbRead == m_cbOld ? ERROR_SUCCESS : ERROR_HANDLE_EOF;
    }

    // First what goes beyond the old end, because only that needs room on the disk; last the cutting of a longer file.
    DWORD Write(const Content& content) const noexcept
    {
        const std::size_t cbOver = (std::min)(content.cbData, m_cbOld);
        DWORD dwError = WriteAt(m_cbOld, content.pachData + cbOver, content.cbData - cbOver);
        if (dwError == ERROR_SUCCESS)
        {
            dwError = WriteAt(0, content.pachData, cbOver);
        }
        if (dwError == ERROR_SUCCESS && content.cbData < m_cbOld)
        {
            dwError = EndAt(content.cbData);
        }
        return dwError == ERROR_SUCCESS ? Flush() : dwError;
    }

    void PutBack() const noexcept
    {
        EndAt(m_cbOld);
        WriteAt(0, m_oldData.get(), m_cbOld);
        Flush();
    }

private:
    DWORD GoTo(std::size_t nPlace) const noexcept
    {
        LARGE_INTEGER place;
        place.QuadPart = static_cast<LONGLONG>(nPlace);
        return SetFilePointerEx(m_file.Get(), place, nullptr, FILE_BEGIN) ? ERROR_SUCCESS : LastFailure();
    }
    DWORD WriteAt(std::size_t nPlace, const char* pachData, std::size_t cbData) const noexcept
    {
        if (cbData == 0)
        {
            return ERROR_SUCCESS;
        }
        const DWORD dwError = GoTo(nPlace);
        return dwError == ERROR_SUCCESS ? WriteWhole(m_file.Get(), pachData, cbData) : dwError;
    }
    DWORD EndAt(std::size_t nPlace) const noexcept
    {
        const DWORD dwError = GoTo(nPlace);
        if (dwError != ERROR_SUCCESS)
        {
            return dwError;
        }
        return SetEndOfFile(m_file.Get()) ? ERROR_SUCCESS : LastFailure();
    }
    DWORD Flush() const noexcept { return FlushFileBuffers(m_file.Get()) ? ERROR_SUCCESS : LastFailure(); }

    UniqueFile m_file;
    std::unique_ptr<char[]> m_oldData;
    std::size_t m_cbOld = 0;
};

DWORD WriteInPlace(const wchar_t* pwszPath, const Content& content) noexcept
{
    FileInPlace file;
    DWORD dwError = file.Open(pwszPath);
    if (dwError != ERROR_SUCCESS)
    {
        return dwError;
    }
    dwError = file.Write(content);
    if (dwError != ERROR_SUCCESS)
    {
        file.PutBack();
    }
    return dwError;
}

} // namespace

HRESULT SaveFile(const wchar_t* pwszPath, const char* pachData, std::size_t cbData) noexcept
{
    const Content content = {pachData, cbData};
    const SharingPatience patience;
    wchar_t wszTemporaryPath[PATH_CHARS];
    if (!TemporaryPathOf(pwszPath, wszTemporaryPath))
    {
        return patience.Try([&]() noexcept { return StatusOf(WriteInPlace(pwszPath, content)); });
    }
    HRESULT nResult = patience.Try([&]() noexcept { return StatusOf(WriteNew(wszTemporaryPath, content)); });
    const bool bWritten = SUCCEEDED(nResult);
    if (bWritten)
    {
        nResult = patience.Try([&]() noexcept { return StatusOf(ReplaceFileBy(pwszPath, wszTemporaryPath)); });
    }
    if (SUCCEEDED(nResult))
    {
        return nResult;
    }
    if (IsSharingStatus(nResult)) // somebody keeps one of the files open: what is left is to write into the old one
    {
        nResult = StatusOf(WriteInPlace(pwszPath, content));
        if (FAILED(nResult) && bWritten)
        {
            return nResult; // nobody knows whether the old content could be put back: the temporary file is whole
        }
    }
    DeleteFileW(wszTemporaryPath);
    return nResult;
}

} // namespace varnex
