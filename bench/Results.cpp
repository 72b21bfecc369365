#include "Results.h"

#include <nlohmann/json.hpp>

#include <cstdio>

namespace varnex::bench
{

namespace
{

constexpr char MICRO[] = "\xC2\xB5s"; // UTF-8, for the page; a console may show other characters

// 0.9 ns to 12345 ms in five places.
std::string TimeText(double dNanoseconds, const char* pszMicro = "us")
{
    const char* pszUnit = "ns";
    double dValue = dNanoseconds;
    for (const char* pszNext : {pszMicro, "ms"})
    {
        if (dValue >= 10'000 || dValue <= -10'000)
        {
            dValue /= 1'000;
            pszUnit = pszNext;
        }
    }
    char szText[32];
    std::snprintf(szText, sizeof szText, dValue < 100 && dValue > -100 ? "%.2f %s" : "%.0f %s", dValue, pszUnit);
    return szText;
}

std::string GoalText(const Goal& goal)
{
    char szText[32] = "";
    if (goal.kind == GoalKind::Ratio)
    {
        std::snprintf(szText, sizeof szText, "%.2f", goal.dLimit);
    }
    else if (goal.kind == GoalKind::NanosecondsOver)
    {
        std::snprintf(szText, sizeof szText, "+%.1f ns", goal.dLimit);
    }
    return szText;
}

// How the cost grew against the last row of the same operation, beside how the work did.
std::string GrowthText(const Row& row, const Row* pBefore)
{
    if (pBefore == nullptr || pBefore->operation != row.operation || row.dWork == 0 || pBefore->dWork == 0)
    {
        return "";
    }
    char szText[48];
    std::snprintf(szText, sizeof szText, "x%.2f for x%.2f", row.dModuleNs / pBefore->dModuleNs,
                  row.dWork / pBefore->dWork);
    return szText;
}

const char* Verdict(bool bGoal, bool bMet)
{
    return !bGoal ? "" : bMet ? "met" : "**over**";
}

std::string MarkdownRow(const Row& row, const Row* pBefore)
{
    char szRatio[64];
    std::snprintf(szRatio, sizeof szRatio, "%.2f (%.2f\xE2\x80\x93%.2f)", row.dRatio, row.dRatioLow, row.dRatioHigh);
    return "| " + row.operation + " | " + row.work + " | " + TimeText(row.dModuleNs, MICRO) + " | " +
           TimeText(row.dFloorNs, MICRO) + " | " + szRatio + " | " + TimeText(row.dOverNs, MICRO) + " | " +
           GoalText(row.goal) + " | " + Verdict(row.goal.kind != GoalKind::None, MeetsGoal(row)) + " | " +
           GrowthText(row, pBefore) + " |\n";
}

void PrintRow(const Row& row, const Row* pBefore)
{
    std::printf("%-28s %-24s %11s %11s %7.3f %5.2f-%-5.2f %11s %9s %-4s %s\n", row.operation.c_str(), row.work.c_str(),
                TimeText(row.dModuleNs).c_str(), TimeText(row.dFloorNs).c_str(), row.dRatio, row.dRatioLow,
                row.dRatioHigh, TimeText(row.dOverNs).c_str(), GoalText(row.goal).c_str(),
                row.goal.kind == GoalKind::None ? ""
                : MeetsGoal(row)                ? "ok"
                                                : "OVER",
                GrowthText(row, pBefore).c_str());
}

} // namespace

void Print(const Results& results)
{
    std::printf("%-28s %-24s %11s %11s %7s %-11s %11s %9s %-4s %s\n", "operation", "work", "module", "floor", "ratio",
                "quartiles", "over", "goal", "", "growth");
    const Row* pBefore = nullptr;
    for (const Row& row : results.rows)
    {
        PrintRow(row, pBefore);
        pBefore = &row;
    }
    std::printf("\n");
    for (const Figure& figure : results.figures)
    {
        std::printf("%-72s %12.3f %-8s", figure.name.c_str(), figure.dValue, figure.unit.c_str());
        if (figure.dLimit != 0)
        {
            std::printf(" goal %.2f %s", figure.dLimit, figure.dValue <= figure.dLimit ? "ok" : "OVER");
        }
        std::printf("\n");
    }
    std::fflush(stdout);
}

std::string MarkdownOf(const Results& results)
{
    std::string text = "| operation | work | module | floor | ratio (quartiles) | over | goal | | growth |\n"
                       "|---|---|---|---|---|---|---|---|---|\n";
    const Row* pBefore = nullptr;
    for (const Row& row : results.rows)
    {
        text += MarkdownRow(row, pBefore);
        pBefore = &row;
    }
    text += "\n| what | value | goal | |\n|---|---|---|---|\n";
    for (const Figure& figure : results.figures)
    {
        char szValue[96];
        std::snprintf(szValue, sizeof szValue, "%.6g %s", figure.dValue, figure.unit.c_str());
        char szGoal[32] = "";
        if (figure.dLimit != 0)
        {
            std::snprintf(szGoal, sizeof szGoal, "%g", figure.dLimit);
        }
        text += "| " + figure.name + " | " + szValue + " | " + szGoal + " | " +
                Verdict(figure.dLimit != 0, figure.dValue <= figure.dLimit) + " |\n";
    }
    return text;
}

std::string JsonOf(const Results& results)
{
    nlohmann::ordered_json json;
    json["rows"] = nlohmann::ordered_json::array();
    for (const Row& row : results.rows)
    {
        nlohmann::ordered_json entry = {{"operation", row.operation}, {"work", row.work},
                                        {"moduleNs", row.dModuleNs},  {"floorNs", row.dFloorNs},
                                        {"ratio", row.dRatio},        {"ratioLowerQuartile", row.dRatioLow},
                                        {"overNs", row.dOverNs},      {"ratioUpperQuartile", row.dRatioHigh},
                                        {"pairs", row.nPairs}};
        if (row.goal.kind != GoalKind::None)
        {
            entry["goal"] = {{row.goal.kind == GoalKind::Ratio ? "ratio" : "overNs", row.goal.dLimit},
                             {"met", MeetsGoal(row)}};
        }
        json["rows"].push_back(entry);
    }
    json["figures"] = nlohmann::ordered_json::array();
    for (const Figure& figure : results.figures)
    {
        nlohmann::ordered_json entry = {{"name", figure.name}, {"value", figure.dValue}, {"unit", figure.unit}};
        if (figure.dLimit != 0)
        {
            entry["goal"] = {{"atMost", figure.dLimit}, {"met", figure.dValue <= figure.dLimit}};
        }
        json["figures"].push_back(entry);
    }
    return json.dump(2) + "\n";
}

} // namespace varnex::bench
