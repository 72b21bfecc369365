/*
 * A host in plain C99: includes the public header, links against the import library and uses every export.
 * Exits with 0, or with the number of the first call that did not answer as it should.
 */
#include <varnex/Varnex.h>

#include <stddef.h>

int main(void)
{
    enum
    {
        WANTED = 1
    };
    int anTypes[WANTED + 1];
    int anThresholds[WANTED + 1];
    int anValues[WANTED + 1];
    wchar_t* apwszTexts[WANTED + 1] = {NULL, NULL};
    /* Linked and not called: its threads would have to end before this program does. */
    unsigned int (*volatile pfnStartReporting)(void) = StartPKIUtlThread;

    if (StartWorkingThread(VARNEX_ALERT_PAGING_FILE) != VARNEX_BAD_ALERT_TYPE)
    {
        return 1;
    }
    if (StopWorkingThread(VARNEX_ALERT_ALL) != VARNEX_OK)
    {
        return 2;
    }
    if (GetAlertRecord(anTypes, apwszTexts, 0, anThresholds, anValues, WANTED) != 1 || anTypes[0] != 3 ||
        anThresholds[0] != 50 || anValues[0] != 72)
    {
        return 3;
    }
    if (StopPKIUtlThread() != VARNEX_OK)
    {
        return 4;
    }
    return pfnStartReporting != NULL ? 0 : 5;
}
