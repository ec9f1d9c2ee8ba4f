/// @file
/// Text of unknown encoding.
#pragma once

#include "host/Export.h"

#include <string>

namespace Quorva::Core {

class QUORVA_HOST_API CharsetEncoding {
public:
    /// `text` as readable UTF-8. Valid UTF-8 is returned unchanged, byte for byte; UTF-16 and UTF-32 by their
    /// byte order mark (and UTF-16 without one when its zero bytes give it away); anything else by the most
    /// likely character set, CP1252 when none is. Bytes that mean nothing in it become U+FFFD. The result is
    /// always valid UTF-8; throws only when memory runs out.
    static std::string GetReadeableString(const std::string& text);
};

}  // namespace Quorva::Core
