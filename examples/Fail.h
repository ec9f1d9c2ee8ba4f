// Failures of one's own that carry as much as the library's.
#pragma once

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include <boost/throw_exception.hpp>

#include <string>

/// Throws an exception with a description, the call stack and the caller's place.
template <class E = Quorva::Proc::ProcException>
[[noreturn]] void Fail(const std::string& why, const boost::source_location& place = BOOST_CURRENT_LOCATION)
{
    boost::throw_exception(E() << Quorva::TagDescription(why) << Quorva::TagCallStack(Quorva::GetCallStack()),
                           place);
}
