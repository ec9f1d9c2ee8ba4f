// The texts of Conf::IFormatFile::FORMAT_*, as compile-time data: tables can be checked by the compiler, and
// need none of the constants to be built first.
#pragma once

#include <string_view>

namespace Quorva::Details {

#define FORMAT(name, text) inline constexpr std::string_view F_##name = text;
#include "host/Rows/Formats.inc"
#undef FORMAT

}  // namespace Quorva::Details
