#include "host/Charset.h"
#include "host/src/CharsetEvidence.h"

#include <uchardet/uchardet.h>

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Quorva::Core {

using namespace Details;  // NOLINT(google-build-using-namespace): this file's other half

namespace {

constexpr std::string_view REPLACEMENT = "\xEF\xBF\xBD";  // U+FFFD

/// Converts to UTF-8. A last character that misses its end becomes U+FFFD; so does each unit of `unit` bytes
/// that means nothing, when `lenient`, where the conversion stops otherwise.
/// @return  nothing when it stopped, or when the system doesn't know the character set.
std::optional<std::string> Convert(std::string_view text, const char* charset, std::size_t unit, bool lenient)
{
    const iconv_t opened = ::iconv_open("UTF-8", charset);
    if (opened == reinterpret_cast<iconv_t>(-1))
        return std::nullopt;
    const std::unique_ptr<std::remove_pointer_t<iconv_t>, decltype(&::iconv_close)> converter(opened,
                                                                                              &::iconv_close);
    std::string result;
    char* in = const_cast<char*>(text.data());  // iconv doesn't write to it
    std::size_t inLeft = text.size();
    for (bool flushing = false;;) {
        char buffer[1024];
        char* out = buffer;
        std::size_t outLeft = sizeof buffer;
        // Some converters hold the last character back until they are told that nothing follows.
        const std::size_t status =
            ::iconv(converter.get(), flushing ? nullptr : &in, flushing ? nullptr : &inLeft, &out, &outLeft);
        const int error = errno;
        result.append(buffer, out);
        if (status != static_cast<std::size_t>(-1)) {
            if (flushing)
                return result;
            flushing = true;
            continue;
        }
        if (error == E2BIG)
            continue;
        if (flushing || (error != EINVAL && !lenient))
            return std::nullopt;
        const std::size_t skipped = error == EINVAL ? inLeft : std::min(inLeft, unit);
        in += skipped;
        inLeft -= skipped;
        result += REPLACEMENT;
    }
}

std::optional<std::string> ConvertStrictly(std::string_view text, const char* charset)
{
    return Convert(text, charset, 1, false);
}

/// Text in units of two or four bytes.
struct WideText {
    const char* charset;
    std::size_t unit;
    std::size_t mark;  ///< bytes of the byte order mark
};

/// Whether text behind a byte order mark of UTF-16 is 8-bit text all the same: valid UTF-8, or nearly all of
/// it ASCII, and of a length at which UTF-16 hardly ever looks like that.
bool IsNarrow(std::string_view body)
{
    constexpr std::size_t leastBytes = 6;
    const auto isControl = [](char c) {
        return IsBetween(c, 0, 0x1F) && c != '\t' && c != '\n' && c != '\r';
    };
    if (body.size() < leastBytes || std::ranges::any_of(body, isControl))
        return false;
    const auto high = static_cast<std::size_t>(std::ranges::count_if(body, IsHigh));
    return CheckUtf8(body) == Utf8State::Valid || high * 8 <= body.size();
}

std::optional<WideText> FindMarkedText(std::string_view text)
{
    using namespace std::string_view_literals;
    if (text.size() % 4 == 0 && text.starts_with("\xFF\xFE\0\0"sv))
        return WideText{"UTF-32LE", 4, 4};
    if (text.starts_with("\0\0\xFE\xFF"sv))
        return WideText{"UTF-32BE", 4, 4};
    if (text.starts_with("\xFF\xFE"sv))
        return WideText{"UTF-16LE", 2, 2};
    if (text.starts_with("\xFE\xFF"sv))
        return WideText{"UTF-16BE", 2, 2};
    return std::nullopt;
}

std::optional<WideText> FindWideText(std::string_view text)
{
    using namespace std::string_view_literals;
    if (const auto marked = FindMarkedText(text)) {
        const bool isWide = marked->unit == 4 || !IsNarrow(text.substr(marked->mark));
        return isWide ? marked : std::nullopt;
    }

    // Without a mark: Latin text has a zero in every unit, always on the same side.
    if (text.size() % 2 != 0 || text.size() < 4)
        return std::nullopt;
    std::string_view body = text;
    if (body.ends_with("\0\0"sv))
        body.remove_suffix(2);
    std::size_t zeros[2] = {};
    for (std::size_t i = 0; i < body.size(); ++i)
        zeros[i % 2] += body[i] == '\0';
    const auto most = [&](std::size_t count) { return count >= 2 && count * 2 * 4 >= body.size() * 3; };
    if (zeros[0] == 0 && most(zeros[1]))
        return WideText{"UTF-16LE", 2, 0};
    if (zeros[1] == 0 && most(zeros[0]))
        return WideText{"UTF-16BE", 2, 0};
    return std::nullopt;
}

/// What a detected set is converted from: the set that people really use under that name.
struct Detected {
    const char* name;
    const char* charset;
    enum { Latin, OneByte, TwoBytes } kind;
};

constexpr Detected detected[] = {
    {"BIG5",         "BIG5-HKSCS", Detected::TwoBytes},
    {"EUC-JP",       "EUC-JP",     Detected::TwoBytes},
    {"EUC-KR",       "UHC",        Detected::TwoBytes},
    {"GB18030",      "GB18030",    Detected::TwoBytes},
    {"GB2312",       "GB18030",    Detected::TwoBytes},
    {"IBM866",       "IBM866",     Detected::OneByte },
    {"ISO-8859-1",   "CP1252",     Detected::Latin   },
    {"ISO-8859-15",  "CP1252",     Detected::Latin   },
    {"ISO-8859-2",   "ISO-8859-2", Detected::Latin   },
    {"ISO-8859-5",   "ISO-8859-5", Detected::OneByte },
    {"ISO-8859-7",   "CP1253",     Detected::OneByte },
    {"ISO-8859-8",   "CP1255",     Detected::OneByte },
    {"ISO-8859-9",   "CP1254",     Detected::Latin   },
    {"KOI8-R",       "KOI8-U",     Detected::OneByte },
    {"SHIFT_JIS",    "CP932",      Detected::TwoBytes},
    {"TIS-620",      "CP874",      Detected::OneByte },
    {"UHC",          "UHC",        Detected::TwoBytes},
    {"WINDOWS-1250", "CP1250",     Detected::Latin   },
    {"WINDOWS-1251", "CP1251",     Detected::OneByte },
    {"WINDOWS-1252", "CP1252",     Detected::Latin   },
    {"WINDOWS-1253", "CP1253",     Detected::OneByte },
    {"WINDOWS-1254", "CP1254",     Detected::Latin   },
    {"WINDOWS-1255", "CP1255",     Detected::OneByte },
    {"WINDOWS-1256", "CP1256",     Detected::OneByte },
    {"WINDOWS-1257", "CP1257",     Detected::Latin   },
};

/// The detector's name for the set; empty when it has none. Its statistics need some hundred bytes, and a
/// title has twenty: it gets the title again and again.
std::string Detect(const std::string& text)
{
    constexpr std::size_t ENOUGH = 1024;
    const std::unique_ptr<uchardet, decltype(&uchardet_delete)> detector(uchardet_new(), &uchardet_delete);
    std::size_t given = 0;
    do {
        if (uchardet_handle_data(detector.get(), text.data(), text.size()) != 0 ||
            uchardet_handle_data(detector.get(), " ", 1) != 0)
            return {};
        given += text.size() + 1;
    } while (given < ENOUGH);
    uchardet_data_end(detector.get());
    return uchardet_get_charset(detector.get());
}

/// The detector's answer, unless the text itself speaks against it.
std::optional<std::string> ConvertAsDetected(const std::string& text, const std::string& name)
{
    constexpr std::size_t LONG = 256;  // bytes from which the detector is right about GB 18030, too

    const auto* const known = std::ranges::find(detected, name, &Detected::name);
    if (known == std::end(detected))
        return SufficesForRareSet(text) ? ConvertStrictly(text, name.c_str()) : std::nullopt;
    switch (known->kind) {
        case Detected::TwoBytes:
            if (name.starts_with("GB") && text.size() < LONG && HasKanaInGB(text))
                return std::nullopt;
            return ConvertStrictly(text, known->charset);
        case Detected::OneByte: {
            if (!HasForeignWord(text, 2))
                return std::nullopt;
            auto result = ConvertStrictly(text, known->charset);
            return result && !HasMixedWord(*result) ? result : std::nullopt;
        }
        case Detected::Latin:
            break;
    }
    return std::nullopt;  // comes last, since short words of other scripts look like Latin ones full of
                          // accents
}

/// Text of an 8-bit or multi-byte set that isn't UTF-8.
std::string ConvertLikeliest(const std::string& text)
{
    const std::string name = Detect(text);
    const auto* const known = std::ranges::find(detected, name, &Detected::name);
    const bool turkish = name == "ISO-8859-9" || name == "WINDOWS-1254";
    // One character, repeated or not, is an accent or a sign of Western text. Turkish has all of those but
    // six.
    if (HighBytes(text).distinct == 1 && !LooksLike(doubleBytes[0], text, 2) && !turkish)
        if (auto result = ConvertStrictly(text, "CP1252"))
            return *std::move(result);
    const bool greek =
        name == "ISO-8859-7" || name == "WINDOWS-1253";  // whose capitals are where CP1251's are
    const Cyrillic cyrillic = HasForeignWord(text, 3) ? LooksLikeCP1251(text) : Cyrillic::No;

    // No other set but Greek has such capitals; and in one case only, CP1251 reads as KOI8-R in the other.
    if ((cyrillic == Cyrillic::Capitalised && !greek) || (cyrillic == Cyrillic::OneCase && name == "KOI8-R"))
        if (auto result = ConvertStrictly(text, "CP1251"))
            return *std::move(result);
    if (auto result = ConvertAsDetected(text, name))
        return *std::move(result);
    if (cyrillic != Cyrillic::No)
        if (auto result = ConvertStrictly(text, "CP1251"))
            return *std::move(result);
    for (const DoubleByte& set : doubleBytes)
        if (LooksLike(set, text, 2))
            if (auto result = ConvertStrictly(text, set.charset))
                return *std::move(result);

    if (known != std::end(detected) && known->kind == Detected::Latin) {
        // ISO 8859-2 has control characters where CP1250 has letters, and capitals where that has signs.
        const bool windows =
            std::ranges::any_of(text, [](char c) { return IsBetween(c, 0x80, 0x9F); }) || HasSign(text);
        auto result = ConvertStrictly(text, windows && name == "ISO-8859-2" ? "CP1250" : known->charset);
        if (result && (turkish || HasExtendedLatin(*result)))
            return *std::move(result);
    }
    if (auto result = ConvertStrictly(text, "CP1252"))
        return *std::move(result);
    for (const DoubleByte& set : doubleBytes)
        if (LooksLike(set, text, 1))
            if (auto result = ConvertStrictly(text, set.charset))
                return *std::move(result);

    if (auto result = Convert(text, "CP1252", 1, true))
        return *std::move(result);
    // A system without the converters: what is certain is kept.
    std::string result;
    for (const char c : text)
        if (IsHigh(c))
            result += REPLACEMENT;
        else
            result += c;
    return result;
}

}  // namespace

std::string CharsetEncoding::GetReadeableString(const std::string& text)
{
    if (const auto wide = FindWideText(text)) {
        if (auto result = Convert(std::string_view(text).substr(wide->mark), wide->charset, wide->unit, true))
            return *std::move(result);
    } else if (const auto marked = FindMarkedText(text)) {
        const std::string_view mark = std::string_view(text).substr(0, marked->mark);
        const std::string body = text.substr(marked->mark);
        if (auto result = Convert(mark, "CP1252", 1, true); result && CheckUtf8(body) == Utf8State::Valid)
            return *std::move(result) + body;
    }
    switch (CheckUtf8(text)) {
        case Utf8State::Valid:
            return text;
        case Utf8State::CutOff:
            if (auto result = Convert(text, "UTF-8", 1, true))
                return *std::move(result);
            break;
        case Utf8State::Invalid:
            break;
    }
    return ConvertLikeliest(text);
}

}  // namespace Quorva::Core
