/// @file
/// Text for people: harmless on a terminal, aligned in columns.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace Quorva::Tool {

/// `text` on one line and without anything that a terminal would obey: control characters, marks that turn
/// the writing direction, and bytes that are not UTF-8 are shown as \n, \x1b or \u{202e}. A backslash stays
/// as it is. The C library's character type has to be UTF-8 (see UseUtf8()).
std::string Printable(std::string_view text);

/// Columns that `text`, made by Printable(), takes on a terminal.
size_t DisplayWidth(std::string_view text);

/// The longest beginning of `text`, made by Printable(), that takes at most `width` columns.
std::string Shortened(const std::string& text, size_t width);

/// Makes the C library take text for UTF-8 whatever the user's locale is; numbers keep their decimal point.
void UseUtf8();

/// "0:00:02.040" from microseconds.
std::string DurationText(int64_t microseconds);

/// "309 kb/s" from bits per second.
std::string BitRateText(int64_t bitsPerSecond);

/// Rows of text in columns that are as wide as they need to be.
class TextTable {
public:
    enum class Align { Left, Right };
    struct Column {
        std::string title;
        Align align = Align::Left;
    };

    explicit TextTable(std::vector<Column> columns) : columns(std::move(columns)) {}

    /// @param cells  one for each column, made harmless here
    void Add(std::vector<std::string> cells);
    /// Writes the titles and the rows.
    void Print(std::FILE* file) const;

private:
    std::vector<Column> columns;
    std::vector<std::vector<std::string>> rows;
};

}  // namespace Quorva::Tool
