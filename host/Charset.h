/// @file
/// Text of unknown encoding.
#pragma once

#include "host/Export.h"

#include <string>

namespace Quorva::Core {

/// Text whose encoding nobody says. Any thread.
class QUORVA_HOST_API CharsetEncoding {
public:
    /// `text` as readable UTF-8. UTF-16 and UTF-32 are known by their byte order mark, and Latin UTF-16
    /// without one by its zero bytes. A mark before six or more bytes that read as 8-bit text is no mark but
    /// two letters. Other valid UTF-8 is returned unchanged, byte for byte; anything else
    /// is taken for the likeliest character set, CP1252 when none is, and for Western text with one kind of
    /// accent or sign. For titles of a few letters that is a guess: it is good for Western, Cyrillic, Greek,
    /// Hebrew, Arabic, Japanese and Chinese ones, fair for Korean. Bytes that mean nothing in the character
    /// set become U+FFFD. The result is always valid UTF-8. Throws only when memory runs out.
    static std::string GetReadeableString(const std::string& text);
};

}  // namespace Quorva::Core
