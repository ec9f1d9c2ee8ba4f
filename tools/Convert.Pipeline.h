/// @file
/// How the stages of a conversion work at the same time, and what they give stays in one order.
///
/// One thread reads packets and writes packets. Each encoded stream has two threads more, one that decodes
/// and one that scales or resamples and encodes, beside those of FFmpeg's codecs. What comes of a packet of
/// the input is a step, and steps are written in the order in which they were begun: the output is the same
/// to the byte as if one thread had done all.
#pragma once

#include "Proc/Wrappers/Tessadrin/Tessadrin.Frames.h"
#include "tools/Convert.Stages.h"

#include <boost/circular_buffer.hpp>

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stop_token>
#include <thread>
#include <vector>

namespace Quorva::Tool {

/// What one packet of the input leads to, or a path's end.
class Step {
    friend class Steps;

    struct Result {
        PacketPointer packet;
        int stream;
        AVRational timeBase;
    };

    int stream = 0;  ///< of the input
    std::vector<Result> results;
    uint64_t bytes = 0;  ///< of the results
    bool complete = false;
    bool done = false;  ///< nothing more of the stream is wanted
    std::exception_ptr failure;
};

/// All steps that are not written yet.
///
/// What waits to be written is bounded, in packets and in bytes: a stage that gives more is blocked until
/// some of it is written. The first step may always give something, whatever the others have given:
/// everything waits for that one.
class Steps {
public:
    static constexpr size_t MOST_PACKETS = 512;
    static constexpr uint64_t MOST_BYTES = 32 << 20;
    static constexpr size_t FIRST_PACKETS = 64;  ///< these two beyond the others, for the first step
    static constexpr uint64_t FIRST_BYTES = 8 << 20;

    /// @name Of the thread that reads and writes
    /// @{
    /// @param stream  of the input
    /// @return        a step behind all others; it lives until it is written
    Step& Begin(int stream);
    size_t GetCount() const { return steps.size(); }
    /// Writes what has come of the first step so far.
    /// @param wait    until something has, or the conversion is to end (Interruption::IsOverdue())
    /// @param enough  ends the wait as well; asked again after each Wake(). Null: nothing does
    /// @return        whether it was all, and the step is gone
    /// @throws        what the step failed with, or the sink
    bool WriteFirst(PacketSink& sink, bool wait, const std::function<bool()>& enough = nullptr);
    /// Whether as much waits to be written as may.
    bool IsFull();
    /// Nothing is written any more: Give() throws from now on, wherever it is blocked.
    void Abandon() noexcept;
    /// Streams of the input of which no more was wanted at the step written last.
    const std::set<int>& GetDone() const { return done; }
    /// @}

    /// @name Of the thread that does the step
    /// @{
    /// @param packet  emptied
    /// @param block   until there is room; not in the thread that writes
    /// @throws Quorva::Exception  after Abandon()
    void Give(Step& step, AVPacket& packet, int stream, AVRational timeBase, bool block);
    /// Lets a waiting WriteFirst() ask whether that is enough.
    void Wake() noexcept;
    /// @param isDone  nothing more of the stream is wanted
    void Complete(Step& step, bool isDone, std::exception_ptr failure = nullptr) noexcept;
    /// @}

private:
    bool HasRoom(const Step& step, uint64_t size) const;

    std::mutex mutex;  ///< for what is in a step, and for the next five
    std::condition_variable changed;
    std::condition_variable written;
    const Step* first = nullptr;
    size_t waitingPackets = 0;  ///< in all steps
    uint64_t waitingBytes = 0;
    bool abandoned = false;
    std::deque<Step> steps;
    std::set<int> done;
    std::vector<Step::Result> writing;
};

/// Where a stage gives its packets: the step that it is at.
class StepSink final : public PacketSink {
public:
    /// @param block  Steps::Give()'s
    StepSink(Steps& steps, bool block) : steps(steps), block(block) {}
    void Turn(Step& next) { step = &next; }
    void Write(AVPacket& packet, int stream, AVRational timeBase) override
    {
        steps.Give(*step, packet, stream, timeBase, block);
    }

private:
    Steps& steps;
    const bool block;
    Step* step = nullptr;
};

/// The way of one stream's packets.
class Path {
public:
    virtual ~Path() = default;
    /// Whether Take() and Finish() return without waiting. Stays so until one of them is called.
    virtual bool HasRoom() = 0;
    /// @param packet  may be emptied
    /// @param step    completed now or later
    virtual void Take(AVPacket& packet, Step& step) = 0;
    /// Hands on everything that is still held.
    virtual void Finish(Step& step) = 0;
    /// Whether nothing more is wanted; a thread may find out later.
    virtual bool IsDone() const = 0;
    /// Packets that the decoder made nothing of. When all steps are complete.
    virtual uint64_t GetDamaged() const { return 0; }
    /// What an encoder noted in a first pass. When all steps are complete.
    virtual std::string GetStats() const { return {}; }
};

/// Packets of a stage that works at once, on the thread that reads.
template <class Stage>
class DirectPath final : public Path {
public:
    DirectPath(Steps& steps, std::unique_ptr<StepSink> sink, Stage stage)
        : steps(steps), sink(std::move(sink)), stage(std::move(stage))
    {
    }
    bool HasRoom() override { return true; }
    void Take(AVPacket& packet, Step& step) override
    {
        sink->Turn(step);
        stage.Take(packet);
        steps.Complete(step, IsDone());
    }
    void Finish(Step& step) override
    {
        sink->Turn(step);
        stage.Finish();
        steps.Complete(step, true);
    }
    bool IsDone() const override { return stage.IsDone(); }
    uint64_t GetDamaged() const override { return stage.GetDamaged(); }

private:
    Steps& steps;
    const std::unique_ptr<StepSink> sink;  ///< the stage's
    Stage stage;
};

/// Things on their way from one thread to another one. Whoever is ahead waits.
template <typename Thing>
class Channel {
public:
    explicit Channel(size_t room) : things(room) {}

    /// @return false, and the thing is lost, when the thread was asked to stop
    bool Push(Thing thing, const std::stop_token& stop = {})
    {
        std::unique_lock lock(mutex);
        if (!changed.wait(lock, stop, [this] { return !things.full(); }))
            return false;
        things.push_back(std::move(thing));
        changed.notify_one();
        return true;
    }

    bool HasRoom()
    {
        const std::lock_guard lock(mutex);
        return !things.full();
    }

    /// Waits until Push() needn't.
    void AwaitRoom(const std::stop_token& stop)
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, stop, [this] { return !things.full(); });
    }

    /// @return nothing when the thread was asked to stop
    std::optional<Thing> Pop(const std::stop_token& stop)
    {
        std::unique_lock lock(mutex);
        if (!changed.wait(lock, stop, [this] { return !things.empty(); }))
            return std::nullopt;
        std::optional<Thing> thing(std::move(things.front()));
        things.pop_front();
        changed.notify_one();
        return thing;
    }

private:
    std::mutex mutex;
    std::condition_variable_any changed;
    boost::circular_buffer<Thing> things;
};

/// Packets that are decoded in a thread, and frames that are made new in another one. Both end with the
/// object.
class CodedPath final : public Path {
public:
    CodedPath(Steps& steps, std::unique_ptr<StepSink> sink, StreamDecoder decoder,
              std::unique_ptr<FrameStage> stage);
    bool HasRoom() override { return inputs.HasRoom(); }
    void Take(AVPacket& packet, Step& step) override;
    void Finish(Step& step) override;
    bool IsDone() const override { return stage->IsDone(); }
    uint64_t GetDamaged() const override { return damaged; }
    std::string GetStats() const override { return stage->GetEncoder().GetStats(); }

private:
    struct Input {
        PacketPointer packet;  ///< null: the end
        Step* step = nullptr;
    };
    /// A frame, or the end of a step.
    struct Decoded {
        Proc::FramePtr frame;  ///< null: the end of what the step has
        Step* step = nullptr;
        bool last = false;           ///< these three at a step's end: no more steps,
        uint64_t damaged = 0;        ///< packets so far
        std::exception_ptr failure;  ///< and why decoding ended early
    };

    void DecodeAll(const std::stop_token& stop);
    void Decode(const Input& input, const std::stop_token& stop);
    void RemakeAll(const std::stop_token& stop);
    void Remake(Decoded& decoded);

    Steps& steps;
    const std::unique_ptr<StepSink> sink;  ///< the stage's
    StreamDecoder decoder;
    const std::unique_ptr<FrameStage> stage;
    uint64_t damaged = 0;
    bool over = false;  ///< these two of the second thread: nothing more was wanted before the step
    bool failed = false;
    Channel<Input> inputs;
    Channel<Decoded> frames;
    std::jthread remaking;  ///< these two last: they use all of the above
    std::jthread decoding;
};

}  // namespace Quorva::Tool
