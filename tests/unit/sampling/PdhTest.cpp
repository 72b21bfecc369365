#include "unit/sampling/PdhTest.h"

namespace varnex::test
{

std::vector<std::string> PdhTest::PdhFunctions() const
{
    std::vector<std::string> functions;
    for (const PdhCall& call : m_pdh.Calls())
    {
        functions.push_back(call.function);
    }
    return functions;
}

void PdhTest::CheckCleanedUp() const
{
    const std::vector<std::string> functions = PdhFunctions();
    REQUIRE(functions.size() >= 2);
    CHECK(functions[functions.size() - 2] == "PdhRemoveCounter");
    CHECK(functions.back() == "PdhCloseQuery");
    CheckNothingOpen();
}

void PdhTest::CheckNothingOpen() const
{
    CHECK(m_pdh.OpenQueries() == 0);
    CHECK(m_pdh.OpenCounters() == 0);
    CHECK(m_pdh.WrongHandles() == 0);
}

} // namespace varnex::test
