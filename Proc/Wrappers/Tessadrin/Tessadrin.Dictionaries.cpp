#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/Charset.h"
#include "host/FoundationIO.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>

namespace Quorva::Proc {

using Details::Throw;

namespace {

std::string ToText(const Core::Property& option)
{
    switch (option.Type()) {
        case PropertyTypes::Boolean:
            return option.GetBool() ? "true" : "false";
        case PropertyTypes::Double:
            return fmt::format("{:.3g}", option.GetDouble());  // with a point, whatever the locale
        case PropertyTypes::Int64:
            return std::to_string(option.GetInt64());  // a stream would group digits as the locale wants
        case PropertyTypes::String:
            return option.GetString();
        default:
            return {};
    }
}

}  // namespace

void PutMetadata(AVDictionary** dictionary, const char* key, const char* value)
{
    if (!dictionary || !key || !value)
        Throw<Core::IOException>("NULL parameter(s)");
    if (*value)
        av_dict_set(dictionary, key, value, 0);  // not examined: metadata isn't worth a throw
}

void PutMetadata(AVDictionary** dictionary, const char* key, const std::string& value)
{
    PutMetadata(dictionary, key, value.c_str());
}

std::string GetMetadata(AVDictionary* dictionary, const char* key)
{
    if (!key)
        Throw<ProcException>("GetMetadata: key is NULL");
    const AVDictionaryEntry* const entry = av_dict_get(dictionary, key, nullptr, AV_DICT_IGNORE_SUFFIX);
    return entry ? Core::CharsetEncoding::GetReadeableString(entry->value) : std::string();
}

void SetContextOptions(AVDictionary** dictionary, const Core::Property& options)
{
    if (options.Type() != PropertyTypes::Group)
        return PutMetadata(dictionary, options.Name().c_str(), ToText(options));
    for (uint64_t i = 0; i < options.Count(); ++i)
        SetContextOptions(dictionary, options[i]);
}

std::string AVDictionaryToStr(AVDictionary* dictionary)
{
    if (!dictionary)
        return "NULL";
    char* buffer = nullptr;
    // A failure leaves no text, which is what is tested.
    av_dict_get_string(dictionary, &buffer, '=', '\n');
    const std::unique_ptr<char, void (*)(void*)> owner(buffer, av_free);
    return buffer ? buffer : "Can't get data from dictionary";
}

AVStream* CreateStream(AVFormatContext* context, const AVCodec* codec)
{
    return context ? avformat_new_stream(context, codec) : nullptr;
}

std::string GetMediaTypeName(AVMediaType type)
{
    const char* const name = av_get_media_type_string(type);
    return name ? name : "unknown";
}

char* stristr(char* haystack, const char* needle)
{
    if (!haystack || !needle)
        return nullptr;
    const auto same = [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); };
    char* const end = haystack + std::strlen(haystack);
    char* const found = std::search(haystack, end, needle, needle + std::strlen(needle), same);
    return found != end || !*needle ? found : nullptr;
}

}  // namespace Quorva::Proc
