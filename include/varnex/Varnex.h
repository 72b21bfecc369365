/*
 * Varnex.h - the exports of Varnex.dll, for C99 and C++17.
 *
 * Varnex watches the machine from inside the process that loads it. Load the DLL, start the monitors, fetch the
 * alerts from time to time, stop the monitors, wait until they have ended, unload. Every export may be called from
 * any thread, except from a library entry point (DllMain); none of them lets an exception out.
 *
 * Load and unload on the same thread, one that is not in COM's multithreaded apartment: the load initialises COM there
 * (single-threaded) and fails where that cannot be; the unload uninitialises it.
 *
 * Calls may overlap, starts and stops, too. See StartPKIUtlThread and StopPKIUtlThread for what becomes of those.
 *
 * Let the loading thread initialise COM itself (CoInitialize) before the load and keep it past the unload. It serves
 * messages if it owns windows or if the process uses legacy COM objects, which live in its first single-threaded
 * apartment. Call CoInitializeSecurity, if at all, before the first start, with RPC_C_IMP_LEVEL_IMPERSONATE or more.
 *
 * Strings that the module hands out are UTF-16. The caller owns every buffer that it passes in; the module keeps no
 * pointer to any of them after an export has returned.
 */
#ifndef VARNEX_VARNEX_H
#define VARNEX_VARNEX_H

#include <stddef.h>
#include <wchar.h>

#if defined(_WIN32) && !defined(VARNEX_NO_DLLIMPORT)
#define VARNEX_API __declspec(dllimport)
#else
#define VARNEX_API
#endif

#if defined(_WIN32)
#define VARNEX_CALLBACK __stdcall
#else
#define VARNEX_CALLBACK
#endif

#ifdef __cplusplus
extern "C"
{
#endif

/* Alert types: the selector of the start and stop exports, and what GetAlertRecord reports. */
#define VARNEX_ALERT_ALL 0U         /* start and stop only: all four monitors */
#define VARNEX_ALERT_CPU 1U         /* processor utilization, percent */
#define VARNEX_ALERT_MEMORY 2U      /* physical memory utilization, percent */
#define VARNEX_ALERT_DISK 3U        /* physical disk throughput, MB/s (1 MB = 1048576 bytes) */
#define VARNEX_ALERT_NETWORK 4U     /* network adapter utilization, percent of the link speed */
#define VARNEX_ALERT_PAGING_FILE 5U /* GetAlertRecord only: paging file (commit space) utilization, percent */

/* Results of the start and stop exports. */
#define VARNEX_OK 0
#define VARNEX_BAD_ALERT_TYPE 1

/*
 * Starts the alert monitor of one resource, or all four monitors.
 *
 * nAlertType  VARNEX_ALERT_ALL, _CPU, _MEMORY, _DISK or _NETWORK.
 *
 * Returns VARNEX_OK when the request was accepted, whatever became of the individual threads (the log tells), and
 * VARNEX_BAD_ALERT_TYPE for any other type. A monitor that runs, or that was asked to stop and has not ended yet, is
 * left alone: the request is logged and has no effect on it.
 *
 * A monitor re-reads its policy from KpmCfg.xml, beside the module, in every cycle.
 *
 * The network monitor ends by itself when it cannot list the adapters, as while WMI restarts. It leaves its place free,
 * so that a later start brings it back: call StartWorkingThread(VARNEX_ALERT_NETWORK) from time to time. While it runs,
 * that costs two lines in the log.
 */
VARNEX_API int StartWorkingThread(unsigned int nAlertType);

/*
 * Asks the alert monitor of one resource, or all four, to end. Does not wait. A monitor ends within about one second,
 * or after the pass of measurements that it is in: the disk monitor finishes all its disks (up to 6 seconds for each
 * one that does not answer), the network monitor reads its adapters once more. For each alert that the pass raises it
 * may wait up to 90 seconds for the daily counts; a thread of its own then stores the alert and may wait up to 60
 * seconds for the alert file; and each line of the log may take 5 seconds. Let all of them end before the module is
 * unloaded; it waits for none. No fixed time is enough: docs/integrating.md says how to see their end.
 *
 * nAlertType  as for StartWorkingThread.
 *
 * Returns VARNEX_OK, also when nothing runs, or VARNEX_BAD_ALERT_TYPE.
 */
VARNEX_API int StopWorkingThread(unsigned int nAlertType);

/*
 * Fetches stored alerts, oldest first, and removes them from the store. Alerts older than three days and lines that
 * are not alerts are dropped on the way. What was handed out is gone from the store: write it down before you pass it
 * on. After a fetch that could not replace the store's file, or was killed, alerts may come again: two that agree in
 * type, text, threshold and value are one.
 *
 * !! EVERY ARRAY MUST HAVE ROOM FOR nMaxCount + 1 ENTRIES. A fetch may return one record more than nMaxCount. !!
 *
 * pnAlertTypes  receives each alert's type: VARNEX_ALERT_CPU, _MEMORY, _DISK, _NETWORK or _PAGING_FILE.
 * ppwszTexts    nMaxCount + 1 pointers to text buffers of the caller, each either null (no text wanted) or of
 *               cchText characters. A text is the alert's local time, the host's name and, for a disk or an adapter,
 *               its name: "2026-01-31 23:59:59, HOST01, 0 C:". Longer texts are cut; each is terminated.
 * cchText       the size of each text buffer in characters, the terminator included; 0 writes no text.
 * pnThresholds  receives the threshold in force when the alert was raised (percent; MB/s for a disk).
 * pnValues      receives the average that reached it, in the same unit.
 * nMaxCount     the number of alerts wanted, at least 1.
 *
 * Returns the number of records stored, 0 to nMaxCount + 1. 0 also stands for a null array, an nMaxCount below 1, no
 * stored alert, and a store that could not be read or rewritten; then nothing is lost and the log tells why.
 *
 * The store is shared with other processes under a named mutex, for which the call waits up to 60 seconds. For another
 * program that has the alert file open it waits up to a second more.
 * The call takes 51 KiB of the thread's stack.
 */
VARNEX_API int GetAlertRecord(int* pnAlertTypes, wchar_t** ppwszTexts, unsigned int cchText, int* pnThresholds,
                              int* pnValues, int nMaxCount);

/*
 * Starts utilization reporting: four samplers, which record one sample a minute for a day, and the thread that answers
 * requests for a report in the report section (docs/hand-off.md has its layout and the order of operations). Starts
 * only what does not run. Always returns 0; the log tells what became of the threads. A report waits at most 20 seconds
 * for samples that a stuck sampler has in use, and is then made without them.
 *
 * During a stop it starts the kinds that have ended already, and the stop leaves them alone. Kinds that are still
 * stopping are not started; the log tells at level 1 which: call it again when the stop has returned. Samples of memory
 * and adapters then go on behind those of before.
 */
VARNEX_API unsigned int StartPKIUtlThread(void);

/*
 * Ends utilization reporting and frees the recorded samples. Waits for the threads, usually about a second and at most
 * 15 seconds, then ends by force the ones that are stuck in a system call, all of them within at most 6 seconds more;
 * afterwards none of them runs and the module may be unloaded. A sampler that ended early, for want of a processor's or
 * a disk's name, of COM or of a thread, costs the whole 15 seconds. Where another thread or program holds the log's
 * mutex, the stop's own lines may take 10 seconds more. Always returns 0.
 *
 * A thread may live on when the system refuses to end it, when a call into the kernel does not let it end within a
 * second, when it is in the middle of writing to the log, or when the system refuses the handle by which its end is
 * seen. The log tells at level 1, as soon as it can be written. The module must then stay loaded, and another stop
 * tries again. A thread that was ended by force is logged at level 1, too: restart the process soon, because locks of
 * the heap or the loader may have gone with it.
 *
 * Stops may overlap: each thread is ended once, and each stop returns within the time above.
 */
VARNEX_API unsigned int StopPKIUtlThread(void);

/* An unhandled-exception filter: Windows' LPTOP_LEVEL_EXCEPTION_FILTER, named without <windows.h>. */
struct _EXCEPTION_POINTERS;
/* NOLINTNEXTLINE(modernize-use-using): C has no other way. */
typedef long(VARNEX_CALLBACK* VARNEX_EXCEPTION_FILTER)(struct _EXCEPTION_POINTERS* pExceptionPointers);

/* How much a crash dump holds. */
#define VARNEX_DUMP_NORMAL 0U           /* threads and stacks (MiniDumpNormal); so does any number not listed here */
#define VARNEX_DUMP_HANDLES 1U          /* and the open handles (MiniDumpWithHandleData) */
#define VARNEX_DUMP_DATA_AND_HANDLES 2U /* and the modules' data (MiniDumpWithDataSegs) */
#define VARNEX_DUMP_FULL_MEMORY 3U      /* all memory of the process (MiniDumpWithFullMemory) */

/*
 * Installs, for the whole process, a filter that writes a dump when a thread crashes and then lets the crash go on to
 * the next handler. The dump lies beside the host's executable: host.exe_00.dmp, or the first free number up to 98;
 * when all are taken, number 98 is overwritten. DBGHELP.DLL is taken from the executable's directory when there is
 * one, else from the system. Failures are silent: no dump, and the crash goes on all the same.
 *
 * nMode  VARNEX_DUMP_NORMAL, _HANDLES, _DATA_AND_HANDLES or _FULL_MEMORY.
 *
 * Returns the filter that was installed before, or null; the module does not call it and never puts it back.
 *
 * BEFORE THE MODULE IS UNLOADED, install another filter (the returned one, or null) with SetUnhandledExceptionFilter:
 * else the next crash calls into memory that is gone.
 */
VARNEX_API VARNEX_EXCEPTION_FILTER Cst_SetExceptionHandler_Ex(unsigned int nMode);

#ifdef __cplusplus
}
#endif

#endif
