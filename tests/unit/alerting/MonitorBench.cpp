#include "MonitorBench.h"

#include "support/TestText.h"

#include <catch2/catch.hpp>

#include <objbase.h>

namespace varnex::test
{

ComScope::ComScope()
{
    REQUIRE(SUCCEEDED(CoInitialize(nullptr)));
}

ComScope::~ComScope()
{
    CoUninitialize();
}

std::string MonitorBench::Counter(const std::wstring& name) const
{
    return Utf8FromWide(tree.ConfigNode(L"KPMConfiguration/PkiAlertNum/" + name).value_or(L""));
}

} // namespace varnex::test
