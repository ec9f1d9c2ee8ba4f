// Where tags stand: containers keep those about the whole with the file, Ogg with its streams.
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
#include "tools/Convert.Output.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Quorva::Tool {

namespace {

using Streams = std::span<AVStream* const>;

constexpr std::string_view oggMuxers[] = {"ogg", "oga", "ogv", "opus", "spx"};
/// Muxers that write any tag of a stream.
constexpr std::string_view streamTagMuxers[] = {"matroska", "webm", "nut"};
/// These write a stream's language and title.
constexpr std::string_view trackNameMuxers[] = {"mov", "mp4", "ipod", "3gp", "3g2", "psp"};

template <size_t size>
bool Contains(const std::string_view (&list)[size], std::string_view name)
{
    return std::ranges::find(list, name) != std::end(list);
}

bool IsNamed(const AVDictionaryEntry& entry, const char* key) { return av_strcasecmp(entry.key, key) == 0; }

bool IsTrackName(const AVDictionaryEntry& entry)
{
    return IsNamed(entry, "language") || IsNamed(entry, "title") || IsNamed(entry, "handler_name");
}

/// A film's title is its first stream's.
bool IsTitleOf(const AVDictionaryEntry& entry, const AVStream& stream)
{
    return IsNamed(entry, "title") && stream.index == 0;
}

std::vector<AVDictionaryEntry> EntriesOf(const AVDictionary* tags)
{
    std::vector<AVDictionaryEntry> entries;
    for (const AVDictionaryEntry* entry = nullptr; (entry = av_dict_iterate(tags, entry));)
        entries.push_back(*entry);
    return entries;
}

const char* ValueOf(const AVDictionary* tags, const char* key)
{
    const AVDictionaryEntry* entry = av_dict_get(tags, key, nullptr, 0);
    return entry ? entry->value : nullptr;
}

/// The streams' tags become the file's, also those of streams that are dropped. What a stream says
/// differently stays with it; so does a title that isn't the first stream's, and every language.
void RaiseTags(AVFormatContext& output, const AVFormatContext& input)
{
    for (const AVStream* stream : Streams(input.streams, input.nb_streams)) {
        AVDictionary* tags = nullptr;
        CopyTags(&tags, stream->metadata);
        for (const AVDictionaryEntry& entry : EntriesOf(tags))
            if (!ValueOf(output.metadata, entry.key) && (!IsTrackName(entry) || IsTitleOf(entry, *stream)))
                Proc::PutMetadata(&output.metadata, entry.key, entry.value);
        av_dict_free(&tags);
    }
    for (const AVDictionaryEntry& entry : EntriesOf(output.metadata))
        for (AVStream* stream : Streams(output.streams, output.nb_streams))
            if (const char* own = ValueOf(stream->metadata, entry.key);
                own && std::string_view(own) == entry.value)
                av_dict_set(&stream->metadata, entry.key, nullptr, 0);  // removing needs no memory
}

/// The file's tags become the first stream's, before its own. FFmpeg gives them to streams that lack them.
void LowerTags(AVFormatContext& output)
{
    for (const AVDictionaryEntry& entry : EntriesOf(output.metadata))
        Proc::PutMetadata(&output.streams[0]->metadata, entry.key, entry.value);
}

/// The only stream's tags become the file's where the container has no place for them and the file none yet.
void RaiseMissingTags(AVFormatContext& output)
{
    const bool hasTrackNames = Contains(trackNameMuxers, output.oformat->name);
    for (const AVDictionaryEntry& entry : EntriesOf(output.streams[0]->metadata))
        if (!ValueOf(output.metadata, entry.key) && !(hasTrackNames && IsTrackName(entry)))
            Proc::PutMetadata(&output.metadata, entry.key, entry.value);
}

}  // namespace

void PlaceTags(AVFormatContext& output, const AVFormatContext& input)
{
    if (output.nb_streams == 0)
        return;
    const std::string_view muxer = output.oformat->name;
    const bool fromOgg = input.iformat->name == std::string_view("ogg");
    const bool toOgg = Contains(oggMuxers, muxer);
    if (fromOgg && !toOgg)
        RaiseTags(output, input);
    if (toOgg && !fromOgg)
        LowerTags(output);
    if (output.nb_streams == 1 && !toOgg && !Contains(streamTagMuxers, muxer))
        RaiseMissingTags(output);
}

}  // namespace Quorva::Tool
