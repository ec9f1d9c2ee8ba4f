/// @file
/// The resampler as an owning object over the pipeline's audio buffers.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/MediaDescription.h"
#include "host/ProcessingSupport.h"

#include <utility>

namespace Quorva::Proc {

/// Owns one SwrContext. Movable, not copyable: a resampler has one owner, and its buffered samples can't be
/// shared. One thread at a time. Every failure is a FilterException; the object then keeps the resampler it
/// had.
class TESSADRIN_API SafeSwrContext {
public:
    SafeSwrContext() = default;
    /// As Init() on an empty object; nothing is left behind when it throws.
    SafeSwrContext(const Conf::SampleInfo& in, const Conf::SampleInfo& out);
    SafeSwrContext(SafeSwrContext&& other) noexcept : context(std::exchange(other.context, nullptr)) {}
    SafeSwrContext& operator=(SafeSwrContext&& other) noexcept
    {
        SafeSwrContext(std::move(other)).Swap(*this);
        return *this;
    }
    ~SafeSwrContext() { Reset(); }

    explicit operator bool() const noexcept { return context != nullptr; }

    /// Sets up the conversion, or another one on an object that is ready; samples still buffered are dropped.
    /// @throws FilterException  FFmpeg refuses a description, and the object is empty; or FFmpeg refuses to
    ///         initialise, and the object holds an uninitialised resampler.
    /// @throws std::logic_error  a layout outside the enumeration; the object stays as it was.
    void Init(const Conf::SampleInfo& in, const Conf::SampleInfo& out);

    /// Initialises the resampler again with the options it has.
    void ApplyChanges() const;

    /// Converts samples.
    ///
    /// @param src        what to convert; null drains what the resampler still holds
    /// @param dst        the room to write to: planes and sample count per channel
    /// @param dstOffset  samples of `dst` to leave alone at its start, 0 to its sample count
    /// @return           samples written per channel; those without room stay buffered for the next call
    /// @pre              both buffers hold what Init() was told; their descriptions aren't compared with it
    /// @throws FilterException  no `dst`, an offset outside it, a missing plane: "incorrect dst parameter.";
    ///         an object that isn't ready; FFmpeg's refusal, or a `src` with samples that lacks a plane.
    int Convert(const boost::intrusive_ptr<IDataAudio>& src, const boost::intrusive_ptr<IDataAudio>& dst,
                int dstOffset);

    /// What the resampler holds, in units of 1/`base` second, cut to an int: meaningful while delay times
    /// `base` stays below 2^31 (bases near 10^9 come out negative). 0 after a failed initialisation.
    int GetDelay(int base) const;

    /// Adds `sampleDelta` samples, or drops them when negative, over the next `compensationDistance` output
    /// samples; 0 and 0 ends that. With equal rates on both sides this makes FFmpeg start its resampler and
    /// drop what it has buffered: call it before the first Convert().
    /// @throws FilterException  a negative distance, or a delta that isn't smaller than its distance.
    void SetCompensation(int sampleDelta, int compensationDistance);

    void Reset() noexcept;
    void Swap(SafeSwrContext& other) noexcept { std::swap(context, other.context); }

private:
    void RequredExist() const;

    SwrContext* context = nullptr;  ///< owned; null when empty
};

}  // namespace Quorva::Proc
