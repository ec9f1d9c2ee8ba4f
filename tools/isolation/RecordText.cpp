#include "tools/isolation/RecordText.h"

#include "tools/isolation/ControlChannel.h"
#include "tools/isolation/Worker.h"

#include <utility>

namespace Quorva::Tool {

namespace {

constexpr char MORE = '+';  ///< the mark of records that are not the last one of their text
constexpr size_t PIECE = ControlMessage::MAX_SIZE - 1;

void SendMarked(char mark, std::string_view piece) { SendRecord(std::string(1, mark).append(piece)); }

}  // namespace

void SendText(char mark, std::string_view text)
{
    for (; text.size() > PIECE; text.remove_prefix(PIECE))
        SendMarked(MORE, text.substr(0, PIECE));
    SendMarked(mark, text);
}

std::optional<ReceivedTexts::Text> ReceivedTexts::Take(std::string_view record)
{
    if (record.empty())
        return std::nullopt;
    if (waiting.size() + record.size() > MAX_SIZE)
        waiting.clear();
    waiting += record.substr(1);
    if (record.front() == MORE)
        return std::nullopt;
    return Text{record.front(), std::exchange(waiting, {})};
}

}  // namespace Quorva::Tool
