#include "tools/support/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <clocale>
#include <cwchar>
#include <utility>

namespace Quorva::Tool {

namespace {

/// One character at the start of a text.
struct Character {
    wchar_t code;
    size_t length;  ///< bytes; 0 when they are not UTF-8
};

Character FirstOf(std::string_view text)
{
    wchar_t code = 0;
    std::mbstate_t state{};
    const size_t length = std::mbrtowc(&code, text.data(), text.size(), &state);
    if (length == 0)
        return {L'\0', 1};
    return {code, length > text.size() ? 0 : length};  // errors are huge numbers
}

/// Marks that reorder what stands around them, so that a name reads as another.
bool TurnsDirection(wchar_t code)
{
    return code == 0x061c || code == 0x200e || code == 0x200f || (code >= 0x202a && code <= 0x202e) ||
           (code >= 0x2066 && code <= 0x2069);
}

}  // namespace

std::string Printable(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const auto [code, length] = FirstOf(text);
        if (length == 0)
            result += fmt::format("\\x{:02x}", static_cast<unsigned char>(text.front()));
        else if (code == L'\n')
            result += "\\n";
        else if (code == L'\r')
            result += "\\r";
        else if (code == L'\t')
            result += "\\t";
        else if (code < 0x20 || code == 0x7f)
            result += fmt::format("\\x{:02x}", static_cast<unsigned>(code));
        else if (wcwidth(code) < 0 || TurnsDirection(code))
            result += fmt::format("\\u{{{:x}}}", static_cast<unsigned>(code));
        else
            result += text.substr(0, length);
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return result;
}

size_t DisplayWidth(std::string_view text)
{
    size_t width = 0;
    while (!text.empty()) {
        const auto [code, length] = FirstOf(text);
        width += static_cast<size_t>(std::max(length ? wcwidth(code) : 1, 0));
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return width;
}

std::string Shortened(const std::string& text, size_t width)
{
    std::string_view rest = text;
    size_t taken = 0;
    while (!rest.empty()) {
        const size_t length = std::max<size_t>(FirstOf(rest).length, 1);
        taken += DisplayWidth(rest.substr(0, length));
        if (taken > width)
            break;
        rest.remove_prefix(length);
    }
    return text.substr(0, text.size() - rest.size());
}

void UseUtf8()
{
    // Part of the C library itself; without it, all but ASCII would be shown as bytes.
    std::setlocale(LC_CTYPE, "C.UTF-8");
}

std::string DurationText(int64_t microseconds)
{
    const uint64_t size =
        microseconds < 0 ? 0 - static_cast<uint64_t>(microseconds) : static_cast<uint64_t>(microseconds);
    const uint64_t milliseconds = size / 1000 + (size % 1000 >= 500);
    const uint64_t seconds = milliseconds / 1000;
    return fmt::format("{}{}:{:02}:{:02}.{:03}", microseconds < 0 ? "-" : "", seconds / 3600,
                       seconds / 60 % 60, seconds % 60, milliseconds % 1000);
}

std::string BitRateText(int64_t bitsPerSecond)
{
    if (bitsPerSecond < 10'000)
        return fmt::format("{} b/s", bitsPerSecond);
    return fmt::format("{} kb/s", bitsPerSecond / 1000 + (bitsPerSecond % 1000 >= 500));
}

void TextTable::Add(std::vector<std::string> cells)
{
    for (std::string& cell : cells)
        cell = Printable(cell);
    rows.push_back(std::move(cells));
}

void TextTable::Print(std::FILE* file) const
{
    std::vector<size_t> widths(columns.size());
    for (size_t i = 0; i < columns.size(); ++i) {
        widths[i] = DisplayWidth(columns[i].title);
        for (const auto& row : rows)
            widths[i] = std::max(widths[i], DisplayWidth(row[i]));
    }
    const auto print = [&](const auto& cellOf) {
        std::string line;
        size_t pending = 0;  // blanks that are written only when something follows them
        for (size_t i = 0; i < columns.size(); ++i) {
            const std::string& cell = cellOf(i);
            const size_t blanks = widths[i] - DisplayWidth(cell);
            const bool right = columns[i].align == Align::Right;
            if (!cell.empty()) {
                line.append(pending + (right ? blanks : 0), ' ').append(cell);
                pending = right ? 0 : blanks;
            } else {
                pending += widths[i];
            }
            pending += 2;
        }
        fmt::print(file, "{}\n", line);
    };
    print([&](size_t i) -> const std::string& { return columns[i].title; });
    for (const auto& row : rows)
        print([&](size_t i) -> const std::string& { return row[i]; });
}

}  // namespace Quorva::Tool
