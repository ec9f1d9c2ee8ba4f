// What a text's bytes say for or against a character set.
#pragma once

#include <boost/locale/utf.hpp>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Quorva::Core::Details {

using Utf8 = boost::locale::utf::utf_traits<char>;

inline bool IsHigh(char c) { return static_cast<uint8_t>(c) >= 0x80; }
inline bool IsBetween(char c, uint8_t low, uint8_t high)
{
    return static_cast<uint8_t>(c) >= low && static_cast<uint8_t>(c) <= high;
}
inline bool IsAsciiLetter(char c) { return IsBetween(c, 'A', 'Z') || IsBetween(c, 'a', 'z'); }

enum class Utf8State { Valid, CutOff, Invalid };

/// CutOff: valid, with characters beyond ASCII, but for a last character that misses its end. Tags of fixed
/// length cut like this.
Utf8State CheckUtf8(std::string_view text);

/// Whether there is a word of at least `least` letters, all of them beyond ASCII.
bool HasForeignWord(std::string_view text, std::size_t least);

enum class Cyrillic { No, OneCase, Capitalised };

/// Whether all that isn't ASCII would be Cyrillic words of CP1251 with capitals where they belong.
Cyrillic LooksLikeCP1251(std::string_view text);

/// Whether letters of Latin and of another script stand side by side in UTF-8 text, none of them ASCII.
bool HasMixedWord(std::string_view text);

/// Whether UTF-8 text has letters that Central European and Baltic sets have in the place of Western ones:
/// two of them, or one beside another accent. One alone is rather an accent of Western text.
bool HasExtendedLatin(std::string_view text);

/// A character set that writes what isn't ASCII in pairs of bytes.
struct DoubleByte {
    const char* charset;
    uint8_t leadLow, leadHigh;          ///< first bytes of its common characters
    uint8_t trailLow;                   ///< second bytes; 0x7F is never one
    uint8_t telltaleLow, telltaleHigh;  ///< first bytes that hardly occur in Latin text; 0 for none
};

inline constexpr DoubleByte doubleBytes[] = {
    {"CP932",      0x81, 0x9F, 0x40, 0x82, 0x83}, // kana and kanji
    {"GB18030",    0xB0, 0xD7, 0xA1, 0,    0   }, // the 3755 common characters
    {"BIG5-HKSCS", 0xA4, 0xC6, 0x40, 0xA4, 0xBF}, // the 5401 common characters
    {"UHC",        0xB0, 0xC8, 0xA1, 0,    0   }, // hangul
};

/// Whether all that isn't ASCII could be common characters of the set, at least `least` of them in a row.
bool LooksLike(const DoubleByte& set, std::string_view text, std::size_t least);

/// Whether kana are among the characters that the text has as GB 2312: it is of another set then.
bool HasKanaInGB(std::string_view text);

/// What isn't ASCII in a text.
struct HighBytes {
    explicit HighBytes(std::string_view text);

    std::size_t count = 0;
    std::size_t distinct = 0;  ///< values
};

/// Whether the detector's statistics mean something for a set that is rarely used: there is much text, and
/// letters of the set are all over it.
bool SufficesForRareSet(std::string_view text);

/// Whether a byte that is a sign in the Windows sets for Latin, (c) or (R), stands where no capital does.
bool HasSign(std::string_view text);

}  // namespace Quorva::Core::Details
