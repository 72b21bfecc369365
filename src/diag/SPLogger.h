#pragma once

#include "common/Handles.h"

#include <atomic>
#include <cstdarg>
#include <cstddef>

#include <windows.h>

namespace varnex
{

// The module's one text log. A line of level N (1 = most important, 4 = most detailed) is written only while Level is
// at least N. Each line opens, appends to and closes the file, in one write, with the local time and the level before
// it. Past 8 MiB the file is renamed and a new one begun.
//
// Any thread may log. Writers of one process take turns by a named mutex; a line that waits for it longer than five
// seconds is dropped. Logging never fails visibly and leaves the thread's last error as it was.
class SPLogger
{
public:
    // The logger of this process; made at the first call. Never null.
    static SPLogger* Instance() noexcept;

    // One entry per level and width. A narrow format takes narrow %s arguments, a wide one wide ones. Text from
    // outside is only ever an argument, never the format. A null format writes nothing.
    void Level1A(const char* pszFormat, ...) noexcept;
    void Level1W(const wchar_t* pwszFormat, ...) noexcept;
    void Level2A(const char* pszFormat, ...) noexcept;
    void Level2W(const wchar_t* pwszFormat, ...) noexcept;
    void Level3A(const char* pszFormat, ...) noexcept;
    void Level3W(const wchar_t* pwszFormat, ...) noexcept;
    void Level4A(const char* pszFormat, ...) noexcept;
    void Level4W(const wchar_t* pwszFormat, ...) noexcept;

    // Puts the log into a directory under a name, at level 3. The mutex keeps its name.
    void Configure(const char* pszDirectory, const char* pszName) noexcept;

    // Takes a level from the configuration: 0 to 4, taken as unsigned; anything else changes nothing.
    void SetConfiguredLevel(int nLevel) noexcept;

    // Renames the log when it has grown past 8 MiB. Every line does so first.
    void RollOverIfNeeded() noexcept;

    // Appends an empty line: the mark between two loads of the module.
    void WriteSeparator() noexcept;

    // The thread that is writing a line right now, 0 when none is. It has the mutex from shortly before until shortly
    // after.
    DWORD Writer() const noexcept { return m_dwWriter.load(std::memory_order_acquire); }

    // Keeps every writer of this process out while it lives, so that a thread can be ended that might be writing. The
    // thread itself may go on writing.
    class WritersHeldOff
    {
    public:
        explicit WritersHeldOff(DWORD dwWaitMs) noexcept;
        // False when the writers could not be held off in that time.
        explicit operator bool() const noexcept { return m_bHeldOff; }

    private:
        MutexHold m_hold;
        bool m_bHeldOff;
    };

    // Read without a lock by every entry; 0 silences the log.
    std::atomic<int> Level{3};
    char LogFilePath[260]{};
    char LogDirectory[260]{};
    char LoggerName[128]{};
    char MutexName[260]{};
    HANDLE Mutex = nullptr; // null when it could not be made; then no line is ever written

    SPLogger(const SPLogger&) = delete;
    SPLogger& operator=(const SPLogger&) = delete;

private:
    friend SPLogger* Log() noexcept;
    class WriterMark;

    SPLogger() noexcept;
    ~SPLogger();

    void WriteLeveledA(int nLevel, const char* pszFormat, std::va_list arguments) noexcept;
    void WriteLeveledW(int nLevel, const wchar_t* pwszFormat, std::va_list arguments) noexcept;
    void WriteLineA(const char* pszTag, const char* pszFormat, std::va_list arguments);
    void WriteLineW(const wchar_t* pwszTag, const wchar_t* pwszFormat, std::va_list arguments);
    void AppendText(const char* pachText, std::size_t cbText) noexcept;
    void BuildFilePath() noexcept;

    std::atomic<DWORD> m_dwWriter{0};

    // The file ends in a part of a line, which the next one must not run into. For whoever writes.
    bool m_bTorn = false;

    // What Instance returned first. A line below the level costs little more than this look.
    inline static std::atomic<SPLogger*> s_pInstance{nullptr};
};

// The logger, for callers that log: `Log()->Level1A("Operation -- what happened(%d).", nStatus)`.
inline SPLogger* Log() noexcept
{
    SPLogger* const pLogger = SPLogger::s_pInstance.load(std::memory_order_acquire);
    return pLogger != nullptr ? pLogger : SPLogger::Instance();
}

} // namespace varnex
