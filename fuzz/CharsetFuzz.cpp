// Any bytes become valid UTF-8, and valid UTF-8 comes back as it was, but for text with zero bytes, which may
// be taken for UTF-16.
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/Charset.h"

extern "C" {
#include <libavutil/avstring.h>
}

#include <cstdlib>

namespace {

bool IsUtf8(const std::string& text)
{
    const auto* at = reinterpret_cast<const uint8_t*>(text.data());
    const auto* const end = at + text.size();
    while (at < end) {
        int32_t code = 0;
        if (av_utf8_decode(&code, &at, end, AV_UTF8_FLAG_ACCEPT_ALL) < 0)
            return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string readable = Quorva::Core::CharsetEncoding::GetReadeableString(text);
    if (!IsUtf8(readable))
        std::abort();
    const bool zeros = readable.find('\0') != std::string::npos;
    if (!zeros && Quorva::Core::CharsetEncoding::GetReadeableString(readable) != readable)
        std::abort();
    return 0;
}
