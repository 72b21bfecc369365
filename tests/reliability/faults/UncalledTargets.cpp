#include "UncalledTargets.h"

#include <algorithm>

namespace varnex::test
{

const std::vector<UncalledTarget>& UncalledTargets()
{
    static const std::vector<UncalledTarget> targets = {
        {"IXMLDOMDocument::abort",
         "ends a load in the background that takes too long, and its result is not looked at: "
         "XmlDocumentLoadTest has such documents"},
        {"CoGetApartmentType",
         "asks who needs messages while a document loads in the background: XmlDocumentLoadTest has "
         "such documents"},
        {"DeleteFileW", "takes a temporary file away after a save that failed, and its result is not looked at: "
                        "XmlDocumentSaveTest fails the saves"},
        {"SetEndOfFile", "cuts the backup file back after a fetch that failed, and a file that is written in place: "
                         "AlertStoreFailureTest fails the fetches, XmlDocumentInPlaceTest the cut"},
        {"TerminateThread", "ends a worker that does not come back, or that was not resumed: UtilizationControlTest "
                            "refuses it"},
        {"SuspendThread", "stops a worker that is to be ended by force while somebody else has the log's mutex: "
                          "UtilizationControlTest refuses it"},
        {"GetThreadContext", "as SuspendThread; its result is not looked at"},
        {"GetModuleHandleW", "the run-time library's random numbers, of which the module draws none"},
        {"LoadLibraryW", "as GetModuleHandleW"},
        {"ReleaseSemaphore", "the run-time library's mutexes, when a second thread waits: here threads run in turn"},
        {"TlsAlloc",
         "the run-time library's values of threads, from the first exception on: a healthy life throws none"},
        {"TlsSetValue", "as TlsAlloc"},
        {"realloc", "the run-time library's list of functions for the end, when it grows"},
    };
    return targets;
}

bool IsUncalled(const std::string& name)
{
    const std::vector<UncalledTarget>& targets = UncalledTargets();
    return std::any_of(targets.begin(), targets.end(),
                       [&](const UncalledTarget& target) { return target.name == name; });
}

} // namespace varnex::test
