// Pictures of any size and format, whole or in slices: plane copies read and write inside of memory of
// exactly the picture's size and give the same bytes; conversions throw the family or fill their rows.
#include "Proc/Wrappers/Tessadrin/SafeSwsContext.h"
#include "Proc/Wrappers/Tessadrin/SafeTypes.Hardware.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.PixelFormats.h"
#include "fuzz/support/Input.h"

#include <cstring>
#include <limits>

using namespace Quorva;

namespace {

/// Two planes in memory of exactly their size.
struct Planes {
    Planes(AVPixelFormat format, int width, int height, int gap)
        : chroma(av_pix_fmt_desc_get(format)->log2_chroma_h)
    {
        for (int plane = 0; plane < 2; ++plane) {
            length[plane] = av_image_get_linesize(format, width, plane);
            stride[plane] = length[plane] + gap;
            rows[plane] = plane ? AV_CEIL_RSHIFT(height, chroma) : height;
            bytes[plane].resize(static_cast<size_t>(stride[plane]) * static_cast<size_t>(rows[plane] - 1) +
                                static_cast<size_t>(length[plane]));
        }
    }

    template <class Side>
    Side From(int y)
    {
        Side side;
        for (int plane = 0; plane < 2; ++plane) {
            const int row = plane ? AV_CEIL_RSHIFT(y, chroma) : y;
            if (row < rows[plane])
                side.data[plane] = bytes[plane].data() + static_cast<ptrdiff_t>(row) * stride[plane];
            else
                side.data[plane] = bytes[plane].data() + bytes[plane].size();
            side.linesize[plane] = stride[plane];
        }
        return side;
    }

    bool operator==(const Planes& other) const
    {
        for (int plane = 0; plane < 2; ++plane)
            for (int row = 0; row < rows[plane]; ++row)
                if (std::memcmp(bytes[plane].data() + static_cast<ptrdiff_t>(row) * stride[plane],
                                other.bytes[plane].data() + static_cast<ptrdiff_t>(row) * other.stride[plane],
                                static_cast<size_t>(length[plane])) != 0)
                    return false;
        return true;
    }

    const int chroma;
    int length[2], stride[2], rows[2];
    std::vector<uint8_t> bytes[2];
};

void Copy(Input& input)
{
    static constexpr AVPixelFormat formats[] = {AV_PIX_FMT_NV12, AV_PIX_FMT_NV21, AV_PIX_FMT_NV16,
                                                AV_PIX_FMT_NV24, AV_PIX_FMT_P010, AV_PIX_FMT_P016,
                                                AV_PIX_FMT_P210, AV_PIX_FMT_P416};
    const AVPixelFormat format = formats[input.Below(std::size(formats))];
    const int width = input.Between(1, 70), height = input.Between(1, 40);
    Planes source(format, width, height, input.Below(9)), target(format, width, height, input.Below(9));
    uint8_t value = input.Number<uint8_t>();
    for (auto& plane : source.bytes)
        for (uint8_t& byte : plane)
            byte = value = static_cast<uint8_t>(value * 5 + 3);
    const Proc::SwsItem side{width, height, format};
    const Proc::SafeSwsContext copier(Proc::SwsCtxParams{side, side});
    for (int y = 0; y < height;) {
        int rows = input.Between(1, height - y);
        if (y + rows < height)  // slices begin at a row of chroma
            rows = std::min(height - y, rows + rows % 2);
        copier.Scale(source.From<Proc::SwsSource>(y), y, rows, target.From<Proc::SwsDestination>(0));
        y += rows;
    }
    Require(source == target);
}

/// What a scaling algorithm is told: common values, those at the edges, and any.
double Parameter(Input& input)
{
    static constexpr double values[] = {0,
                                        -1,
                                        0.5,
                                        3,
                                        1e-300,
                                        1e300,
                                        std::numeric_limits<double>::quiet_NaN(),
                                        std::numeric_limits<double>::infinity()};
    return input.Flag() ? values[input.Below(std::size(values))] : input.Number<int>() / 1000.0;
}

void Convert(Input& input)
{
    const auto format = [&] { return static_cast<AVPixelFormat>(input.Between(-1, AV_PIX_FMT_NB)); };
    const Conf::ColorSpace colours;
    const AVPixelFormat from = format(), to = format();
    const int width = input.Between(1, 70), height = input.Between(1, 40);
    const Proc::SafeFrame source(colours, from, width, height, 1, 1);
    const Proc::SafeFrame target(colours, to, input.Between(1, 70), input.Between(1, 40), 1, 1);
    // Samples of any value, not only of those that the format has room for.
    uint32_t noise = input.Number<uint32_t>();
    const bool extremes = input.Flag();
    const int size = av_image_get_buffer_size(from, width, height, 32);
    for (int at = 0; at + 4 <= size; at += 4) {
        noise = noise * 1664525 + 1013904223;
        const uint32_t value = extremes ? (noise >> 31 ? 0xffffffff : 0) : noise;
        std::memcpy(source->data[0] + at, &value, sizeof value);
    }
    const auto matrix = [&] { return static_cast<Conf::YCbCrMatrix>(input.Between(-1, 20)); };
    Proc::SwsCtxParams params = {
        {width,         height,         from, matrix()},
        {target->width, target->height, to,   matrix()},
        1 << input.Below(12) |
            (input.Flag() ? input.Number<int>() & (SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT) : 0)
    };
    if (input.Flag())
        params.params = {Parameter(input), Parameter(input)};
    const Proc::SafeSwsContext scaler(params);
    if (input.Flag())  // a slice of any place and height
        scaler.Scale(Proc::SwsSource(source), input.Extreme(), input.Extreme(), Proc::SwsDestination(target));
    scaler.Scale(Proc::SwsSource(source), Proc::SwsDestination(target));
    scaler.Scale(*source.get(), *target.get());
}

void Choose(Input& input)
{
    std::vector<PixFmt> list;
    for (int i = input.Below(8); i > 0; --i)
        list.push_back(static_cast<PixFmt>(input.Between(-1, AV_PIX_FMT_NB - 1)));
    const auto source = static_cast<PixFmt>(input.Between(-1, AV_PIX_FMT_NB - 1));
    int loss = input.Number<int>();
    const PixFmt best = Proc::FindBestPixelFormatOfList(list, source, input.Flag(), &loss);
    Require(best == PixFmt::NONE || std::ranges::find(list, best) != list.end());
    const std::vector<PixFmt> both = Proc::FilterPixelFormatsForSwScaling(list, true, true);
    Require(both.size() <= list.size() && Proc::PixelFormatsIntersection(list, both) == both);
    Proc::GetLineSize(source, input.Extreme(), input.Extreme());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    av_log_set_level(AV_LOG_QUIET);
    Input input(data, size);
    Copy(input);
    Choose(input);
    Tolerate([&] { Convert(input); });
    return 0;
}
