/// @file
/// The library's exceptions, the only two ways it raises one, and FFmpeg's results as text.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/Exception.h"

#include <fmt/format.h>
#include <boost/throw_exception.hpp>

#include <source_location>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Quorva::Proc {

/// Any failure without a class of its own: invalid arguments, refused options, unknown formats, hardware.
class TESSADRIN_API ProcException : public Exception {
public:
    ProcException() = default;
    ProcException(const ProcException&) = default;
    ~ProcException() override;
};

/// A codec context cannot be created.
class TESSADRIN_API ParserException : public ProcException {
public:
    ParserException() = default;
    ParserException(const ParserException&) = default;
    ~ParserException() override;
};

/// No encoder exists for a codec; carries TagCodecID.
class TESSADRIN_API EncoderException : public ProcException {
public:
    EncoderException() = default;
    EncoderException(const EncoderException&) = default;
    ~EncoderException() override;
};

/// The resampler failed.
class TESSADRIN_API FilterException : public ProcException {
public:
    FilterException() = default;
    FilterException(const FilterException&) = default;
    ~FilterException() override;
};

/// The scaler refuses a pixel format.
class TESSADRIN_API EffectException : public ProcException {
public:
    EffectException() = default;
    EffectException(const EffectException&) = default;
    ~EffectException() override;
};

/// Text identifier of the codec concerned.
using TagCodecID = boost::error_info<struct TagCodecIDName, std::string>;

namespace Details {

/// Throws `exception` with the call stack attached and the caller's own place (file, line, function, column)
/// as throw location. For exceptions that need more than a description.
template <class E>
[[noreturn]] void Raise(const E& exception, const char* function = __builtin_FUNCTION(),
                        std::source_location here = std::source_location::current())
{
    exception << TagCallStack(GetCallStack());
    boost::throw_exception(exception, {here.file_name(), here.line(), function, here.column()});
}

/// A format string that remembers where it was written; checked against its arguments when compiled.
template <class... Args>
struct Description {
    template <class Text>
    consteval Description(const Text& text, const char* caller = __builtin_FUNCTION(),
                          std::source_location place = std::source_location::current())
        : format(text), function(caller), here(place)
    {
    }

    fmt::format_string<Args...> format;
    const char* function;
    std::source_location here;
};

/// Throws a default-constructed `E` that carries the formatted description.
template <class E, class... Args>
[[noreturn]] void Throw(Description<std::type_identity_t<Args>...> description, Args&&... args)
{
    Raise(E() << TagDescription(fmt::format(description.format, std::forward<Args>(args)...)),
          description.function, description.here);
}

/// Throws `std::logic_error`: a table of the library contradicts another. The standard class carries no
/// attached values, so the call stack follows the description in its message, on the next line.
[[noreturn]] TESSADRIN_API void RaiseLogicError(const std::string& description,
                                                const char* function = __builtin_FUNCTION(),
                                                std::source_location here = std::source_location::current());

}  // namespace Details

/// FFmpeg's result as text: a fixed text for twenty codes, otherwise the C library's text for the number as
/// it stands, with the number in brackets. Never throws but for want of memory.
TESSADRIN_API std::string GetErrorDescriptionFFMPEG(int errorCode);

/// Sets one named option of one FFmpeg object; a refusal becomes a ProcException that names the option.
class TESSADRIN_API AVOptSetter {
public:
    /// @param owner   an FFmpeg object whose first member is its AVClass; not owned by the setter
    /// @param option  the whole of a NUL-terminated text, which outlives the setter: FFmpeg reads the name to
    ///                its NUL, exceptions quote it by the view's length
    /// @param flags   AV_OPT_SEARCH_*, or 0
    AVOptSetter(void* owner, std::string_view option, int flags)
        : object(owner), name(option), searchFlags(flags)
    {
    }

    /// @throws ProcException  FFmpeg knows no such option, the value is out of its range, or it is refused.
    void Set(int value);
    void Set(double value);
    void Set(AVPixelFormat value);

private:
    void CheckResult(int result);

    void* object;
    std::string_view name;
    int searchFlags;
};

}  // namespace Quorva::Proc
