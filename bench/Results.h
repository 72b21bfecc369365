#pragma once

#include "Comparison.h"

#include <string>
#include <vector>

namespace varnex::bench
{

// A number that stands by itself: bytes, threads, a share.
struct Figure
{
    std::string name;
    double dValue;
    std::string unit;
    double dLimit = 0; // 0: no goal
};

// All that a run found.
struct Results
{
    std::vector<Row> rows;
    std::vector<Figure> figures;

    void Add(Row row) { rows.push_back(std::move(row)); }
    void Add(Figure figure) { figures.push_back(std::move(figure)); }
};

// The table, on standard output.
void Print(const Results& results);
// The same as JSON, and as the tables of docs/performance.md.
std::string JsonOf(const Results& results);
std::string MarkdownOf(const Results& results);

} // namespace varnex::bench
