/// @file
/// What somebody may have meant.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace Quorva::Tool {

/// The candidate that takes the fewest changes of single letters to become `name`, the first of several;
/// empty when none is near enough to be a slip.
std::string NearestName(std::string_view name, std::span<const std::string> candidates);

/// "; did you mean 'NAME'?" for the nearest candidate, else for the only one that begins so, or nothing.
std::string DidYouMean(std::string_view name, std::span<const std::string> candidates);

}  // namespace Quorva::Tool
