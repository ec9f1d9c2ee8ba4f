/// @file
/// Encodes synthetic pictures, tones and captions into one file.
#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <filesystem>
#include <memory>
#include <vector>

namespace Quorva::Media {

/// Calls one of FFmpeg's functions that free what a pointer points to and clear it.
template <auto Free>
struct Freeing {
    template <class T>
    void operator()(T* object) const noexcept
    {
        Free(&object);
    }
};

using Encoder = std::unique_ptr<AVCodecContext, Freeing<avcodec_free_context>>;
using Frame = std::unique_ptr<AVFrame, Freeing<av_frame_free>>;
using Packet = std::unique_ptr<AVPacket, Freeing<av_packet_free>>;

/// "encoder key=value:key=value", taken apart.
class Spec {
public:
    /// @throws std::runtime_error  no such encoder, or options that cannot be parsed
    explicit Spec(const char* text);
    ~Spec() { av_dict_free(&options); }
    Spec(const Spec&) = delete;
    Spec& operator=(const Spec&) = delete;

    /// Removes an option that is not the encoder's and gives its value.
    std::string Take(const char* key, std::string fallback);

    const AVCodec* codec;
    AVDictionary* options = nullptr;  ///< the encoder's
};

/// Source and encoder of one stream of the file.
class Track {
public:
    virtual ~Track() = default;

    /// Adds the stream to the file, with the encoder's parameters.
    void AddTo(AVFormatContext* file);
    /// Encodes the next frame, or, after the last, what the encoder has kept.
    /// @param packets  receives what came out, in the stream's time base
    /// @return false when there is nothing more
    virtual bool Step(std::vector<Packet>& packets) = 0;
    double Position() const { return position; }  ///< seconds encoded so far

protected:
    explicit Track(const AVCodec* codec);
    /// Opens the encoder; every option must be one of its own.
    void Open(AVDictionary** options);
    /// Gives a packet of the encoder its place in the file.
    void Stamp(AVPacket* packet) const;

    Encoder encoder;
    uint32_t tag = 0;
    double position = 0;
    AVStream* stream = nullptr;  ///< the file's
};

std::unique_ptr<Track> MakeVideoTrack(const char* spec, bool globalHeader);
std::unique_ptr<Track> MakeAudioTrack(const char* spec, bool globalHeader);
/// Two captions; drawn as a bitmap when the encoder wants one.
std::unique_ptr<Track> MakeSubtitleTrack(const char* spec);

/// One file in the making. All members throw std::runtime_error with FFmpeg's reason.
class Writer {
public:
    Writer(const std::filesystem::path& path, const char* muxer);
    ~Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    void AddVideo(const char* spec) { tracks.push_back(MakeVideoTrack(spec, WantsGlobalHeader())); }
    void AddAudio(const char* spec) { tracks.push_back(MakeAudioTrack(spec, WantsGlobalHeader())); }
    void AddSubtitle(const char* spec) { tracks.push_back(MakeSubtitleTrack(spec)); }
    /// Encodes all tracks and finishes the file.
    /// @param options  the muxer's, "key=value:key=value"; may be null
    void Write(const char* options);

private:
    bool WantsGlobalHeader() const { return file->oformat->flags & AVFMT_GLOBALHEADER; }

    AVFormatContext* file = nullptr;
    std::vector<std::unique_ptr<Track>> tracks;
};

/// @throws std::runtime_error  "what: FFmpeg's reason" when `result` is negative
int Checked(int result, const char* what);

}  // namespace Quorva::Media
