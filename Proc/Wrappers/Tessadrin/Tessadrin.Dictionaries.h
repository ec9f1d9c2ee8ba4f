/// @file
/// FFmpeg dictionaries as metadata and as options; streams and names.
///
/// Dictionaries belong to the caller, who frees them with `av_dict_free`; a null one is empty. Keys are
/// compared without regard to the case of ASCII letters.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/Property.h"

#include <string>

namespace Quorva::Proc {

/// Adds a copy of key and value, in place of an entry with the same key. An empty value adds nothing and
/// leaves such an entry as it is. When FFmpeg is out of memory nothing is reported: the entry isn't there
/// afterwards, and a former one with the same key may be gone.
///
/// @param dictionary  created where it points to null
/// @throws Core::IOException  one of the arguments is null
TESSADRIN_API void PutMetadata(AVDictionary** dictionary, const char* key, const char* value);
TESSADRIN_API void PutMetadata(AVDictionary** dictionary, const char* key, const std::string& value);

/// The value of the first entry whose key begins with `key`, as readable UTF-8 whatever its encoding; empty
/// when there is none.
///
/// @throws ProcException  the key is null
TESSADRIN_API std::string GetMetadata(AVDictionary* dictionary, const char* key);

/// Adds a tree of values as text, each under its own name; groups give their children, not their names. Where
/// names repeat, the later value stays. Floating point is written with three significant digits and a point
/// (29.97 as "30", 1234.5 as "1.23e+03"), whatever the locale. Empty texts, binary and empty properties add
/// nothing.
///
/// @throws Core::IOException  the dictionary is null, whatever the value is: empty texts, binary and empty
///                            properties throw too, and only a tree of nothing but groups doesn't
TESSADRIN_API void SetContextOptions(AVDictionary** dictionary, const Core::Property& options);

/// All entries as "key=value", one a line; FFmpeg escapes '=', line feeds and backslashes inside them with a
/// backslash. "NULL" for null, "Can't get data from dictionary" when FFmpeg gives no text.
TESSADRIN_API std::string AVDictionaryToStr(AVDictionary* dictionary);

/// A new stream that belongs to `context`; null when FFmpeg can't make one or `context` is null.
///
/// @param codec  may be null
TESSADRIN_API AVStream* CreateStream(AVFormatContext* context, const AVCodec* codec);

/// FFmpeg's name of the type (video, audio, data, subtitle, attachment); "unknown" where it has none.
TESSADRIN_API std::string GetMediaTypeName(AVMediaType type);

/// Finds text without regard to case; letters are those of the C library's current locale, byte by byte, so
/// that outside ASCII it depends on that locale.
///
/// @return  a pointer into `haystack`, to its first byte for an empty needle; null when the needle isn't in
///          it or an argument is null
TESSADRIN_API char* stristr(char* haystack, const char* needle);

}  // namespace Quorva::Proc
