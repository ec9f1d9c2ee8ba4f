// How this library raises its own exceptions: as the rest of the pipeline does.
#pragma once

#include "host/Exception.h"

#include <boost/throw_exception.hpp>

#include <source_location>
#include <string>

namespace Quorva::Details {

/// Throws `exception` with the call stack and the caller's own place. Call it from plain functions: inside a
/// template or a lambda the recorded name would be the compiler's.
template <class E>
[[noreturn]] void Raise(const E& exception, const char* function = __builtin_FUNCTION(),
                        std::source_location here = std::source_location::current())
{
    exception << TagCallStack(GetCallStack());
    boost::throw_exception(exception,
                           boost::source_location(here.file_name(), here.line(), function, here.column()));
}

/// The same for a default-constructed `E` with a description.
template <class E>
[[noreturn]] void Throw(const std::string& description, const char* function = __builtin_FUNCTION(),
                        std::source_location here = std::source_location::current())
{
    Raise(E() << TagDescription(description), function, here);
}

}  // namespace Quorva::Details
