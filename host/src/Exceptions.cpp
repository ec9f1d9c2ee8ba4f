// The key functions of the exception classes: one copy of their type information, in this library.
#include "host/Exception.h"
#include "host/FoundationIO.h"
#include "host/MediaDescription.h"

#include <boost/exception/get_error_info.hpp>

#include <utility>

namespace Quorva {

Exception::~Exception() = default;

const char* Exception::what() const noexcept
{
    const std::string* const description = boost::get_error_info<TagDescription>(*this);
    return description ? description->c_str() : "Quorva::Exception";
}

namespace Core {

CoreException::~CoreException() = default;
IOException::~IOException() = default;

MemoryException::MemoryException(std::string description, uint64_t size)
    : description(std::move(description)), size(size)
{
}

MemoryException::~MemoryException() = default;

const char* MemoryException::what() const noexcept { return description.c_str(); }

}  // namespace Core

namespace Conf {

ConfException::~ConfException() = default;
FormatException::~FormatException() = default;

}  // namespace Conf
}  // namespace Quorva
