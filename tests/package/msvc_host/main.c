/*
 * A host for the Microsoft ABI that needs no run-time library: it calls the module and KERNEL32, nothing else.
 * Ends with 0, or with the number of the first call that did not answer as it should.
 */
#include <varnex/Varnex.h>

#ifdef __cplusplus
extern "C"
{
#endif

    __declspec(dllimport) void __stdcall ExitProcess(unsigned int nExitCode);
    __declspec(dllimport) void* __stdcall GetStdHandle(unsigned long dwWhich);
    __declspec(dllimport) int __stdcall WriteFile(void* hFile, const void* pBytes, unsigned long cbBytes,
                                                  unsigned long* pcbWritten, void* pOverlapped);
    void mainCRTStartup(void);

#ifdef __cplusplus
}
#endif

#define STANDARD_OUTPUT ((unsigned long)-11)

static unsigned int TryModule(void)
{
    int anTypes[2];
    int anThresholds[2];
    int anValues[2];
    static wchar_t* apwszTexts[2]; /* null: no text is wanted */
    if (StartWorkingThread(VARNEX_ALERT_PAGING_FILE) != VARNEX_BAD_ALERT_TYPE)
    {
        return 1;
    }
    if (GetAlertRecord(anTypes, apwszTexts, 0, anThresholds, anValues, 1) != 1 || anTypes[0] != 3 ||
        anThresholds[0] != 50 || anValues[0] != 72)
    {
        return 2;
    }
    return 0;
}

void mainCRTStartup(void)
{
    static const char szWords[] = "StartWorkingThread refused 5, GetAlertRecord gave one alert\n";
    unsigned long cbWritten = 0;
    const unsigned int nResult = TryModule();
    if (nResult == 0)
    {
        WriteFile(GetStdHandle(STANDARD_OUTPUT), szWords, sizeof szWords - 1, &cbWritten, 0);
    }
    ExitProcess(nResult);
}
