/// @file
/// The output of a conversion: FFmpeg's muxer over host streams.
#pragma once

#include "Proc/Wrappers/Tessadrin/Tessadrin.GuardedIO.h"
#include "tools/Convert.Interleaving.h"
#include "tools/Convert.Stages.h"
#include "tools/support/OutputFiles.h"

#include <memory>
#include <string>
#include <vector>

namespace Quorva::Tool {

/// A muxer at work. One thread at a time.
///
/// FFmpeg opens nothing by itself: the file, and each picture of a sequence, is a host stream. What a stream
/// throws doesn't cross FFmpeg: it is kept, FFmpeg learns of an output error, and the exception comes out of
/// the call here. No trailer is written then.
class Output final : public PacketSink {
public:
    /// @param files  where files are created; outlives the object
    Output(const Plan& plan, const ConvertOptions& options, OutputFiles& files);
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output() override;

    AVFormatContext* operator->() const noexcept { return context.get(); }
    bool WantsGlobalHeaders() const { return context->oformat->flags & AVFMT_GLOBALHEADER; }
    /// A stream of the output; they are numbered as they are added.
    AVStream& AddStream();

    /// Writes the header: no streams afterwards.
    void Begin();
    /// A packet that the muxer finds damaged is left out; too many of them are a failure.
    void Write(AVPacket& packet, int stream, AVRational timeBase) override;
    /// Writes what is held back: no packets afterwards.
    /// @throws Quorva::Exception  it fails, or the muxer refused every packet
    void Flush();
    /// Writes the trailer, after Flush().
    void Finish();

    /// The end of what was written last, microseconds; of any stream.
    int64_t GetPosition() const { return position; }
    uint64_t GetBytes() const;  ///< of all files so far
    bool IsEmpty() const { return packets == refused; }
    /// Packets of a stream that the muxer has accepted. After Flush().
    uint64_t GetWritten(int stream) const
    {
        return static_cast<uint64_t>(context->streams[stream]->nb_frames);
    }
    uint64_t GetRefused() const { return refused; }  ///< packets that the muxer found damaged

private:
    struct FreeContext {
        void operator()(AVFormatContext* context) const noexcept { avformat_free_context(context); }
    };

    static int OpenPicture(AVFormatContext* context, AVIOContext** io, const char* url, int flags,
                           AVDictionary** options);
    static int ClosePicture(AVFormatContext* context, AVIOContext* io);
    void Repair(AVPacket& packet, AVStream& stream);
    int Interleave(AVPacket& packet);
    void Check(const char* what, int result);
    void CheckPacket(const char* what, int result);

    OutputFiles& files;
    Proc::StreamFailure failure;
    uint64_t closedBytes = 0;  ///< of pictures that are complete
    int64_t position = 0;
    uint64_t packets = 0;
    uint64_t refused = 0;                    ///< of them
    std::string refusal;                     ///< FFmpeg's reason for the last
    std::vector<int64_t> lastDts;            ///< of each stream, in its time base
    std::optional<InterleavingQueue> queue;  ///< from Begin() on
    bool begun = false;
    const bool isReordered;
    std::unique_ptr<Proc::GuardedIO> file;  ///< none for pictures
    std::unique_ptr<AVFormatContext, FreeContext> context;
};

/// Streams, chapters and tags of the output, as far as they come from the input.
/// @param stream  of the output, its codec already described when it is encoded
void DescribeStream(AVStream& stream, const AVStream& source, const StreamPlan& plan,
                    const AVOutputFormat& muxer);
/// Copies tags as UTF-8, but for those about the file that held them.
void CopyTags(AVDictionary** target, const AVDictionary* source);
/// Moves tags to where the container keeps them, with the file or with a stream; called once all are
/// described.
void PlaceTags(AVFormatContext& output, const AVFormatContext& input);
void DescribeFile(AVFormatContext& output, const AVFormatContext& input, const Plan& plan);

}  // namespace Quorva::Tool
