// Writes into a stream that takes only so much, and loses nothing on the way: guarded_stream BYTES
#include "OpenFile.h"

#include <cstdio>
#include <cstdlib>

using namespace Quorva;

/// A disk with little room.
class SmallDisk final : public RefCounted<Core::IDataOutput> {
public:
    explicit SmallDisk(uint64_t bytes) : room(bytes) {}
    void Write(const uint8_t*, uint64_t size) override
    {
        if (position + size > room)
            Fail<Core::IOException>("the disk is full");
        position += size;
        end = std::max(end, position);
    }
    uint64_t GetSize() override { return end; }
    void SetSize(uint64_t size) override { end = size; }
    uint64_t MoveBy(int64_t offset) override { return position += static_cast<uint64_t>(offset); }
    void MoveTo(uint64_t target) override { position = target; }

private:
    const uint64_t room;
    uint64_t position = 0, end = 0;
};

int main(int argc, char** argv)
try {
    const auto disk = MakeRefCounted<SmallDisk>(argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1000);
    Proc::StreamFailure failure;
    const Proc::GuardedIO io(disk, true, 4096, failure);
    const std::unique_ptr<AVFormatContext, decltype(&avformat_free_context)> output(avformat_alloc_context(),
                                                                                    avformat_free_context);
    output->oformat = Proc::GetOutputFormat(Conf::IFormatFile::FORMAT_WAV);
    output->pb = io.Get();
    AVStream* const stream = Proc::CreateStream(output.get(), nullptr);
    stream->codecpar->codec_type = AVMEDIA_TYPE_AUDIO;
    stream->codecpar->codec_id = AV_CODEC_ID_PCM_S16LE;
    stream->codecpar->sample_rate = 8000;
    stream->codecpar->ch_layout = Proc::AVChannelLayoutFromQuorva(Conf::ChannelLayout::Mono);
    stream->codecpar->bits_per_coded_sample = 16;
    stream->codecpar->block_align = 2;

    int result = avformat_write_header(output.get(), nullptr);
    const std::unique_ptr<AVPacket, Close> packet(Proc::CreatePacket(1600));
    std::fill_n(packet->data, packet->size, uint8_t{0});
    for (int i = 0; i < 10 && result >= 0; ++i) {
        packet->pts = packet->dts = 800 * i;
        result = av_write_frame(output.get(), packet.get());
    }
    // What the stream threw didn't pass through FFmpeg, so that the file may be ended whatever has happened.
    if (const int ended = av_write_trailer(output.get()); result >= 0)
        result = ended;
    avio_flush(io.Get());
    failure.Check();  // here it comes out
    std::printf("%llu bytes: %s\n", static_cast<unsigned long long>(disk->GetSize()),
                Proc::GetErrorDescriptionFFMPEG(result).c_str());
} catch (const Core::IOException& e) {
    std::printf("not written: %s\n", e.what());
    return 1;
}
