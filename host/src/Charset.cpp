#include "host/Charset.h"

#include <uchardet/uchardet.h>
#include <boost/locale/utf.hpp>

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <string_view>
#include <type_traits>

namespace Quorva::Core {
namespace {

constexpr std::string_view REPLACEMENT = "\xEF\xBF\xBD";  // U+FFFD

/// A character set as iconv names it, and the bytes of its smallest unit.
struct Charset {
    const char* name;
    std::size_t unit;
};

bool IsValidUtf8(std::string_view text)
{
    using Traits = boost::locale::utf::utf_traits<char>;
    for (auto at = text.begin(); at != text.end();)
        if (!boost::locale::utf::is_valid_codepoint(Traits::decode(at, text.end())))
            return false;
    return true;
}

/// Fails only when the character set isn't installed; then the result is false and `result` is undefined.
bool Convert(std::string_view text, const Charset& from, std::string& result)
{
    const iconv_t opened = ::iconv_open("UTF-8", from.name);
    if (opened == reinterpret_cast<iconv_t>(-1))
        return false;
    const auto close = [](iconv_t converter) { ::iconv_close(converter); };
    const std::unique_ptr<std::remove_pointer_t<iconv_t>, decltype(close)> converter(opened, close);

    result.clear();
    char* in = const_cast<char*>(text.data());  // iconv doesn't write to it
    std::size_t inLeft = text.size();
    while (inLeft != 0) {
        char buffer[1024];
        char* out = buffer;
        std::size_t outLeft = sizeof buffer;
        const std::size_t status = ::iconv(converter.get(), &in, &inLeft, &out, &outLeft);
        const int error = errno;
        result.append(buffer, out);
        if (status != static_cast<std::size_t>(-1) || error == E2BIG)
            continue;
        const std::size_t skipped = std::min(inLeft, from.unit);
        in += skipped;
        inLeft -= skipped;
        result += REPLACEMENT;
    }
    return true;
}

}  // namespace

std::string CharsetEncoding::GetReadeableString(const std::string& text)
{
    if (IsValidUtf8(text))
        return text;
    std::string result;
    const std::unique_ptr<uchardet, decltype(&uchardet_delete)> detector(uchardet_new(), &uchardet_delete);
    if (uchardet_handle_data(detector.get(), text.data(), text.size()) == 0) {
        uchardet_data_end(detector.get());
        if (Convert(text, {uchardet_get_charset(detector.get()), 1}, result))
            return result;
    }
    if (!Convert(text, {"CP1252", 1}, result))
        Convert(text, {"ISO-8859-1", 1}, result);
    return result;
}

}  // namespace Quorva::Core
