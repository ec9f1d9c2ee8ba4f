/// @file
/// How the pipeline describes media: codecs and formats by text, pictures and sound by numbers that are
/// FFmpeg's own, so that crossing over is a cast.
#pragma once

#include "host/Exception.h"
#include "host/Export.h"
#include "host/FoundationIO.h"
#include "host/RefCounting.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

namespace Quorva {

/// Pixel formats, numbered as AVPixelFormat. Names that begin with a digit there get an X here (X0RGB).
enum class PixFmt : int32_t {
    NONE = -1,
#define PIXFMT(enumerator, number, ...) enumerator = number,
#include "host/Rows/PixelFormats.inc"
#undef PIXFMT
};

/// How large a picture is.
struct FrameSize {
    int width = 0;  ///< pixels
    int height = 0;
    bool operator==(const FrameSize&) const = default;
};

/// What the pipeline knows of one pixel format.
class QUORVA_HOST_API PixFmtDescription {
public:
    static constexpr uint32_t FLAG_PLANAR = 1u << 1;  ///< components in planes of their own
    static constexpr uint32_t FLAG_RGB = 1u << 2;     ///< red, green and blue
    static constexpr uint32_t FLAG_ALPHA = 1u << 3;   ///< and how opaque

    /// A row of the table: the name is FFmpeg's, in static memory.
    constexpr PixFmtDescription(PixFmt itsFormat, const char* itsName, uint8_t itsComponents, uint8_t shiftX,
                                uint8_t shiftY, uint32_t itsFlags)
        : format(itsFormat),
          components(itsComponents),
          chromaShiftX(shiftX),
          chromaShiftY(shiftY),
          flags(itsFlags),
          name(itsName)
    {
    }

    /// Every format the pipeline describes, by number.
    static const std::vector<PixFmtDescription>& GetSupportedList();
    static bool IsSupported(PixFmt format) noexcept;
    /// The description of `format`; null when there is none.
    static const PixFmtDescription* Find(PixFmt format) noexcept;

    const char* GetName() const noexcept { return name; }  ///< FFmpeg's

    PixFmt format;         ///< which it is
    uint8_t components;    ///< 0 for formats in device memory
    uint8_t chromaShiftX;  ///< chroma width is width / 2^shift, rounded up
    uint8_t chromaShiftY;
    uint32_t flags;  ///< FLAG_*

private:
    const char* name;  ///< static text
};

namespace Proc {

/// Families of codec back-ends.
struct QUORVA_HOST_API ImplNames {
    static const std::string FFMPEG;
    static const std::string FFMPEG_FDK;
    static const std::string NVDEC;
    static const std::string DIRECTX;
    static const std::string QSV;
    static const std::string NVENC;
    static const std::string AMF;
};

}  // namespace Proc

namespace Conf {

class QUORVA_HOST_API ConfException : public Exception {
public:
    ConfException() = default;
    ConfException(const ConfException&) = default;
    ~ConfException() override;
};

class QUORVA_HOST_API FormatException : public ConfException {
public:
    FormatException() = default;
    FormatException(const FormatException&) = default;
    ~FormatException() override;
};

/// Numbered as AVSampleFormat; P means one plane per channel.
enum class SampleFormats : int32_t {
    NONE = -1,
    U8,
    S16,
    S32,
    FLT,
    DBL,
    U8P,
    S16P,
    S32P,
    FLTP,
    DBLP,
    S64,
    S64P
};

/// The speaker layouts the pipeline tells apart.
enum class ChannelLayout : int32_t {
    None = 0,
    Mono,
    Stereo,
    Layout2Point1,
    Layout2_1,
    Surround,
    Layout3Point1,
    Layout4Point0,
    Layout4Point1,
    Layout2_2,
    Quad,
    Layout5Point0,
    Layout5Point1,
    Layout5Point0Back,
    Layout5Point1Back,
    Layout6Point0,
    Layout6Point0Front,
    Hexagonal,
    Layout6Point1,
    Layout6Point1Back,
    Layout6Point1Front,
    Layout7Point0,
    Layout7Point0Front,
    Layout7Point1,
    Layout7Point1Wide,
    Layout7Point1WideBack,
    Octagonal,
    Hexadecagonal,
    StereoDownmix = 28,
};

/// Numbered as AVColorSpace.
enum class YCbCrMatrix : int32_t {
    RGB = 0,
    BT709 = 1,
    Unspecified = 2,
    Reserved = 3,
    FCC = 4,
    BT470BG = 5,
    SMPTE170M = 6,
    SMPTE240M = 7,
    YCgCo = 8,
    BT2020NCL = 9,
    BT2020CL = 10,
    SMPTE2085 = 11,
    ChromaDerivedNCL = 12,
    ChromaDerivedCL = 13,
    ICtCp = 14,
    IPTC2 = 15,
    YCgCoRe = 16,
    YCgCoRo = 17,
};

/// How a picture lies in its frame, numbered as in Exif: 1 is upright.
enum class ImageOrientation : int32_t {
    Normal = 1,
    MirrorHorizontal = 2,
    Rotate180 = 3,
    MirrorVertical = 4,
    Transpose = 5,   ///< mirrored along the diagonal from the top left
    Rotate90 = 6,    ///< turn clockwise to see it upright
    Transverse = 7,  ///< mirrored along the other diagonal
    Rotate270 = 8,
};

/// Whether formats that may hold an animation count as images.
enum class AnimatedImages : int32_t { Exclude = 0, Include = 1 };

/// In FFmpeg's numbering: AVColorPrimaries, AVColorTransferCharacteristic, AVColorSpace. 2 is unspecified.
struct ColorSpace {
    int32_t primaries = 2;  ///< which red, green and blue
    int32_t transfer = 2;   ///< from light to numbers
    int32_t matrix = 2;     ///< from red, green and blue to luma and chroma
    bool operator==(const ColorSpace&) const = default;
};

/// What to cut off at each edge.
struct FrameCropping {
    uint32_t top = 0;  ///< pixels
    uint32_t bottom = 0;
    uint32_t left = 0;
    uint32_t right = 0;
    bool operator==(const FrameCropping&) const = default;
};

/// FFmpeg's display matrix: three rows (a b u) (c d v) (x y w), 16.16 fixed point but for u, v, w (2.30).
/// A point (p, q) of the frame is shown at (a p + c q + x, b p + d q + y).
struct QUORVA_HOST_API DisplayMatrix {
    /// Row by row.
    std::array<int, 9> values = {1 << 16, 0, 0, 0, 1 << 16, 0, 0, 0, 1 << 30};

    /// The matrix of one of the eight orientations for a frame of `size`, with translation.
    static DisplayMatrix FromOrientation(ImageOrientation orientation, const FrameSize& size);
    /// The orientation that the matrix stands for; nothing when it scales, shears or turns by another angle.
    std::optional<ImageOrientation> GetOrientation() const noexcept;
    /// Sets the translation so that the shown frame begins at (0, 0), whatever its sides are after turning.
    /// Frames beyond 32767 pixels don't fit into 16.16 numbers: their translation stays at the largest one.
    void CorrectTranslation(const FrameSize& size) noexcept;
};

/// One layout of the pipeline, with its name.
struct QUORVA_HOST_API LayoutRecord {
    ChannelLayout layout;     ///< which it is
    uint8_t channels;         ///< how many
    const std::string* name;  ///< never null

    /// The layout usual for a channel count; the record of ChannelLayout::None when there is none. Never
    /// null.
    static const LayoutRecord* Find(int channels) noexcept;
    /// The record of `layout`; null when it isn't one of the enumeration.
    static const LayoutRecord* Find(ChannelLayout layout) noexcept;
};

/// One sample format, with its name.
struct QUORVA_HOST_API SampleFormatRecord {
    SampleFormats format;  ///< which it is
    std::string name;      ///< as FFmpeg has it
    bool planar;           ///< a plane for each channel

    /// Null for SampleFormats::NONE and unknown numbers.
    static const SampleFormatRecord* Find(SampleFormats format) noexcept;
};

/// A stream of samples. The records are never null.
struct QUORVA_HOST_API SampleInfo {
    int sampleRate = 0;  ///< per second and channel
    const SampleFormatRecord* format;
    const LayoutRecord* layout;

    SampleInfo();  ///< 0 Hz, SampleFormats::S16, no channels
    /// @throws FormatException  no record for `format` or `layout`.
    SampleInfo(int sampleRate, SampleFormats format, ChannelLayout layout);

    /// Bytes of one sample in one plane: of one channel when planar, of all channels together when not.
    int GetSampleSizePerPlane() const noexcept;
};

/// How one elementary stream is coded.
class QUORVA_HOST_API IFormatCodec : public virtual IRefCountable {
public:
    /// What a stream is made of.
    enum class Kind : int32_t { Video = 1, Audio = 2, Other = 3, Subtitle = 4 };

    static constexpr int64_t MIN_QUALITY = 1;  ///< best
    static constexpr int64_t MAX_QUALITY = 100;

    virtual const std::string& GetCodecID() const noexcept = 0;  ///< one of the CODEC_ID_ texts
    virtual int64_t GetBitrate() const noexcept = 0;             ///< bits per second, 0 when unknown
    virtual int64_t GetQuality() const noexcept = 0;             ///< MIN_QUALITY to MAX_QUALITY
    virtual bool ExistsProfile() const noexcept = 0;
    virtual int GetProfile() const noexcept = 0;  ///< FFmpeg's AV_PROFILE_ number
    virtual Kind GetKind() const noexcept = 0;
    virtual boost::intrusive_ptr<const IBlob> GetExtradata() const = 0;  ///< may be null

#define CODEC(name, text) static const std::string CODEC_ID_##name;
#include "host/Rows/GenericCodecs.inc"

protected:
    ~IFormatCodec() override;
};

/// How a stream of pictures is coded. What may be unknown has an Exists beside its Get, which then gives 0.
class QUORVA_HOST_API IFormatCodecVideo : public virtual IFormatCodec {
public:
    virtual unsigned int GetWidth() const noexcept = 0;  ///< pixels
    virtual unsigned int GetHeight() const noexcept = 0;
    virtual unsigned int GetPixelAspectX() const noexcept = 0;  ///< shape of a pixel, x : y
    virtual unsigned int GetPixelAspectY() const noexcept = 0;
    virtual PixFmt GetPixelFormat() const noexcept = 0;    ///< of the pictures, decoded
    virtual bool ExistsBitsPerPixel() const noexcept = 0;  ///< of the coded picture
    virtual int GetBitsPerPixel() const noexcept = 0;
    virtual ColorSpace GetColorSpace() const noexcept = 0;  ///< of the pictures
    virtual bool ExistsDisplayMatrix() const noexcept = 0;  ///< how to show them
    virtual DisplayMatrix GetDisplayMatrix() const noexcept = 0;
    virtual bool ExistsFrameCropping() const noexcept = 0;  ///< what to cut off
    virtual FrameCropping GetFrameCropping() const noexcept = 0;

#include "host/Rows/VideoCodecs.inc"

protected:
    ~IFormatCodecVideo() override;
};

/// How a stream of sound is coded; likewise.
class QUORVA_HOST_API IFormatCodecAudio : public virtual IFormatCodec {
public:
    virtual SampleInfo GetSampleInfo() const = 0;           ///< of the sound, decoded
    virtual bool ExistsBitsPerSample() const noexcept = 0;  ///< of the coded sound
    virtual int GetBitsPerSample() const noexcept = 0;
    virtual bool ExistsFrameSize() const noexcept = 0;   ///< a fixed one
    virtual int GetFrameSize() const noexcept = 0;       ///< samples per channel in a coded frame
    virtual int GetBlockAlignment() const noexcept = 0;  ///< bytes, 0 when there is none
    virtual bool ExistsInitialPadding() const noexcept = 0;
    virtual int GetInitialPadding() const noexcept = 0;  ///< samples per channel

#include "host/Rows/AudioCodecs.inc"

protected:
    ~IFormatCodecAudio() override;
};

/// How a stream of subtitles is coded.
class QUORVA_HOST_API IFormatCodecSubtitle : public virtual IFormatCodec {
public:
#include "host/Rows/SubtitleCodecs.inc"
#undef CODEC

protected:
    ~IFormatCodecSubtitle() override;
};

/// Names of file formats.
struct QUORVA_HOST_API IFormatFile{
#define FORMAT(name, text) static const std::string FORMAT_##name;
#include "host/Rows/Formats.inc"
#undef FORMAT
};

/// Formats that files with this extension are likely to hold, most preferred first; empty when unknown.
/// @param extension  without the dot; letter case doesn't matter
QUORVA_HOST_API const std::vector<std::string>& GetFormatsByExtension(const std::string& extension);

/// Formats that hold one still image; with AnimatedImages::Include also those that may hold an animation, as
/// GIF, AVIF and HEIF may.
QUORVA_HOST_API const std::unordered_set<std::string>& GetImageContainerSet(AnimatedImages animated);

}  // namespace Conf
}  // namespace Quorva
