#include "host/src/CharsetEvidence.h"

#include <algorithm>
#include <utility>

namespace Quorva::Core::Details {

Utf8State CheckUtf8(std::string_view text)
{
    bool anyWide = false;
    for (auto at = text.begin(); at != text.end();) {
        const auto decoded = Utf8::decode(at, text.end());
        if (decoded == boost::locale::utf::incomplete && anyWide)
            return Utf8State::CutOff;
        if (!boost::locale::utf::is_valid_codepoint(decoded))
            return Utf8State::Invalid;
        anyWide |= decoded >= 0x80;
    }
    return Utf8State::Valid;
}

bool HasForeignWord(std::string_view text, std::size_t least)
{
    for (std::size_t begin = 0, end = 0; begin < text.size(); begin = end + 1) {
        end = begin;
        while (end < text.size() && IsHigh(text[end]))
            ++end;
        if (end - begin >= least && (begin == 0 || !IsAsciiLetter(text[begin - 1])) &&
            (end == text.size() || !IsAsciiLetter(text[end])))
            return true;
    }
    return false;
}

Cyrillic LooksLikeCP1251(std::string_view text)
{
    const auto isUpper = [](char c) { return IsBetween(c, 0xC0, 0xDF) || IsBetween(c, 0xA8, 0xA8); };
    const auto isLower = [](char c) { return IsBetween(c, 0xE0, 0xFF) || IsBetween(c, 0xB8, 0xB8); };
    Cyrillic result = Cyrillic::No;
    for (std::size_t begin = 0, end = 0; begin < text.size(); begin = end + 1) {
        std::size_t upper = 0, lower = 0;
        bool latin = true;
        for (end = begin; end < text.size() && (IsHigh(text[end]) || IsAsciiLetter(text[end])); ++end) {
            upper += isUpper(text[end]);
            lower += isLower(text[end]);
            latin &= !IsHigh(text[end]);
        }
        const std::size_t length = end - begin;
        if (latin)
            continue;
        const bool capitalised = upper == 1 && lower == length - 1 && isUpper(text[begin]);
        if (!capitalised && upper != length && lower != length)
            return Cyrillic::No;
        if (length >= 3)
            result = std::max(result, capitalised ? Cyrillic::Capitalised : Cyrillic::OneCase);
    }
    return result;
}

bool HasMixedWord(std::string_view text)
{
    bool latin = false;
    bool foreign = false;
    for (auto at = text.begin(); at != text.end();) {
        const auto c = Utf8::decode_valid(at);
        if (c < 0x80)
            latin = foreign = false;
        latin |= c >= 0xC0 && c < 0x250;
        foreign |= c >= 0x370 && c < 0x2000;
        if (latin && foreign)
            return true;
    }
    return false;
}

bool HasExtendedLatin(std::string_view text)
{
    const auto isExtended = [](auto c) { return c >= 0x100 && c < 0x180; };
    const auto isInitial = [](auto c) { return c == 0x10C || c == 0x150; };  // of Czech and Hungarian words
    decltype(Utf8::decode_valid(std::declval<std::string_view::iterator&>())) before = 0, first = 0;
    for (auto at = text.begin(); at != text.end();) {
        const auto c = Utf8::decode_valid(at);
        const bool sideBySide = c >= 0xC0 && before >= 0xC0 && (isExtended(c) || isExtended(before));
        if (sideBySide || (isInitial(before) && c >= 'a') || (isExtended(c) && first != 0 && first != c))
            return true;
        if (isExtended(c))
            first = c;
        before = c;
    }
    return false;
}

bool LooksLike(const DoubleByte& set, std::string_view text, std::size_t least)
{
    std::size_t run = 0;
    bool evidence = false;
    bool found = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (!IsHigh(text[i])) {
            run = 0;
            evidence = false;
            continue;
        }
        if (!IsBetween(text[i], set.leadLow, set.leadHigh))
            return false;
        if (i + 1 == text.size())
            break;  // a tag of fixed length has cut it off
        if (!IsBetween(text[i + 1], set.trailLow, 0xFE))
            return false;
        // A letter with an accent before a plain one, twice, is none: some names are like that.
        evidence |= IsHigh(text[i + 1]) || IsBetween(text[i], set.telltaleLow, set.telltaleHigh);
        ++run;
        ++i;
        found |= run >= least && (evidence || least == 1);
    }
    return found;
}

bool HasKanaInGB(std::string_view text)
{
    for (std::size_t i = 0; i + 1 < text.size(); ++i)
        if (IsHigh(text[i])) {
            if (IsBetween(text[i], 0xA4, 0xA5))
                return true;
            ++i;
        }
    return false;
}

HighBytes::HighBytes(std::string_view text)
{
    bool seen[0x100] = {};
    for (const char c : text)
        if (IsHigh(c)) {
            ++count;
            distinct += !std::exchange(seen[static_cast<uint8_t>(c)], true);
        }
}

bool SufficesForRareSet(std::string_view text)
{
    const HighBytes high(text);
    return text.size() >= 256 && high.distinct >= 4 && high.count * 50 >= text.size();
}

bool HasSign(std::string_view text)
{
    const auto isLetter = [](char c) { return IsHigh(c) || IsAsciiLetter(c); };
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (!IsBetween(text[i], 0xA9, 0xA9) && !IsBetween(text[i], 0xAE, 0xAE))
            continue;
        const char before = i > 0 ? text[i - 1] : ' ', after = i + 1 < text.size() ? text[i + 1] : ' ';
        if (!isLetter(after) && !IsBetween(before, 'A', 'Z') && !IsHigh(before))
            return true;
    }
    return false;
}

}  // namespace Quorva::Core::Details
