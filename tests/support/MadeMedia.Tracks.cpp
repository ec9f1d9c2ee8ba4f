#include "tests/support/MadeMedia.Encoding.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
}

#include <array>
#include <cstring>
#include <span>
#include <stdexcept>
#include <string>

namespace Quorva::Media {
namespace {

/// The values an encoder accepts, none when it accepts all.
template <class T>
std::span<const T> Accepted(const AVCodec* codec, AVCodecConfig what)
{
    const void* values = nullptr;
    int count = 0;
    Checked(avcodec_get_supported_config(nullptr, codec, what, 0, &values, &count), codec->name);
    return {static_cast<const T*>(values), values ? static_cast<size_t>(count) : 0};
}

/// ":key=a|b|c" for a filter, or nothing for an empty list.
template <class T, class Name>
std::string FilterList(const char* key, std::span<const T> values, Name name)
{
    std::string text;
    for (const T& value : values)
        text += (text.empty() ? std::string(":") + key + "=" : "|") + name(value);
    return text;
}

/// A track whose frames come out of a chain of filters.
class FilteredTrack : public Track {
public:
    bool Step(std::vector<Packet>& packets) override
    {
        const int result = av_buffersink_get_frame(sink, frame.get());
        if (result != AVERROR_EOF)
            Checked(result, "filters");
        const bool last = result == AVERROR_EOF;
        if (!last) {
            position = static_cast<double>(frame->pts + frame->duration) * av_q2d(encoder->time_base);
            frame->pict_type = AV_PICTURE_TYPE_NONE;
        }
        Checked(avcodec_send_frame(encoder.get(), last ? nullptr : frame.get()), encoder->codec->name);
        av_frame_unref(frame.get());
        for (;;) {
            Packet packet(av_packet_alloc());
            const int received = avcodec_receive_packet(encoder.get(), packet.get());
            if (received == AVERROR(EAGAIN) || received == AVERROR_EOF)
                return !last;
            Checked(received, encoder->codec->name);
            Stamp(packet.get());
            packets.push_back(std::move(packet));
        }
    }

protected:
    using Track::Track;

    /// Builds the chain `filters`; frames in the encoder's time base.
    void Chain(const std::string& filters, const char* sinkFilter)
    {
        graph.reset(avfilter_graph_alloc());
        if (!graph || !frame)
            throw std::bad_alloc();
        graph->nb_threads = 1;
        AVFilterInOut* inputs = nullptr;
        AVFilterInOut* outputs = nullptr;
        const std::string text = filters + "," + sinkFilter + "@sink";
        const int result = avfilter_graph_parse2(graph.get(), text.c_str(), &inputs, &outputs);
        avfilter_inout_free(&inputs);
        avfilter_inout_free(&outputs);
        Checked(result, text.c_str());
        Checked(avfilter_graph_config(graph.get(), nullptr), text.c_str());
        sink = avfilter_graph_get_filter(graph.get(), (std::string(sinkFilter) + "@sink").c_str());
        if (!sink)
            throw std::runtime_error(text + ": the chain has no end");
        encoder->time_base = av_buffersink_get_time_base(sink);
    }

    AVFilterContext* sink = nullptr;  ///< the graph's

private:
    std::unique_ptr<AVFilterGraph, Freeing<avfilter_graph_free>> graph;
    Frame frame{av_frame_alloc()};
};

class VideoTrack final : public FilteredTrack {
public:
    VideoTrack(Spec& spec, bool globalHeader) : FilteredTrack(spec.codec)
    {
        const std::string formats =
            FilterList("pix_fmts", Accepted<AVPixelFormat>(spec.codec, AV_CODEC_CONFIG_PIX_FORMAT),
                       [](AVPixelFormat format) { return std::string(av_get_pix_fmt_name(format)); });
        std::string chain = spec.Take("source", "testsrc2") + "=size=" + spec.Take("size", "128x96") +
                            ":rate=" + spec.Take("rate", "25") +
                            ",trim=end_frame=" + spec.Take("frames", "25");
        if (const std::string wanted = spec.Take("pix_fmt", ""); !wanted.empty())
            chain += ",format=" + wanted;
        else if (!formats.empty())
            chain += ",format=" + formats.substr(1);
        if (const std::string wanted = spec.Take("tag", ""); wanted.size() == 4)
            tag = MKTAG(wanted[0], wanted[1], wanted[2], wanted[3]);
        Chain(chain, "buffersink");

        encoder->width = av_buffersink_get_w(sink);
        encoder->height = av_buffersink_get_h(sink);
        encoder->pix_fmt = static_cast<AVPixelFormat>(av_buffersink_get_format(sink));
        encoder->sample_aspect_ratio = av_buffersink_get_sample_aspect_ratio(sink);
        encoder->framerate = av_buffersink_get_frame_rate(sink);
        encoder->color_range = av_buffersink_get_color_range(sink);
        encoder->colorspace = av_buffersink_get_colorspace(sink);
        if (globalHeader)
            encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        Open(&spec.options);
    }
};

class AudioTrack final : public FilteredTrack {
public:
    AudioTrack(Spec& spec, bool globalHeader) : FilteredTrack(spec.codec)
    {
        const std::string rate = spec.Take("rate", "44100");
        const std::string layout = spec.Take("layout", "stereo");
        std::string chain = "sine=frequency=440:beep_factor=4:sample_rate=" + rate +
                            ":duration=" + spec.Take("seconds", "1") + ",aformat=channel_layouts=" + layout;
        if (const std::string wanted = spec.Take("sample_fmt", ""); !wanted.empty())
            chain += ":sample_fmts=" + wanted;
        else
            chain +=
                FilterList("sample_fmts", Accepted<AVSampleFormat>(spec.codec, AV_CODEC_CONFIG_SAMPLE_FORMAT),
                           [](AVSampleFormat format) { return std::string(av_get_sample_fmt_name(format)); });
        chain += FilterList("sample_rates", Accepted<int>(spec.codec, AV_CODEC_CONFIG_SAMPLE_RATE),
                            [](int value) { return std::to_string(value); });
        Chain(chain, "abuffersink");

        encoder->sample_fmt = static_cast<AVSampleFormat>(av_buffersink_get_format(sink));
        encoder->sample_rate = av_buffersink_get_sample_rate(sink);
        Checked(av_buffersink_get_ch_layout(sink, &encoder->ch_layout), "channel layout");
        if (globalHeader)
            encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        Open(&spec.options);
        if (!(spec.codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE))
            av_buffersink_set_frame_size(sink, static_cast<unsigned>(encoder->frame_size));
    }
};

constexpr char assHeader[] =
    "[Script Info]\r\nScriptType: v4.00+\r\nPlayResX: 384\r\nPlayResY: 288\r\n\r\n"
    "[V4+ Styles]\r\n"
    "Format: Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, OutlineColour, BackColour, Bold, "
    "Italic, "
    "Underline, StrikeOut, ScaleX, ScaleY, Spacing, Angle, BorderStyle, Outline, Shadow, Alignment, MarginL, "
    "MarginR, MarginV, Encoding\r\n"
    "Style: Default,Sans,16,&Hffffff,&Hffffff,&H0,&H0,0,0,0,0,100,100,0,0,1,1,0,2,10,10,10,1\r\n\r\n"
    "[Events]\r\nFormat: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\r\n";

struct Caption {
    int64_t start;  ///< milliseconds
    unsigned length;
    const char* event;
};

constexpr Caption captions[] = {
    {100, 400, "0,0,Default,,0,0,0,,First line"                      },
    {600, 300, "1,0,Default,,0,0,0,,{\\i1}Second{\\i0} line\\Nof two"},
};

class SubtitleTrack final : public Track {
public:
    explicit SubtitleTrack(Spec& spec) : Track(spec.codec)
    {
        const AVCodecDescriptor* descriptor = avcodec_descriptor_get(spec.codec->id);
        bitmap = descriptor && descriptor->props & AV_CODEC_PROP_BITMAP_SUB;
        encoder->time_base = {1, 1000};
        encoder->width = 128;
        encoder->height = 96;
        encoder->subtitle_header = static_cast<uint8_t*>(av_memdup(assHeader, sizeof assHeader));
        if (!encoder->subtitle_header)
            throw std::bad_alloc();
        encoder->subtitle_header_size = sizeof assHeader - 1;
        Open(&spec.options);
    }

    bool Step(std::vector<Packet>& packets) override
    {
        const Caption& caption = captions[next];
        std::array<uint32_t, 256> palette = {0, 0xffffffff, 0xff000000, 0xffff0000};
        std::array<uint8_t, 32 * 16> pixels;
        for (size_t i = 0; i < pixels.size(); ++i)
            pixels[i] = static_cast<uint8_t>(i / 8 % 4);

        std::string event = caption.event;
        AVSubtitleRect rectangle{};
        if (bitmap) {
            rectangle.type = SUBTITLE_BITMAP;
            rectangle.x = 16;
            rectangle.y = 64;
            rectangle.w = 32;
            rectangle.h = 16;
            rectangle.nb_colors = 4;
            rectangle.data[0] = pixels.data();
            rectangle.linesize[0] = 32;
            rectangle.data[1] = reinterpret_cast<uint8_t*>(palette.data());
        } else {
            rectangle.type = SUBTITLE_ASS;
            rectangle.ass = event.data();
        }
        AVSubtitleRect* rectangles[] = {&rectangle};
        AVSubtitle subtitle{};
        subtitle.num_rects = 1;
        subtitle.rects = rectangles;
        subtitle.pts = caption.start * 1000;
        subtitle.end_display_time = caption.length;

        std::array<uint8_t, 4096> bytes;
        const int size = Checked(
            avcodec_encode_subtitle(encoder.get(), bytes.data(), static_cast<int>(bytes.size()), &subtitle),
            encoder->codec->name);
        Packet packet(av_packet_alloc());
        Checked(av_new_packet(packet.get(), size), "packet");
        std::memcpy(packet->data, bytes.data(), static_cast<size_t>(size));
        packet->pts = packet->dts = caption.start;
        packet->duration = caption.length;
        packet->flags |= AV_PKT_FLAG_KEY;
        Stamp(packet.get());
        packets.push_back(std::move(packet));

        ++next;
        position = static_cast<double>(caption.start + caption.length) / 1000;
        return next < std::size(captions);
    }

private:
    bool bitmap = false;
    size_t next = 0;  ///< in `captions`
};

}  // namespace

std::unique_ptr<Track> MakeVideoTrack(const char* text, bool globalHeader)
{
    Spec spec(text);
    return std::make_unique<VideoTrack>(spec, globalHeader);
}

std::unique_ptr<Track> MakeAudioTrack(const char* text, bool globalHeader)
{
    Spec spec(text);
    return std::make_unique<AudioTrack>(spec, globalHeader);
}

std::unique_ptr<Track> MakeSubtitleTrack(const char* text)
{
    Spec spec(text);
    return std::make_unique<SubtitleTrack>(spec);
}

}  // namespace Quorva::Media
