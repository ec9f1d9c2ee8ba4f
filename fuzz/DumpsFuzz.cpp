// Frames, subtitles and packets with anything in them, as files and as text. Bitmaps of subtitles lie in
// memory of exactly the size that they tell.
#include "Proc/Wrappers/Tessadrin/SafeTypes.Hardware.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dumps.h"
#include "fuzz/support/Input.h"
#include "tests/support/TemporaryFolder.h"

#include <glog/logging.h>

#include <array>
#include <sstream>

using namespace Quorva;

namespace {

void DumpFrame(Input& input, const std::string& name)
{
    const Conf::ColorSpace colours{input.Below(30), input.Below(30), input.Below(30)};
    const Proc::SafeFrame frame(colours, static_cast<AVPixelFormat>(input.Between(-1, AV_PIX_FMT_NB)),
                                input.Between(-1, 70), input.Between(-1, 40), input.Extreme(),
                                input.Extreme());
    const std::vector<uint8_t> bytes = input.Bytes(64);
    for (int plane = 0; plane < 4 && frame->data[plane]; ++plane)
        std::memcpy(frame->data[plane], bytes.data(),
                    static_cast<size_t>(std::min(frame->linesize[plane], 64)));
    Proc::AVFrame_SaveToBmp(input.Extreme(), input.Extreme(), frame.get(), name);
}

/// A subtitle, and the memory of its parts.
class Subtitle {
public:
    explicit Subtitle(Input& input)
    {
        for (AVSubtitleRect& rectangle : rectangles) {
            Fill(input, rectangle, &rectangle - rectangles.data());
            pointers[static_cast<size_t>(&rectangle - rectangles.data())] = &rectangle;
        }
        subtitle.num_rects = static_cast<unsigned>(input.Below(3));
        subtitle.rects = pointers.data();
    }

    AVSubtitle subtitle{};

private:
    void Fill(Input& input, AVSubtitleRect& rectangle, ptrdiff_t index)
    {
        rectangle.type = static_cast<AVSubtitleType>(input.Below(4));
        auto& text = texts[static_cast<size_t>(index)];
        text = input.Text();
        if (input.Flag())
            rectangle.text = text.data();
        if (input.Flag())
            rectangle.ass = text.data();
        rectangle.w = input.Between(-1, 40);
        rectangle.h = input.Between(-1, 20);
        rectangle.linesize[0] = std::max(rectangle.w, 0) + input.Below(5);
        rectangle.nb_colors = input.Between(-1, 256);
        auto& memory = planes[static_cast<size_t>(index)];
        memory[0] = input.Bytes(static_cast<size_t>(rectangle.linesize[0] * std::max(rectangle.h, 1)));
        memory[1] = input.Bytes(4 * static_cast<size_t>(std::max(rectangle.nb_colors, 0)));
        rectangle.linesize[1] = static_cast<int>(memory[1].size());
        for (int plane = 0; plane < 2; ++plane)
            if (input.Below(8))
                rectangle.data[plane] = memory[static_cast<size_t>(plane)].data();
    }

    std::array<AVSubtitleRect, 2> rectangles{};
    std::array<AVSubtitleRect*, 2> pointers{};
    std::array<std::string, 2> texts;
    std::array<std::array<std::vector<uint8_t>, 2>, 2> planes;
};

void PrintPacket(Input& input)
{
    AVPacket packet{};
    packet.stream_index = input.Extreme();
    packet.pts = input.Number<int64_t>();
    packet.flags = input.Extreme();
    std::ostringstream stream;
    using Proc::operator<<;
    stream << &packet;
    Require(stream.str().find("pts " + std::to_string(packet.pts)) != std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const TemporaryFolder folder;
    av_log_set_level(AV_LOG_QUIET);
    FLAGS_minloglevel = google::GLOG_FATAL;
    Input input(data, size);
    Tolerate([&] { DumpFrame(input, folder.At("x")); });
    const Subtitle subtitle(input);
    Tolerate([&] { Proc::Subtitle_SaveToBmp(subtitle.subtitle, folder.At("x")); });
    Proc::Subtitle_ToString(subtitle.subtitle);
    PrintPacket(input);
    for (const auto& file : std::filesystem::directory_iterator(folder.path))
        std::filesystem::remove(file);
    return 0;
}
