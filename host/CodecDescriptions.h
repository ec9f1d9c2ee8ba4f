/// @file
/// Descriptions of elementary streams as plain records, for those who have none of their own: make one with
/// MakeRefCounted(), set its fields, hand it out as the interface. Fields are set before other threads see
/// it.
#pragma once

#include "host/FoundationIO.h"
#include "host/MediaDescription.h"
#include "host/RefCounting.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Quorva::Conf {

/// What streams of every kind have.
template <class Interface, IFormatCodec::Kind kind>
class CodecDescription : public RefCounted<Interface> {
public:
    std::string codecID = IFormatCodec::CODEC_ID_NONE;  ///< one of the CODEC_ID_ texts
    int64_t bitrate = 0;                                ///< bits per second, 0 when unknown
    /// From MIN_QUALITY, the best, to MAX_QUALITY.
    int64_t quality = (IFormatCodec::MIN_QUALITY + IFormatCodec::MAX_QUALITY) / 2;
    std::optional<int> profile;                   ///< FFmpeg's AV_PROFILE_ number
    boost::intrusive_ptr<const IBlob> extradata;  ///< may be null

    const std::string& GetCodecID() const noexcept final { return codecID; }
    int64_t GetBitrate() const noexcept final { return bitrate; }
    int64_t GetQuality() const noexcept final { return quality; }
    bool ExistsProfile() const noexcept final { return profile.has_value(); }
    int GetProfile() const noexcept final { return profile.value_or(0); }
    IFormatCodec::Kind GetKind() const noexcept final { return kind; }
    boost::intrusive_ptr<const IBlob> GetExtradata() const final { return extradata; }
};

/// A stream of pictures, its members to be set one by one.
class VideoCodecDescription final : public CodecDescription<IFormatCodecVideo, IFormatCodec::Kind::Video> {
public:
    unsigned int width = 0;  ///< pixels
    unsigned int height = 0;
    unsigned int pixelAspectX = 0;  ///< shape of a pixel, x : y; 0 : 1 when unknown
    unsigned int pixelAspectY = 1;
    PixFmt pixelFormat = PixFmt::NONE;           ///< of the pictures, decoded
    std::optional<int> bitsPerPixel;             ///< of the coded picture
    ColorSpace colorSpace;                       ///< of the pictures
    std::optional<DisplayMatrix> displayMatrix;  ///< how to show them, where that isn't as they are
    std::optional<FrameCropping> frameCropping;  ///< what to cut off

    unsigned int GetWidth() const noexcept override { return width; }
    unsigned int GetHeight() const noexcept override { return height; }
    unsigned int GetPixelAspectX() const noexcept override { return pixelAspectX; }
    unsigned int GetPixelAspectY() const noexcept override { return pixelAspectY; }
    PixFmt GetPixelFormat() const noexcept override { return pixelFormat; }
    bool ExistsBitsPerPixel() const noexcept override { return bitsPerPixel.has_value(); }
    int GetBitsPerPixel() const noexcept override { return bitsPerPixel.value_or(0); }
    ColorSpace GetColorSpace() const noexcept override { return colorSpace; }
    bool ExistsDisplayMatrix() const noexcept override { return displayMatrix.has_value(); }
    DisplayMatrix GetDisplayMatrix() const noexcept override
    {
        return displayMatrix.value_or(DisplayMatrix());
    }
    bool ExistsFrameCropping() const noexcept override { return frameCropping.has_value(); }
    FrameCropping GetFrameCropping() const noexcept override
    {
        return frameCropping.value_or(FrameCropping());
    }
};

/// A stream of sound, likewise.
class AudioCodecDescription final : public CodecDescription<IFormatCodecAudio, IFormatCodec::Kind::Audio> {
public:
    SampleInfo sampleInfo;              ///< of the sound, decoded
    std::optional<int> bitsPerSample;   ///< of the coded sound
    std::optional<int> frameSize;       ///< samples per channel in a coded frame
    int blockAlignment = 0;             ///< bytes, 0 when there is none
    std::optional<int> initialPadding;  ///< samples per channel

    SampleInfo GetSampleInfo() const override { return sampleInfo; }
    bool ExistsBitsPerSample() const noexcept override { return bitsPerSample.has_value(); }
    int GetBitsPerSample() const noexcept override { return bitsPerSample.value_or(0); }
    bool ExistsFrameSize() const noexcept override { return frameSize.has_value(); }
    int GetFrameSize() const noexcept override { return frameSize.value_or(0); }
    int GetBlockAlignment() const noexcept override { return blockAlignment; }
    bool ExistsInitialPadding() const noexcept override { return initialPadding.has_value(); }
    int GetInitialPadding() const noexcept override { return initialPadding.value_or(0); }
};

class SubtitleCodecDescription final
    : public CodecDescription<IFormatCodecSubtitle, IFormatCodec::Kind::Subtitle> {};

/// A stream of any other kind.
class OtherCodecDescription final : public CodecDescription<IFormatCodec, IFormatCodec::Kind::Other> {};

}  // namespace Quorva::Conf
