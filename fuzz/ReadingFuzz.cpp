// Any bytes, opened through the read and seek callbacks and read to the end with the skipping reader, come to
// an end without a fault.
#include "Proc/Wrappers/Tessadrin/InputFormat.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

using namespace Quorva;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    constexpr int bufferSize = 4096;
    constexpr int enough = 2000;  // packets: a few bytes can stand for very many

    av_log_set_level(AV_LOG_QUIET);
    const auto input = Core::DataInputMemory::Create({data, data + size});
    AVFormatContext* context = avformat_alloc_context();
    AVIOContext* io = avio_alloc_context(static_cast<uint8_t*>(av_malloc(bufferSize)), bufferSize, 0,
                                         input.get(), Proc::FFReadCallback, nullptr, Proc::FFSeekRCallback);
    context->pb = io;
    if (avformat_open_input(&context, nullptr, nullptr, nullptr) == 0) {
        try {
            Proc::GetContainerFormat(context);
        } catch (const Proc::ProcException&) {
        }
        AVPacket* packet = av_packet_alloc();
        for (int i = 0; i < enough && Proc::av_read_frame_fixed(context, packet) >= 0; ++i)
            av_packet_unref(packet);
        av_packet_free(&packet);
        avformat_close_input(&context);
    }
    av_freep(&io->buffer);
    avio_context_free(&io);
    return 0;
}
