/// @file
/// Texts of any length from a worker to its parent, as records.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Quorva::Tool {

/// Sends a text, marked by a character for what it is, in as many records as it takes.
/// @throws Core::IOException  the parent is gone
void SendText(char mark, std::string_view text);

/// Puts such texts together again.
class ReceivedTexts {
public:
    static constexpr size_t MAX_SIZE = 256 << 20;  ///< bytes of a text; what is longer is dropped

    struct Text {
        char mark;
        std::string text;
    };

    /// Takes a record. Returns the text of which it is the last one.
    std::optional<Text> Take(std::string_view record);
    /// Forgets what is incomplete.
    void Clear() { waiting.clear(); }

private:
    std::string waiting;
};

}  // namespace Quorva::Tool
