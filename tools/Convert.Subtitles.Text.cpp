#include "tools/Convert.Subtitles.Text.h"

#include <fmt/format.h>

#include <charconv>

namespace Quorva::Tool {

namespace {

/// Positions of the style and of the text in an event, counted in commas.
constexpr int styleField = 2;
constexpr int textField = 8;

constexpr std::string_view brace = "\\{{}";         // how FFmpeg's decoders write a brace that is text
constexpr std::string_view backslash = "\\\u2060";  // and a backslash
constexpr std::string_view lineBreak = "\\N";

/// What follows the `count`th comma; empty where there are fewer.
std::string_view Behind(std::string_view text, int count)
{
    for (; count > 0; --count) {
        const size_t comma = text.find(',');
        if (comma == std::string_view::npos)
            return {};
        text.remove_prefix(comma + 1);
    }
    return text;
}

/// The block of codes or the comment that the text begins with; empty for none.
std::string_view BlockAt(std::string_view text)
{
    const size_t end = text.starts_with('{') ? text.find('}') : std::string_view::npos;
    return end == std::string_view::npos ? std::string_view() : text.substr(0, end + 1);
}

/// Whether "{\p1}" begins a drawing in the block, or "{\p0}" ends one.
bool IsDrawing(std::string_view block, bool before)
{
    for (size_t at = 0; (at = block.find("\\p", at)) != std::string_view::npos; at += 2)
        if (block[at + 2] >= '0' && block[at + 2] <= '9')  // a block ends with a brace
            before = block[at + 2] != '0';
    return before;
}

bool IsLineBreak(char letter) { return letter == 'N' || letter == 'n' || letter == 'h'; }

class Adapter {
public:
    Adapter(std::string_view text, AVCodecID source, AVCodecID target)
        : rest(text), source(source), target(target)
    {
    }
    std::string Adapt()
    {
        while (!rest.empty())
            Step();
        return std::move(result);
    }

private:
    void Step();
    void AddBlock(std::string_view block);
    void AddBrace() { result += IsAss() ? brace : "{"; }
    void AddLetter();
    bool IsAss() const { return target == AV_CODEC_ID_ASS; }
    bool IsEndedByEmptyLine() const { return target == AV_CODEC_ID_SUBRIP || target == AV_CODEC_ID_WEBVTT; }

    std::string_view rest;
    const AVCodecID source;
    const AVCodecID target;
    std::string result;
};

void Adapter::Step()
{
    if (rest.starts_with(brace)) {
        rest.remove_prefix(brace.size());
        AddBrace();
    } else if (const std::string_view block = BlockAt(rest); !block.empty()) {
        AddBlock(block);
    } else if (rest.starts_with(backslash) && !IsAss() &&
               (rest.size() == backslash.size() || !IsLineBreak(rest[backslash.size()]))) {
        rest.remove_prefix(backslash.size());
        result += '\\';
    } else if (rest.starts_with(lineBreak)) {
        rest.remove_prefix(lineBreak.size());
        if (!IsEndedByEmptyLine() || !(result.empty() || result.ends_with(lineBreak)))
            result += lineBreak;
    } else {
        AddLetter();
    }
}

void Adapter::AddBlock(std::string_view block)
{
    if (block.find('\\') == std::string_view::npos && source != AV_CODEC_ID_ASS &&
        source != AV_CODEC_ID_SSA) {
        rest.remove_prefix(1);
        return AddBrace();
    }
    rest.remove_prefix(block.size());
    if (block.find('\\') == std::string_view::npos)
        return;  // a comment
    for (; !block.empty(); block.remove_prefix(1)) {
        result += block.front();
        if (target == AV_CODEC_ID_MOV_TEXT && block.front() == '\\' && block.size() > 2 && block[1] == 'c' &&
            std::string_view("&\\}").find(block[2]) != std::string_view::npos)
            result += '1';
    }
}

void Adapter::AddLetter()
{
    const char letter = rest.front();
    rest.remove_prefix(1);
    if (target == AV_CODEC_ID_WEBVTT && (letter == '&' || letter == '<' || letter == '>'))
        result += letter == '&' ? "&amp;" : letter == '<' ? "&lt;" : "&gt;";
    else
        result += letter;
}

/// 0 for the lower third of the picture, 1 for the middle, 2 for the upper one.
int RowOf(std::string_view line)
{
    double number = 0;
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number);
    if (error != std::errc())
        return 0;
    if (end != line.data() + line.size() && *end == '%')
        return number < 34 ? 2 : number < 67 ? 1 : 0;
    return number >= 0 && !line.starts_with('-') ? 2 : 0;  // lines are counted from the top
}

/// 0 at the left, 1 in the middle, 2 at the right.
int ColumnOf(std::string_view align)
{
    return align == "start" || align == "left" ? 0 : align == "end" || align == "right" ? 2 : 1;
}

}  // namespace

std::string_view TextOf(std::string_view event) { return Behind(event, textField); }

bool HasText(std::string_view text)
{
    bool drawing = false;
    while (!text.empty()) {
        if (text.starts_with(brace))
            return true;
        if (const std::string_view block = BlockAt(text); !block.empty()) {
            // "{comment}" is text outside ASS: better an event too many than one too few.
            if (block.find('\\') == std::string_view::npos)
                return true;
            drawing = IsDrawing(block, drawing);
            text.remove_prefix(block.size());
        } else if (text.front() == '\\' && text.size() > 1 && IsLineBreak(text[1])) {
            text.remove_prefix(2);
        } else if (drawing || std::string_view(" \t\r\n").find(text.front()) != std::string_view::npos) {
            text.remove_prefix(1);
        } else {
            return true;
        }
    }
    return false;
}

std::string JoinEvents(std::span<const std::string> events)
{
    std::string joined = events.front();
    for (const std::string& event : events.subspan(1)) {
        const std::string_view style = Behind(event, styleField);
        joined += fmt::format("\\N{{\\r{}}}{}", style.substr(0, style.find(',')), TextOf(event));
    }
    return joined;
}

std::string AdaptEvent(std::string_view event, AVCodecID source, AVCodecID target)
{
    const std::string_view text = TextOf(event);
    return std::string(event.substr(0, event.size() - text.size())) + Adapter(text, source, target).Adapt();
}

std::string CueSettings(std::string_view text)
{
    const size_t at = text.find("\\an");
    if (at == std::string_view::npos || at + 3 >= text.size() || text[at + 3] < '1' || text[at + 3] > '9')
        return {};
    const int place = text[at + 3] - '1';  // as on a keyboard for numbers
    constexpr std::string_view rows[] = {"", "line:50%", "line:0"};
    constexpr std::string_view columns[] = {"align:start", "", "align:end"};
    const std::string_view row = rows[place / 3], column = columns[place % 3];
    return fmt::format("{}{}{}", row, row.empty() || column.empty() ? "" : " ", column);
}

std::string PlaceCode(std::string_view settings)
{
    int row = 0, column = 1;
    while (!settings.empty()) {
        const size_t end = std::min(settings.find_first_of(" \t"), settings.size());
        std::string_view setting = settings.substr(0, end);
        settings.remove_prefix(std::min(end + 1, settings.size()));
        if (setting.starts_with("line:"))
            row = RowOf(setting.substr(5));
        else if (setting.starts_with("align:"))
            column = ColumnOf(setting.substr(6));
    }
    const int place = row * 3 + column + 1;
    return place == 2 ? std::string() : fmt::format("{{\\an{}}}", place);
}

}  // namespace Quorva::Tool
