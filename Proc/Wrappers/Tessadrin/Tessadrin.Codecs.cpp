#include "Proc/Wrappers/Tessadrin/Tessadrin.Codecs.h"

#include "Proc/Wrappers/Tessadrin/CodecList.h"
#include "Proc/Wrappers/Tessadrin/Details/Loaded.h"
#include "Proc/Wrappers/Tessadrin/Details/SelectionRows.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include <algorithm>
#include <span>
#include <sstream>
#include <string_view>
#include <tuple>

namespace Quorva::Proc {

using Details::CodecChoice;
using Details::GetLoaded;
using Details::Selection;
using Details::SelectionRow;

namespace {

/// Codecs by name, as far as rows name them; null where none has come so far.
using Named = boost::unordered_flat_map<std::string_view, const AVCodec*>;

Named NamesOf(std::span<const SelectionRow> rows)
{
    Named named;
    named.reserve(rows.size());
    for (const SelectionRow& row : rows)
        named.emplace(row.name, nullptr);
    return named;
}

/// As avcodec_find_decoder_by_name() and its twin do: the first of that name.
void AddNamed(Named& named, const AVCodec* codec)
{
    if (!codec->name)
        return;
    if (const auto found = named.find(codec->name); found != named.end() && !found->second)
        found->second = codec;
}

std::vector<CodecChoice::Custom> FromRows(std::span<const SelectionRow> rows, const Named& named)
{
    std::vector<CodecChoice::Custom> custom;
    custom.reserve(rows.size());
    for (const auto& [id, implementation, name] : rows)
        custom.push_back({id, *implementation, named.at(name)});
    std::ranges::sort(custom, {}, [](const auto& row) { return std::tie(row.id, row.implementation); });
    return custom;
}

/// FFmpeg's rule where several codecs serve one identifier: the first, but an experimental one that comes
/// first only holds the place until the next, whatever that is.
/// @param all  in FFmpeg's order
std::vector<std::pair<AVCodecID, const AVCodec*>> DefaultsOf(std::vector<const AVCodec*> all)
{
    std::ranges::stable_sort(all, {}, &AVCodec::id);
    std::vector<std::pair<AVCodecID, const AVCodec*>> defaults;
    defaults.reserve(all.size());
    for (size_t i = 0; i < all.size(); ++i) {
        const bool isFirst = i == 0 || all[i - 1]->id != all[i]->id;
        const bool replaces = !isFirst && (i == 1 || all[i - 2]->id != all[i]->id) &&
                              all[i - 1]->capabilities & AV_CODEC_CAP_EXPERIMENTAL;
        if (isFirst)
            defaults.emplace_back(all[i]->id, all[i]);
        else if (replaces)
            defaults.back().second = all[i];
    }
    defaults.shrink_to_fit();
    return defaults;
}

/// Whether one of the codec's device configurations, by whatever method, has this format.
bool OffersFormat(const AVCodec* codec, AVPixelFormat format)
{
    for (int i = 0; const AVCodecHWConfig* config = avcodec_get_hw_config(codec, i); ++i)
        if (config->pix_fmt == format)
            return true;
    return false;
}

std::string LongName(const AVCodec* codec) { return codec && codec->long_name ? codec->long_name : ""; }

void WriteSorted(std::ostream& text, std::vector<std::string_view>& names)
{
    std::ranges::sort(names);
    for (const std::string_view name : names)
        text << name << '\n';
}

}  // namespace

Selection::Selection()
{
    for (const auto& [implementation, format] : Details::hardwareRows)
        hardwareFormats.emplace(*implementation, format);

    // One pass: FFmpeg's own searches would each make one.
    Named namedDecoders = NamesOf(Details::decoderRows), namedEncoders = NamesOf(Details::encoderRows);
    std::vector<const AVCodec*> allDecoders, allEncoders;
    allDecoders.reserve(600);
    allEncoders.reserve(300);
    for (void* position = nullptr; const AVCodec* codec = av_codec_iterate(&position);) {
        if (av_codec_is_decoder(codec)) {
            allDecoders.push_back(codec);
            AddNamed(namedDecoders, codec);
        }
        if (av_codec_is_encoder(codec)) {
            allEncoders.push_back(codec);
            AddNamed(namedEncoders, codec);
        }
    }
    decoders.defaults = DefaultsOf(std::move(allDecoders));
    encoders.defaults = DefaultsOf(std::move(allEncoders));
    decoders.custom = FromRows(Details::decoderRows, namedDecoders);
    encoders.custom = FromRows(Details::encoderRows, namedEncoders);
}

const AVCodec* CodecChoice::Find(AVCodecID id, const std::string& implementation) const noexcept
{
    for (auto row = std::ranges::lower_bound(custom, id, {}, &Custom::id);
         row != custom.end() && row->id == id; ++row)
        if (row->implementation == implementation)
            return row->codec;
    const auto found =
        std::ranges::lower_bound(defaults, id, {}, &std::pair<AVCodecID, const AVCodec*>::first);
    return found == defaults.end() || found->first != id ? nullptr : found->second;
}

std::vector<std::pair<AVCodecID, std::string>> CodecChoice::Keys() const
{
    std::vector<std::pair<AVCodecID, std::string>> keys;
    keys.reserve(custom.size());
    for (const Custom& row : custom)
        keys.emplace_back(row.id, row.implementation);
    return keys;
}

const AVCodec* FindDecoder(AVCodecID id, const std::string& implementation)
{
    const Selection& selection = GetLoaded().selection;
    const AVCodec* candidate = selection.decoders.Find(id, implementation);
    const auto format = selection.hardwareFormats.find(implementation);
    if (!candidate || format == selection.hardwareFormats.end() || OffersFormat(candidate, format->second))
        return candidate;
    return nullptr;
}

const AVCodec* FindDecoder(const std::string& textId, const std::string& implementation)
{
    return FindDecoder(CodecIDFromTextID(textId), implementation);
}

const AVCodec* FindEncoder(AVCodecID id, const std::string& implementation)
{
    return GetLoaded().selection.encoders.Find(id, implementation);
}

const AVCodec* FindEncoder(const std::string& textId, const std::string& implementation)
{
    return FindEncoder(CodecIDFromTextID(textId), implementation);
}

std::vector<std::pair<AVCodecID, std::string>> GetCustomFFDecodersList()
{
    return GetLoaded().selection.decoders.Keys();
}

std::vector<std::pair<AVCodecID, std::string>> GetCustomFFEncodersList()
{
    return GetLoaded().selection.encoders.Keys();
}

std::string DecoderLongNameFromCodec(AVCodecID id, const std::string& implementation)
{
    return LongName(FindDecoder(id, implementation));
}

std::string EncoderLongNameFromCodec(AVCodecID id, const std::string& implementation)
{
    return LongName(FindEncoder(id, implementation));
}

std::unordered_set<AVPixelFormat> GetSupportedHWPixelFormats(const AVCodec* codec)
{
    std::unordered_set<AVPixelFormat> formats;
    for (int i = 0; const AVCodecHWConfig* config = avcodec_get_hw_config(codec, i); ++i)
        formats.insert(config->pix_fmt);
    return formats;
}

std::string TraceFFCodecs(bool decoders, bool encoders)
{
    std::vector<std::string_view> decoderNames, encoderNames;
    for (void* position = nullptr; const AVCodec* codec = av_codec_iterate(&position);) {
        if (!codec->name)
            continue;
        if (decoders && av_codec_is_decoder(codec))
            decoderNames.push_back(codec->name);
        if (encoders && av_codec_is_encoder(codec))
            encoderNames.push_back(codec->name);
    }
    std::ostringstream text;
    if (decoders) {
        text << "Decoders:\n";
        WriteSorted(text, decoderNames);
    }
    if (encoders) {
        text << (decoders ? "\n" : "") << "Encoders:\n";
        WriteSorted(text, encoderNames);
    }
    return std::move(text).str();
}

bool IsTextSubtitle(AVCodecID) { return true; }

bool IsValidCodec(const AVCodecContext* context)
{
    return context && context->codec_id != AV_CODEC_ID_NONE && context->codec_type == AVMEDIA_TYPE_SUBTITLE;
}

}  // namespace Quorva::Proc
