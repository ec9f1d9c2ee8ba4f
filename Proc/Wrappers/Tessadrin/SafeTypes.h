/// @file
/// Codec contexts, and what an encoder can do.
#pragma once

#include "Proc/Wrappers/Tessadrin/CodecList.h"
#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Codecs.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.UniquePtr.h"
#include "host/MediaDescription.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Quorva {

/// 64-bit FNV-1a over the bytes of a string; letter case counts.
struct CaseSensitiveHash {
    using is_transparent = void;  ///< takes any kind of string

    /// The hash of the bytes.
    constexpr size_t operator()(std::string_view text) const noexcept
    {
        uint64_t hash = 14695981039346656037u;
        for (const char c : text)
            hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211u;
        return hash;
    }
};

namespace Proc {

/// Exact names, found by any kind of string without a copy.
using NameSet = std::unordered_set<std::string, CaseSensitiveHash, std::equal_to<>>;

/// Owns one AVCodecContext. One thread at a time.
class SafeCodecContext : public Details::UniquePtr<AVCodecContext, Details::CustomDeleterAVFreeCodecCtx> {
    using Owner = Details::UniquePtr<AVCodecContext, Details::CustomDeleterAVFreeCodecCtx>;

public:
    /// A context for `codec`, not opened; null gives one without a codec.
    /// @throws ParserException  it cannot be allocated.
    explicit SafeCodecContext(const AVCodec* codec)
        : Owner(avcodec_alloc_context3(codec)), capabilities(codec ? codec->capabilities : 0)
    {
        if (!get())
            Details::Throw<ParserException>("Can't create codec context");
    }
    SafeCodecContext(SafeCodecContext&& other) noexcept
        : Owner(other.release()), capabilities(std::exchange(other.capabilities, 0))
    {
    }
    SafeCodecContext& operator=(SafeCodecContext&& other) noexcept
    {
        capabilities = std::exchange(other.capabilities, 0);
        Owner::operator=(std::move(other));
        return *this;
    }
    virtual ~SafeCodecContext() = default;

    /// Drops what the codec has buffered, as after a seek; nothing happens where no codec is attached.
    virtual void Flush()
    {
        if (get() && get()->codec)
            avcodec_flush_buffers(get());
    }

    /// AV_CODEC_CAP_* of the codec; 0 without one.
    int GetCapabilities() const noexcept { return capabilities; }

private:
    int capabilities;  ///< AV_CODEC_CAP_* of the codec; 0 without one
};

/// An encoder, to be asked before one is configured. Costs a pointer; owns nothing. Any thread.
class TESSADRIN_API SafeEncoderCodec {
public:
    /// The encoder that FindEncoder() finds.
    /// @throws EncoderException  there is none; carries the codec's text under TagCodecID.
    /// @throws Conf::FormatException  there is none, and the pipeline has no text for `id` either.
    SafeEncoderCodec(AVCodecID id, const std::string& implementation) : codec(FindEncoder(id, implementation))
    {
        if (!codec)
            Details::Raise(EncoderException()
                           << TagDescription("Can't find encoder by ID") << TagCodecID(CodecIDToTextID(id)));
    }

    const AVCodec* Get() const noexcept { return codec; }  ///< never null; FFmpeg's, static

    /// Frames per second that the encoder takes, in its order; empty when it takes any.
    /// @throws ProcException  FFmpeg has no answer, as for audio and subtitles.
    std::vector<AVRational> GetSupportedFrameRates() const;

    /// The supported frame rate nearest to `rate`; nothing when the encoder takes any.
    /// @throws ProcException  as GetSupportedFrameRates(), or no rate can be chosen.
    std::optional<AVRational> GetSupportedFrameRate(const AVRational& rate) const;

    /// Pixel formats that the encoder takes, in its order; empty when it takes any.
    /// @throws ProcException  FFmpeg has no answer, as for audio and subtitles.
    std::vector<AVPixelFormat> GetSupportedPixelFormats() const;

    /// The same for the pipeline, without formats that it doesn't describe.
    std::vector<PixFmt> GetSupportedPixFmts() const;

    /// Names of the encoder's own options; empty when it has none.
    NameSet GetSupportedOptions() const;

    /// Names that an own option takes as its value: the constants that FFmpeg lists right behind the first
    /// entry of that name. Empty for options that take numbers or free text, and for unknown ones.
    NameSet GetOptionValues(std::string_view option) const;

    /// Whether the encoder gains from a second run over the same input.
    bool IsTwoPassEncodingAllowed() const;

private:
    const AVCodec* codec;
};

}  // namespace Proc
}  // namespace Quorva
