/// @file
/// Media files opened for reading, by FFmpeg over host streams.
#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.GuardedIO.h"
#include "host/FoundationIO.h"
#include "host/ProcessingSupport.h"
#include "tools/support/Failure.h"
#include "tools/support/FurtherFiles.h"
#include "tools/support/Playlists.h"
#include "tools/support/SteadyInput.h"

#include <cstdint>
#include <memory>
#include <set>
#include <string>

namespace Quorva::Tool {

/// A file whose format is known.
struct DetectedInput {
    std::string path;
    boost::intrusive_ptr<Core::IDataInput> stream;
    uint64_t size = 0;  ///< bytes
    Proc::ProbeResult result;
    uint64_t mediaStart = 0;  ///< position behind the tags that the file begins with
};

/// Opens the file at `path` and detects its format as Proc::DetectInputFormat() does.
/// @throws Quorva::Exception  with TagFailureKind: no such file, unreadable, empty, or of no known format.
DetectedInput DetectInput(const std::string& path);

/// A demuxer at work on a file. One thread at a time.
///
/// FFmpeg opens nothing by itself: the file, and further ones that it names (the pieces of a playlist), are
/// host streams, and every protocol is refused. FurtherFiles decides which files are opened; those that are
/// not come out of CheckStreams(). A playlist ends with what is in it, even that of a live broadcast. Where a
/// medium can't be read, zeros are. What a stream throws beyond that doesn't cross FFmpeg: it is kept, and
/// FFmpeg learns of an input error and may read on elsewhere. Both come out of CheckStreams().
class OpenedInput {
public:
    /// Opens the file and finds out about its streams. An Interruption stops it: AVERROR_EXIT is the result
    /// that the exception carries then.
    /// @throws Quorva::Exception  with TagFailureKind: a format that isn't read, damage, a stream's own.
    explicit OpenedInput(const DetectedInput& input);
    OpenedInput(const OpenedInput&) = delete;
    OpenedInput& operator=(const OpenedInput&) = delete;
    ~OpenedInput();

    AVFormatContext* Get() const noexcept { return context.get(); }
    AVFormatContext* operator->() const noexcept { return context.get(); }
    /// The format as Proc::GetContainerFormat() has it; may read the file's first bytes again.
    std::string GetContainer() const;
    /// Why not everything about the streams could be found out; empty when it could.
    const std::string& GetStreamsWarning() const noexcept { return streamsWarning; }

    /// Reads the next packet of any stream into `packet`, which must be empty.
    /// @return false at the end, and after an Interruption; `packet` is empty then.
    /// @throws Quorva::Exception  reading stopped before the end.
    bool ReadPacket(AVPacket* packet);

    /// To be called at the end of it all.
    /// @throws Core::IOException  something could not be read, or a file was not opened.
    /// @throws                    what a stream threw first, if any did.
    void CheckStreams() const;

private:
    struct CloseContext {
        void operator()(AVFormatContext* context) const noexcept { avformat_close_input(&context); }
    };

    static int OpenFurther(AVFormatContext* context, AVIOContext** io, const char* url, int flags,
                           AVDictionary** options);
    static int CloseFurther(AVFormatContext* context, AVIOContext* io);
    int Open(const DetectedInput& input, const AVInputFormat& demuxer, uint64_t start);
    boost::intrusive_ptr<Core::IDataInput> ForDemuxer(boost::intrusive_ptr<Core::IDataInput> stream,
                                                      bool nested);
    void KeepRefusal(const std::string& url, const Failure& refusal);
    std::unique_ptr<Proc::GuardedIO> MakeSource(boost::intrusive_ptr<Core::IDataInput> stream);

    FurtherFiles further;
    Playlists playlists;
    bool readsPlaylists = false;
    std::set<std::string> notOpened;  ///< further files by their names, a thousand at most
    Failure firstRefusal;             ///< why the first of them was not
    ReadLosses losses;
    Proc::StreamFailure failure;
    uint64_t bytes = 0;    ///< of all streams opened so far
    uint64_t packets = 0;  ///< read so far
    std::string streamsWarning;
    boost::intrusive_ptr<Core::IDataInput> stream;  ///< the file, from its own beginning on
    std::unique_ptr<Proc::GuardedIO> file;
    std::unique_ptr<AVFormatContext, CloseContext> context;
};

}  // namespace Quorva::Tool
