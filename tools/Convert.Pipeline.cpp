#include "tools/Convert.Pipeline.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"

#include <chrono>
#include <utility>

namespace Quorva::Tool {

namespace {

/// Few: every picture on its way costs its memory, and FFmpeg's threads decode and encode ahead as well.
constexpr size_t WAITING_PACKETS = 2;
constexpr size_t WAITING_FRAMES = 1;

/// What the packet holds, in one that can go elsewhere.
PacketPointer TakenOver(AVPacket& packet)
{
    PacketPointer own(Proc::CreatePacket(0));
    av_packet_move_ref(own.get(), &packet);
    return own;
}

[[noreturn]] void ThrowAbandoned()
{
    Proc::Details::Raise(Proc::ProcException() << TagDescription("the conversion has ended already"));
}

}  // namespace

Step& Steps::Begin(int stream)
{
    Step& step = steps.emplace_back();
    step.stream = stream;
    if (steps.size() == 1) {
        const std::lock_guard lock(mutex);
        first = &step;
    }
    return step;
}

bool Steps::WriteFirst(PacketSink& sink, bool wait, const std::function<bool()>& enough)
{
    Step& front = steps.front();
    writing.clear();
    bool complete = false;
    {
        std::unique_lock lock(mutex);
        // Signal handlers can't notify.
        constexpr std::chrono::milliseconds interval(50);
        while (wait && !front.complete && front.results.empty() && !(enough && enough()) &&
               !Interruption::IsOverdue())
            changed.wait_for(lock, interval);
        writing.swap(front.results);
        waitingPackets -= writing.size();
        waitingBytes -= std::exchange(front.bytes, 0);
        complete = front.complete;
        if (complete)
            first = steps.size() > 1 ? &steps[1] : nullptr;
        written.notify_all();
    }
    for (Step::Result& result : writing)
        sink.Write(*result.packet, result.stream, result.timeBase);
    if (!complete)
        return false;
    if (front.failure)
        std::rethrow_exception(front.failure);
    if (front.done)
        done.insert(front.stream);
    steps.pop_front();
    return true;
}

bool Steps::IsFull()
{
    const std::lock_guard lock(mutex);
    return waitingPackets >= MOST_PACKETS || waitingBytes >= MOST_BYTES;
}

/// @param size  bytes that come on top
bool Steps::HasRoom(const Step& step, uint64_t size) const
{
    if (waitingPackets == 0 || (waitingPackets < MOST_PACKETS && waitingBytes + size <= MOST_BYTES))
        return true;
    return &step == first && (step.results.empty() ||
                              (step.results.size() < FIRST_PACKETS && step.bytes + size <= FIRST_BYTES));
}

void Steps::Give(Step& step, AVPacket& packet, int stream, AVRational timeBase, bool block)
{
    PacketPointer own = TakenOver(packet);
    const auto size = static_cast<uint64_t>(own->size);
    std::unique_lock lock(mutex);
    if (block)
        written.wait(lock, [&] { return abandoned || HasRoom(step, size); });
    if (abandoned)
        ThrowAbandoned();
    step.results.push_back({std::move(own), stream, timeBase});
    step.bytes += size;
    ++waitingPackets;
    waitingBytes += size;
    changed.notify_one();
}

void Steps::Wake() noexcept
{
    const std::lock_guard lock(mutex);
    changed.notify_one();
}

void Steps::Abandon() noexcept
{
    const std::lock_guard lock(mutex);
    abandoned = true;
    written.notify_all();
}

void Steps::Complete(Step& step, bool isDone, std::exception_ptr failure) noexcept
{
    const std::lock_guard lock(mutex);
    if (failure)
        step.failure = std::move(failure);  // the first one: a step may be completed again behind it
    step.done = isDone;
    step.complete = true;
    changed.notify_one();
}

CodedPath::CodedPath(Steps& steps, std::unique_ptr<StepSink> sink, StreamDecoder decoder,
                     std::unique_ptr<FrameStage> stage)
    : steps(steps),
      sink(std::move(sink)),
      decoder(std::move(decoder)),
      stage(std::move(stage)),
      inputs(WAITING_PACKETS),
      frames(WAITING_FRAMES),
      remaking([this](const std::stop_token& stop) { RemakeAll(stop); }),
      decoding([this](const std::stop_token& stop) { DecodeAll(stop); })
{
}

void CodedPath::Take(AVPacket& packet, Step& step) { inputs.Push({TakenOver(packet), &step}); }

void CodedPath::Finish(Step& step) { inputs.Push({nullptr, &step}); }

void CodedPath::DecodeAll(const std::stop_token& stop)
{
    while (const std::optional<Input> input = inputs.Pop(stop)) {
        steps.Wake();  // the thread that writes may have waited for room in here
        Decoded end;
        end.step = input->step;
        end.last = !input->packet;
        // A decoded picture that waits here takes as much memory as one in the channel.
        frames.AwaitRoom(stop);
        try {
            if (!stage->IsDone() && !Interruption::IsOverdue())
                Decode(*input, stop);
        } catch (...) {
            end.failure = std::current_exception();
        }
        end.damaged = decoder.GetDamaged();
        frames.Push(std::move(end), stop);
    }
}

void CodedPath::Decode(const Input& input, const std::stop_token& stop)
{
    decoder.Decode(input.packet.get(), [&](AVFrame& frame) {
        Decoded decoded;
        decoded.frame.reset(av_frame_alloc());
        if (!decoded.frame)
            ThrowFFmpegFailure("a frame can't be kept", AVERROR(ENOMEM));
        av_frame_move_ref(decoded.frame.get(), &frame);
        decoded.step = input.step;
        frames.Push(std::move(decoded), stop);
    });
}

void CodedPath::RemakeAll(const std::stop_token& stop)
{
    while (std::optional<Decoded> decoded = frames.Pop(stop)) {
        std::exception_ptr failure;
        try {
            if (!failed && !Interruption::IsOverdue())
                Remake(*decoded);
        } catch (...) {
            failure = std::current_exception();
            failed = true;
        }
        if (!decoded->frame || failure)
            steps.Complete(*decoded->step, stage->IsDone(), failure);
    }
}

/// The first thread is ahead: what it met in steps after the end, nobody would have met without it.
void CodedPath::Remake(Decoded& decoded)
{
    sink->Turn(*decoded.step);
    if (decoded.frame)
        return stage->Take(*decoded.frame);
    if (!over) {
        damaged = decoded.damaged;
        if (decoded.failure)
            std::rethrow_exception(decoded.failure);
    }
    if (decoded.last)
        stage->Finish();
    over = stage->IsDone();
}

}  // namespace Quorva::Tool
