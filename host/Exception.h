/// @file
/// The root of the pipeline's exceptions, and what every one of them carries.
#pragma once

#include "host/Export.h"

#include <boost/exception/exception.hpp>
#include <boost/exception/info.hpp>

#include <exception>
#include <string>

namespace Quorva {

/// Root of the family. Catch it, `std::exception` or `boost::exception`; the last holds the attached values.
class QUORVA_HOST_API Exception : public virtual std::exception, public virtual boost::exception {
public:
    Exception() = default;
    Exception(const Exception&) = default;
    ~Exception() override;

    /// The attached description, or the family's name when none is attached. Valid while the exception lives.
    const char* what() const noexcept override;
};

/// What failed, for people.
using TagDescription = boost::error_info<struct TagDescriptionName, std::string>;
/// Where the program was, as GetCallStack() writes it.
using TagCallStack = boost::error_info<struct TagCallStackName, std::string>;

/// The calls that led here, innermost first, one line each: number, address, function and offset, library.
/// Names come from the dynamic symbol tables and are kept per address: the first call costs about half a
/// millisecond, later ones some microseconds. Never empty; throws only when memory runs out.
QUORVA_HOST_API std::string GetCallStack();

}  // namespace Quorva
