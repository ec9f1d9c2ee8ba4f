/// @file
/// The program's JSON: valid UTF-8 whatever the files hold, members in a fixed order, null for unknown.
#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

namespace Quorva::Tool {

using Json = nlohmann::ordered_json;

/// `value` on one line; bytes that are not UTF-8 become U+FFFD.
std::string JsonText(const Json& value);

/// The "tool" member of every document: the program and the FFmpeg that runs.
Json ToolJson();

/// {"num": ..., "den": ...}; null for a denominator of 0, and for 0, which FFmpeg uses for unknown.
Json RationalJson(AVRational value);

template <class T>
Json OrNull(const std::optional<T>& value)
{
    return value ? Json(*value) : Json();
}

/// Text or, for a null pointer, null.
inline Json OrNull(const char* text) { return text ? Json(text) : Json(); }

}  // namespace Quorva::Tool
