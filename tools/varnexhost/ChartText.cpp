#include "ChartText.h"

#include "HostError.h"
#include "WholeFile.h"

#include <cstring>

namespace varnex::host
{

namespace
{

constexpr std::size_t MOST_BYTES = std::size_t{256} * 1024 * 1024; // years of samples

bool StartsWith(std::string_view text, std::string_view start)
{
    return text.substr(0, start.size()) == start;
}

std::wstring WideFrom(UINT nCodePage, DWORD dwFlags, const std::string& bytes)
{
    const int cbBytes = static_cast<int>(bytes.size());
    const int cchWide = MultiByteToWideChar(nCodePage, dwFlags, bytes.data(), cbBytes, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(cchWide), L'\0');
    MultiByteToWideChar(nCodePage, dwFlags, bytes.data(), cbBytes, wide.data(), cchWide);
    return wide;
}

std::string DecodeText(std::string bytes)
{
    if (StartsWith(bytes, "\xFF\xFE"))
    {
        std::wstring wide((bytes.size() - 2) / sizeof(wchar_t), L'\0');
        std::memcpy(wide.data(), bytes.data() + 2, wide.size() * sizeof(wchar_t));
        return ToUtf8(wide);
    }
    if (StartsWith(bytes, "\xEF\xBB\xBF"))
    {
        bytes.erase(0, 3);
    }
    const std::wstring wide = WideFrom(CP_UTF8, MB_ERR_INVALID_CHARS, bytes);
    return ToUtf8(wide.empty() ? WideFrom(CP_ACP, 0, bytes) : wide);
}

bool HasForm(std::string_view text, std::string_view form)
{
    if (text.size() != form.size())
    {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        const bool bDigit = text[i] >= '0' && text[i] <= '9';
        if (form[i] == '0' ? !bDigit : text[i] != form[i])
        {
            return false;
        }
    }
    return true;
}

int TwoDigits(std::string_view text, std::size_t nAt)
{
    return (text[nAt] - '0') * 10 + (text[nAt + 1] - '0');
}

} // namespace

std::string ReadTextFile(const std::filesystem::path& file)
{
    std::string bytes = ReadWholeFile(file);
    if (bytes.size() > MOST_BYTES)
    {
        throw HostError(file.wstring() + L" is larger than 256 MB; a day's samples are not.");
    }
    return DecodeText(std::move(bytes));
}

bool IsDay(std::string_view text)
{
    return HasForm(text, "0000-00-00");
}

std::optional<ChartMoment> ParseMoment(std::string_view text)
{
    if (!HasForm(text, "0000-00-00 00:00:00"))
    {
        return std::nullopt;
    }
    const int nHour = TwoDigits(text, 11);
    const int nMinute = TwoDigits(text, 14);
    const int nSecond = TwoDigits(text, 17);
    if (nHour > 23 || nMinute > 59 || nSecond > 59)
    {
        return std::nullopt;
    }
    return ChartMoment{std::string(text.substr(0, 10)), nHour * 3600 + nMinute * 60 + nSecond};
}

std::string ClockText(int nSecond)
{
    std::string text;
    for (const int nPart : {nSecond / 3600, nSecond / 60 % 60, nSecond % 60})
    {
        text += (text.empty() ? "" : ":") + std::string(nPart < 10 ? "0" : "") + std::to_string(nPart);
    }
    return text;
}

std::vector<std::string_view> SplitText(std::string_view text, char chSeparator)
{
    std::vector<std::string_view> fields;
    for (std::size_t nEnd = text.find(chSeparator); nEnd != std::string_view::npos; nEnd = text.find(chSeparator))
    {
        fields.push_back(text.substr(0, nEnd));
        text.remove_prefix(nEnd + 1);
    }
    fields.push_back(text);
    return fields;
}

std::vector<std::string_view> SplitLines(std::string_view text, std::string_view& rest)
{
    std::vector<std::string_view> lines = SplitText(text, '\n');
    rest = lines.back();
    lines.pop_back();
    for (std::string_view& line : lines)
    {
        if (!line.empty() && line.back() == '\r')
        {
            line.remove_suffix(1);
        }
    }
    return lines;
}

std::string EscapeHtml(std::string_view text)
{
    std::string escaped;
    for (const char ch : text)
    {
        switch (ch)
        {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&#39;";
            break;
        default:
            escaped += (static_cast<unsigned char>(ch) < 0x20 && ch != '\n') || ch == 0x7F ? '?' : ch;
        }
    }
    return escaped;
}

std::string CountText(std::size_t nCount, const char* pszNoun)
{
    return std::to_string(nCount) + " " + pszNoun + (nCount == 1 ? "" : "s");
}

} // namespace varnex::host
