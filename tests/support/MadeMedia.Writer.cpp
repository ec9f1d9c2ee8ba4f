#include "tests/support/MadeMedia.Encoding.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace Quorva::Media {

int Checked(int result, const char* what)
{
    if (result >= 0)
        return result;
    char reason[AV_ERROR_MAX_STRING_SIZE] = {};
    av_make_error_string(reason, sizeof reason, result);  // unknown codes are described too
    throw std::runtime_error(std::string(what) + ": " + reason);
}

Spec::Spec(const char* text)
{
    const std::string whole = text;
    const size_t space = std::min(whole.find(' '), whole.size());
    const std::string name = whole.substr(0, space);
    codec = avcodec_find_encoder_by_name(name.c_str());
    if (!codec)
        throw std::runtime_error("no encoder " + name);
    if (space < whole.size())
        Checked(av_dict_parse_string(&options, whole.c_str() + space + 1, "=", ":", 0), whole.c_str());
}

std::string Spec::Take(const char* key, std::string fallback)
{
    const AVDictionaryEntry* entry = av_dict_get(options, key, nullptr, AV_DICT_MATCH_CASE);
    if (!entry)
        return fallback;
    std::string value = entry->value;
    Checked(av_dict_set(&options, key, nullptr, 0), key);
    return value;
}

Track::Track(const AVCodec* codec) : encoder(avcodec_alloc_context3(codec))
{
    if (!encoder)
        throw std::bad_alloc();
    // One thread and no build's name in the stream: the same bytes each time.
    encoder->thread_count = 1;
    encoder->flags |= AV_CODEC_FLAG_BITEXACT;
    encoder->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
}

void Track::Open(AVDictionary** options)
{
    encoder->codec_tag = tag;
    Checked(avcodec_open2(encoder.get(), nullptr, options), encoder->codec->name);
    if (const AVDictionaryEntry* left = av_dict_iterate(*options, nullptr))
        throw std::runtime_error(std::string(encoder->codec->name) + " has no option " + left->key);
}

void Track::AddTo(AVFormatContext* file)
{
    stream = avformat_new_stream(file, nullptr);
    if (!stream)
        throw std::bad_alloc();
    Checked(avcodec_parameters_from_context(stream->codecpar, encoder.get()), "parameters");
    stream->time_base = encoder->time_base;
    stream->avg_frame_rate = encoder->framerate;
    stream->sample_aspect_ratio = encoder->sample_aspect_ratio;
}

void Track::Stamp(AVPacket* packet) const
{
    packet->stream_index = stream->index;
    av_packet_rescale_ts(packet, encoder->time_base, stream->time_base);
}

Writer::Writer(const std::filesystem::path& path, const char* muxer)
{
    Checked(avformat_alloc_output_context2(&file, nullptr, muxer, path.c_str()), muxer);
    file->flags |= AVFMT_FLAG_BITEXACT;
    file->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
}

Writer::~Writer()
{
    if (!(file->oformat->flags & AVFMT_NOFILE))
        avio_closep(&file->pb);  // after a failure; Write() has examined the result otherwise
    avformat_free_context(file);
}

void Writer::Write(const char* options)
{
    struct Options {
        AVDictionary* entries = nullptr;
        ~Options() { av_dict_free(&entries); }
    } muxerOptions;
    if (options)
        Checked(av_dict_parse_string(&muxerOptions.entries, options, "=", ":", 0), options);
    Checked(av_dict_set(&file->metadata, "title", "A test of media", 0), "title");
    for (const auto& track : tracks)
        track->AddTo(file);

    if (!(file->oformat->flags & AVFMT_NOFILE))
        Checked(avio_open(&file->pb, file->url, AVIO_FLAG_WRITE), file->url);
    Checked(avformat_write_header(file, &muxerOptions.entries), "header");
    if (const AVDictionaryEntry* left = av_dict_iterate(muxerOptions.entries, nullptr))
        throw std::runtime_error(std::string(file->oformat->name) + " has no option " + left->key);

    std::vector<Track*> busy;
    for (const auto& track : tracks)
        busy.push_back(track.get());
    std::vector<Packet> packets;
    while (!busy.empty()) {
        const auto next = std::ranges::min_element(busy, {}, &Track::Position);
        if (!(*next)->Step(packets))
            busy.erase(next);
        for (const Packet& packet : packets)
            Checked(av_interleaved_write_frame(file, packet.get()), "packet");
        packets.clear();
    }
    Checked(av_write_trailer(file), "trailer");
    if (!(file->oformat->flags & AVFMT_NOFILE))
        Checked(avio_closep(&file->pb), "closing");
}

}  // namespace Quorva::Media
