#include "LostName.h"

#include "support/TestText.h"

#include <catch2/catch.hpp>

namespace varnex::test
{

namespace
{

bool CanOpenAll()
{
    return UniqueHandle(OpenEventW(SYNCHRONIZE, FALSE, BEGIN_NAME)) &&
           UniqueHandle(OpenEventW(SYNCHRONIZE, FALSE, FINISH_NAME)) &&
           UniqueHandle(OpenFileMappingW(FILE_MAP_READ, FALSE, SECTION_NAME));
}

} // namespace

void CheckLifeWithout(const LostName& name, const char* pszError)
{
    HostUnderAttack host;
    host.Begin();
    CHECK(host.AwaitAlerts());
    CHECK(host.FetchAll() == 2);
    if (name.bReports)
    {
        CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    }
    else
    {
        CHECK_FALSE(CanOpenAll());
    }
    host.End();
    if (name.pszLine != nullptr)
    {
        CHECK_THAT(host.Log(), HasLineContaining(std::string(name.pszLine) + pszError));
    }
    CHECK((host.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/PH") == L"1") == name.bCounts);
    CHECK((host.Log().CountContaining("Failed to get KPMcfg.xml control") > 0) == !name.bCounts);
}

void CheckLifeWithoutLog(HostileObject::Kind kind, const char* pszAccess)
{
    CAPTURE(TextOf(kind));
    std::vector<HostileObject> taken;
    for (const std::wstring& name : LogMutexNames(10))
    {
        taken.emplace_back(kind, name, pszAccess);
    }
    HostUnderAttack host;
    host.Begin();
    CHECK(host.AwaitAlerts());
    CHECK(host.FetchAll() == 2);
    CHECK_THAT(Utf8FromWide(host.AskForReport()), Catch::Contains("<MemoryUtil"));
    host.End();
    CHECK(host.Log().Bytes() == "\r\n\r\n");
    CHECK(host.tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/PH") == L"1");
}

} // namespace varnex::test
