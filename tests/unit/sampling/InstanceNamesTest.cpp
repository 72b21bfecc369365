#include "sampling/InstanceNames.h"

#include <catch2/catch.hpp>

#include <string>
#include <vector>

namespace varnex::test
{

namespace
{

template <class Character>
std::vector<std::basic_string<Character>> Texts(const InstanceNames<Character>& names)
{
    std::vector<std::basic_string<Character>> texts;
    for (const auto& name : names)
    {
        texts.emplace_back(name.get());
    }
    return texts;
}

} // namespace

TEST_CASE("instance names are copied in the order of the list without the aggregate one")
{
    CHECK(Texts(CopyInstanceNames("0 C:\0"
                                  "1 D:\0"
                                  "_Total\0",
                                  "Total")) == std::vector<std::string>{"0 C:", "1 D:"});
    CHECK(Texts(CopyInstanceNames(L"1\0"
                                  L"0\0"
                                  L"_Total\0"
                                  L"2\0",
                                  L"Total")) == std::vector<std::wstring>{L"1", L"0", L"2"});
}

TEST_CASE("an instance whose name contains the marker anywhere is left out")
{
    CHECK(Texts(CopyInstanceNames("0,_Total\0"
                                  "Totally\0"
                                  "Total\0"
                                  "0\0",
                                  "Total")) == std::vector<std::string>{"0"});
}

TEST_CASE("the marker is looked for with its own letter case")
{
    CHECK(Texts(CopyInstanceNames(L"_total\0"
                                  L"_TOTAL\0"
                                  L"_Total\0",
                                  L"Total")) == std::vector<std::wstring>{L"_total", L"_TOTAL"});
}

TEST_CASE("a list of the aggregate instance alone gives no names")
{
    CHECK(CopyInstanceNames("_Total\0", "Total").empty());
    CHECK(CopyInstanceNames(L"", L"Total").empty());
}

TEST_CASE("an instance list ends with its first empty name")
{
    CHECK(Texts(CopyInstanceNames("0\0"
                                  "\0"
                                  "1\0",
                                  "Total")) == std::vector<std::string>{"0"});
}

TEST_CASE("copied instance names do not point into the list")
{
    char szList[] = "0 C:\0";
    const InstanceNames<char> names = CopyInstanceNames(static_cast<const char*>(szList), "Total");
    szList[0] = 'x';
    CHECK(Texts(names) == std::vector<std::string>{"0 C:"});
}

} // namespace varnex::test
