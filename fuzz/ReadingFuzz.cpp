// Any bytes, opened through the read and seek callbacks and read to the end with the skipping reader, come to
// an end without a fault, whatever the stream does: the first bytes choose whether it gives less than was
// asked for, claims another length, or throws at a certain call.
#include "Proc/Wrappers/Tessadrin/InputFormat.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "fuzz/support/Input.h"
#include "host/RefCounting.h"
#include "tests/support/Owned.h"

#include <memory>

#if __has_include(<sanitizer/lsan_interface.h>)
#include <sanitizer/lsan_interface.h>
#endif

using namespace Quorva;

namespace {

class Stream final : public RefCounted<Core::IDataInput> {
public:
    explicit Stream(Input& input)
        : throwsAt(input.Flag() ? input.Number<uint8_t>() : 0),
          atOnce(input.Flag() ? 1 + input.Number<uint8_t>() : UINT64_MAX),
          lie(input.Flag() ? input.Number<int8_t>() : 0),
          bytes(input.Rest())
    {
    }

    uint64_t Read(uint8_t* buffer, uint64_t size) override
    {
        Count();
        const uint64_t given =
            std::min({size, atOnce, bytes.size() - std::min<uint64_t>(position, bytes.size())});
        std::copy_n(bytes.data() + position, given, buffer);
        position += given;
        return given;
    }
    uint64_t GetSize() override
    {
        Count();
        return static_cast<uint64_t>(std::max<int64_t>(0, static_cast<int64_t>(bytes.size()) + lie));
    }
    uint64_t MoveBy(int64_t offset) override
    {
        MoveTo(position + static_cast<uint64_t>(offset));
        return position;
    }
    void MoveTo(uint64_t target) override
    {
        Count();
        if (target > INT64_MAX)
            throw Core::IOException();
        position = target;
    }
    const std::string& GetName() const noexcept override { return name; }
    bool MayThrow() const { return throwsAt != 0; }

private:
    void Count()
    {
        if (throwsAt != 0 && ++calls == throwsAt)
            throw Core::IOException();
    }

    const std::string name;
    const uint64_t throwsAt;  ///< which call; 0: none
    const uint64_t atOnce;    ///< bytes that one read gives
    const int64_t lie;        ///< added to the length
    const std::vector<uint8_t> bytes;
    uint64_t position = 0;
    uint64_t calls = 0;
};

void Read(Stream& stream)
{
    constexpr int bufferSize = 4096;
    constexpr int enough = 2000;  // packets: a few bytes can stand for very many
    const Owned<AVIOContext> io(avio_alloc_context(static_cast<uint8_t*>(av_malloc(bufferSize)), bufferSize,
                                                   0, Proc::AsOpaque(&stream), Proc::FFReadCallback, nullptr,
                                                   Proc::FFSeekRCallback));
    const Owned<AVPacket> packet(av_packet_alloc());
    AVFormatContext* fresh = avformat_alloc_context();
    fresh->pb = io.get();
    int result = 0;
    try {
        result = avformat_open_input(&fresh, nullptr, nullptr, nullptr);
    } catch (...) {
        avformat_free_context(fresh);
        throw;
    }
    const Owned<AVFormatContext> context(fresh);  // empty when opening failed
    if (result < 0)
        return;
    Tolerate([&] { Proc::GetContainerFormat(context.get()); });
    for (int i = 0; i < enough && Proc::av_read_frame_fixed(context.get(), packet.get()) >= 0; ++i)
        av_packet_unref(packet.get());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    av_log_set_level(AV_LOG_QUIET);
    Input input(data, size);
    const boost::intrusive_ptr<Stream> stream(new Stream(input));
#if __has_feature(address_sanitizer)
    // What FFmpeg's functions hold when an exception passes through them is lost.
    if (stream->MayThrow()) {
        const __lsan::ScopedDisabler disabler;
        Tolerate([&] { Read(*stream); });
        return 0;
    }
#endif
    Tolerate([&] { Read(*stream); });
    return 0;
}
