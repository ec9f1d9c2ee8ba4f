#pragma once

#include "host/Exception.h"

#include <boost/exception/exception.hpp>
#include <boost/exception/info.hpp>
#include <boost/throw_exception.hpp>

#include <source_location>
#include <stdexcept>
#include <string>

namespace Quorva::Proc::Details {

/// The key that a table lacks. The message of the exception is the same for every key.
using TagMissingKey = boost::error_info<struct TagMissingKeyName, std::string>;

[[noreturn]] inline void RaiseMissingKey(const std::string& key, const char* function,
                                         std::source_location here)
{
    boost::throw_exception(boost::enable_error_info(std::out_of_range("invalid unordered_map<K, T> key"))
                               << TagMissingKey(key) << TagCallStack(GetCallStack()),
                           {here.file_name(), here.line(), function, here.column()});
}

/// The value under a key that a table can't do without.
/// @throws std::out_of_range  there is none; carries TagMissingKey and the caller's place.
template <class Map>
const typename Map::mapped_type& RequiredValue(const Map& map, const std::string& key,
                                               const char* function = __builtin_FUNCTION(),
                                               std::source_location here = std::source_location::current())
{
    const auto found = map.find(key);
    if (found == map.end())
        RaiseMissingKey(key, function, here);
    return found->second;
}

}  // namespace Quorva::Proc::Details
