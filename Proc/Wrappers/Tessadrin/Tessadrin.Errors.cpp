#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

namespace Quorva::Proc {

using Details::Throw;

namespace {

struct ErrorText {
    int code;
    const char* text;
};

// clang-format off
constexpr ErrorText errorTexts[] = {
    {AVERROR_BSF_NOT_FOUND,      "Bitstream filter not found"                     },
    {AVERROR_BUG,                "Internal bug, should not have happened"         },
    {AVERROR_BUG2,               "Internal bug, should not have happened"         },
    {AVERROR_BUFFER_TOO_SMALL,   "Buffer too small"                               },
    {AVERROR_DECODER_NOT_FOUND,  "Decoder not found"                              },
    {AVERROR_DEMUXER_NOT_FOUND,  "Demuxer not found"                              },
    {AVERROR_ENCODER_NOT_FOUND,  "Encoder not found"                              },
    {AVERROR_EOF,                "End of file"                                    },
    {AVERROR_EXIT,               "Immediate exit requested"                       },
    {AVERROR_EXTERNAL,           "Generic error in an external library"           },
    {AVERROR_FILTER_NOT_FOUND,   "Filter not found"                               },
    {AVERROR_INVALIDDATA,        "Invalid data found when processing input"       },
    {AVERROR_MUXER_NOT_FOUND,    "Muxer not found"                                },
    {AVERROR_OPTION_NOT_FOUND,   "Option not found"                               },
    {AVERROR_PATCHWELCOME,       "Not yet implemented in FFmpeg, patches welcome" },
    {AVERROR_PROTOCOL_NOT_FOUND, "Protocol not found"                             },
    {AVERROR_STREAM_NOT_FOUND,   "Stream not found"                               },
    {AVERROR_UNKNOWN,            "Unknown error occurred"                         },
    {AVERROR(ENOMEM),            "Out of memory"                                  },
    {AVERROR(EINVAL),            "Invalid parameters"                             },
};
// clang-format on
static_assert(std::size(errorTexts) == 20);

}  // namespace

ProcException::~ProcException() = default;
ParserException::~ParserException() = default;
EncoderException::~EncoderException() = default;
FilterException::~FilterException() = default;
EffectException::~EffectException() = default;

void Details::RaiseLogicError(const std::string& description, const char* function, std::source_location here)
{
    boost::throw_exception(std::logic_error(description + "\n" + GetCallStack()),
                           {here.file_name(), here.line(), function, here.column()});
}

std::string GetErrorDescriptionFFMPEG(int errorCode)
{
    const auto found = std::ranges::find(errorTexts, errorCode, &ErrorText::code);
    if (found != std::end(errorTexts))
        return found->text;

    char text[256] = {};
#ifdef __GLIBC__
    // The POSIX function under this name fills the buffer; GNU's own may not, and returns the text instead.
    const char* described = strerror_r(errorCode, text, sizeof text);
#else
    const char* described = strerror_r(errorCode, text, sizeof text) < 0 ? nullptr : text;
#endif
    if (!described)
        return fmt::format("Error number {}", errorCode);
    return fmt::format("{} ({})", described, errorCode);
}

// NOLINTBEGIN(bugprone-suspicious-stringview-data-usage): the name is NUL-terminated by contract
void AVOptSetter::Set(int value) { CheckResult(av_opt_set_int(object, name.data(), value, searchFlags)); }

void AVOptSetter::Set(double value)
{
    CheckResult(av_opt_set_double(object, name.data(), value, searchFlags));
}

void AVOptSetter::Set(AVPixelFormat value)
{
    CheckResult(av_opt_set_pixel_fmt(object, name.data(), value, searchFlags));
}
// NOLINTEND(bugprone-suspicious-stringview-data-usage)

void AVOptSetter::CheckResult(int result)
{
    if (result == AVERROR_OPTION_NOT_FOUND)
        Throw<ProcException>("Can't find '{}' option to configure", name);
    if (result == AVERROR(ERANGE))
        Throw<ProcException>("'{}' option is out of range", name);
    if (result < 0)
        Throw<ProcException>("Can't set '{}' option", name);
}

}  // namespace Quorva::Proc
