/// @file
/// FFmpeg dictionaries: metadata and options.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/Property.h"

#include <string>

namespace Quorva::Proc {

TESSADRIN_API void PutMetadata(AVDictionary** dictionary, const char* key, const char* value);
TESSADRIN_API void PutMetadata(AVDictionary** dictionary, const char* key, const std::string& value);
TESSADRIN_API std::string GetMetadata(AVDictionary* dictionary, const char* key);
TESSADRIN_API void SetContextOptions(AVDictionary** dictionary, const Core::Property& options);
TESSADRIN_API std::string AVDictionaryToStr(AVDictionary* dictionary);
TESSADRIN_API AVStream* CreateStream(AVFormatContext* context, const AVCodec* codec);
TESSADRIN_API std::string GetMediaTypeName(AVMediaType type);
TESSADRIN_API char* stristr(char* haystack, const char* needle);

}  // namespace Quorva::Proc
