/// @file
/// Which encoders and decoders serve a conversion, what the encoders are given, and how they are opened.
#pragma once

#include "Proc/Wrappers/Tessadrin/SafeTypes.h"
#include "tools/Convert.Containers.h"
#include "tools/Convert.h"

#include <string>
#include <vector>

namespace Quorva::Tool {

/// The encoder of `codec`, of the implementation asked for; where none is, of the plain one, or of the next
/// that this FFmpeg has an encoder for.
/// @throws UsageError         there is no such implementation
/// @throws Quorva::Exception  there is no such encoder
Proc::SafeEncoderCodec ChooseEncoder(AVCodecID codec, const std::string& implementation);

/// The decoder of a stream: as ChooseEncoder(), without other implementations than the one asked for.
const AVCodec* ChooseDecoder(const AVStream& stream, const std::string& implementation);

/// The codec of a text identifier, or of COPY and NONE none.
/// @throws UsageError  no such codec, or not one of this kind
AVCodecID CodecNamed(const std::string& name, AVMediaType kind);

/// A pixel format in which the encoder takes what a picture of another one holds.
struct PixelChoice {
    AVPixelFormat format = AV_PIX_FMT_NONE;
    bool fullRange = false;
};

/// @param keepRange  the container tells the range, so that a lossless encoder need not know it
/// @throws UsageError         `asked` is no pixel format
/// @throws Quorva::Exception  the encoder doesn't take it, or nothing can be converted to what it takes
PixelChoice ChoosePixelFormat(const Proc::SafeEncoderCodec& encoder, AVPixelFormat source, AVColorRange range,
                              const std::string& asked, bool keepRange);

/// The sound that the encoder is given, nearest to `source` and to what was asked for.
/// @param rates  the container's, empty: any
Conf::SampleInfo ChooseSampleInfo(const Proc::SafeEncoderCodec& encoder, const Conf::SampleInfo& source,
                                  const ConvertOptions& options, const std::vector<int>& rates);

/// How a stream is encoded; its `text` tells what comes of it. Remarks go to `plan`.
StreamPlan PlanVideo(AVFormatContext& input, const AVStream& stream, AVCodecID target,
                     const Container& container, const ConvertOptions& options, Plan& plan);
StreamPlan PlanAudio(const AVStream& stream, AVCodecID target, const std::vector<int>& rates,
                     const ConvertOptions& options, Plan& plan);

/// Gives each encoder of the plan those of the options that it has.
/// @throws UsageError  no encoder has an option, or it doesn't take the value
void ShareOutOptions(Plan& plan, const ConvertOptions& options);

/// Whether the colours of a picture have the full range.
bool IsFullRange(AVPixelFormat format, AVColorRange range);
/// The pixel format that says of the full range, for the scaler; `format` where there is none.
AVPixelFormat WithRange(AVPixelFormat format, bool fullRange);

/// Tells an encoder that isn't opened yet what is true of all pictures of the stream, as HDR's light levels.
void SetLastingSideData(AVCodecContext& encoder, const AVStream& source);

/// What an encoder is told beside its plan.
struct EncoderSetting {
    bool globalHeader = false;  ///< the container has a place for it
    int threads = 0;
    int pass = 0;           ///< 1 or 2; 0: the only one
    std::string passStats;  ///< what the first pass found out, for the second
    std::string passLog;    ///< path for encoders that keep that to themselves
};

/// An opened encoder. Its time base is one picture, or a millisecond or so where pictures come at their own
/// pace; one sample for sound.
/// @param notes  receives what isn't as asked
/// @throws Quorva::Exception  it refuses
Proc::SafeCodecContext OpenEncoder(const StreamPlan& plan, const AVStream& source,
                                   const EncoderSetting& setting, std::vector<std::string>& notes);

}  // namespace Quorva::Tool
