/// @file
/// What the pipeline's stages hand to one another: probes, frames, planes.
#pragma once

#include "host/Export.h"
#include "host/FoundationIO.h"
#include "host/MediaDescription.h"
#include "host/RefCounting.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct AVFrame;
struct AVSubtitle;

namespace Quorva::Proc {

/// The first bytes of an input, for format detection.
struct QUORVA_HOST_API MovieProbe {
    /// Zero bytes that stand behind the buffer: FFmpeg's probes read beyond its end.
    static constexpr uint64_t PADDING = 32;

    std::string fileName;             ///< UTF-8; may be empty
    std::string extension;            ///< lower case, without the dot; may be empty
    const uint8_t* buffer = nullptr;  ///< `size` bytes, then PADDING zeros
    uint64_t size = 0;

    /// Reads the first `size` bytes of `input`, less when it is shorter, and names them after it. The input,
    /// which must not be null, is left at its start.
    /// @throws Core::IOException  the input refuses, or is broken: see Core::CheckedRead().
    static std::unique_ptr<const MovieProbe> Create(const boost::intrusive_ptr<Core::IDataInput>& input,
                                                    uint64_t size);
    /// A probe of `bytes`, under a name whose extension it takes.
    static std::unique_ptr<const MovieProbe> Create(const std::string& fileName, std::vector<uint8_t> bytes);

    MovieProbe() = default;
    MovieProbe(const MovieProbe&) = delete;
    MovieProbe& operator=(const MovieProbe&) = delete;

private:
    std::vector<uint8_t> storage;
};

/// What a file was found to be.
struct ProbeResult {
    std::string format;          ///< a format name; empty when nothing is known
    int score = 0;               ///< 0 to 100
    std::string implementation;  ///< who can read it: one of ImplNames
};

/// A video frame of the pipeline.
class QUORVA_HOST_API IDataVideo : public virtual IRefCountable {
public:
    /// How it is to be shown.
    struct Picture {
        int32_t width = 0;  ///< pixels
        int32_t height = 0;
        int32_t aspectX = 0;  ///< shape of a pixel, x : y
        int32_t aspectY = 0;
    };

    virtual const Picture& GetPicture() const noexcept = 0;  ///< its size and the shape of its pixels
    virtual PixFmt GetPixelFormat() const noexcept = 0;      ///< as in the frame
    virtual AVFrame* GetFrame() const noexcept = 0;          ///< owned by this object; never null

protected:
    ~IDataVideo() override;
};

/// A run of audio samples of the pipeline.
class QUORVA_HOST_API IDataAudio : public virtual IRefCountable {
public:
    virtual int GetSampleCount() const noexcept = 0;  ///< per channel; the room there is, for an output
    virtual Conf::SampleInfo GetSampleInfo() const = 0;
    virtual AVFrame* GetFrame() const noexcept = 0;  ///< owned by this object; never null

protected:
    ~IDataAudio() override;
};

/// A subtitle of the pipeline.
class QUORVA_HOST_API IDataSubtitle : public virtual IRefCountable {
public:
    virtual const AVSubtitle& GetSubtitle() const noexcept = 0;  ///< lives as long as the object

protected:
    ~IDataSubtitle() override;
};

/// The format that an ISO base media file of this major brand holds; empty when the brand isn't known.
/// @param brand  four characters, the first in the lowest byte
QUORVA_HOST_API std::string ConvertISOBMFFToFileFormat(uint32_t brand);

/// Every format of the ISO base media family.
QUORVA_HOST_API std::vector<std::string> GetKnownISOBaseMediaFileFormats();

namespace Details {

template <bool ReadOnly>
struct PlanePointer {
    using Type = uint8_t*;
};
template <>
struct PlanePointer<true> {
    using Type = const uint8_t*;
};

/// Rows of bytes in memory: read-only for 1, writable for 0.
template <bool ReadOnly>
struct PlaneTemplate {
    using Pointer = typename PlanePointer<ReadOnly>::Type;

    /// @param step      bytes from one row to the next; negative for rows that run upwards
    /// @param length    bytes of a row that count
    /// @param rows      how many rows
    /// @param offset    bytes to skip at the start of each row
    /// @param bottomUp  `first` is in the last row instead of the first
    PlaneTemplate(Pointer first, int64_t step, int64_t length, int64_t rows, int64_t offset, bool bottomUp)
        : data((bottomUp && rows > 0 ? first - step * (rows - 1) : first) + offset),
          stride(step),
          rowLength(length),
          rowCount(rows)
    {
    }

    Pointer data;  ///< first byte of the first row
    int64_t stride;
    int64_t rowLength;
    int64_t rowCount;
};

}  // namespace Details

/// Copies the rows that both planes have, as far as both reach. The planes must not overlap. Nothing beyond
/// `rowLength` of a row is written.
QUORVA_HOST_API void CopyPlane(const Details::PlaneTemplate<true>& source,
                               const Details::PlaneTemplate<false>& destination) noexcept;

}  // namespace Quorva::Proc
