#pragma once

#include "support/ImportRedirector.h"

#include <map>
#include <string>
#include <vector>

namespace varnex::test
{

// What the code under test does with the store's mutex and with files, in the order of the calls:
//
//     StoreJournal journal(bench.imports);
//     ...
//     CHECK(journal.Events() == Events{"wait 60000", "open LocalAlt.dat", "write", "close", "release"});
//
// One thread only. The real calls are made; the log is silent meanwhile, for its file would show up, too.
class StoreJournal
{
public:
    using List = std::vector<std::string>;

    explicit StoreJournal(ImportRedirector& imports);
    ~StoreJournal();
    StoreJournal(const StoreJournal&) = delete;
    StoreJournal& operator=(const StoreJournal&) = delete;

    const List& Events() const noexcept { return m_events; }

private:
    void ScriptMutex();
    void ScriptFiles();
    void Note(const std::string& event);
    // The name of an open file; empty for any other handle.
    std::string NameOf(HANDLE hFile) const;

    RestoredImports m_imports;
    const int m_nFormerLevel;
    List m_events;
    std::map<HANDLE, std::string> m_openFiles;
};

} // namespace varnex::test
