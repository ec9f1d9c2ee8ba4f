// What is not looked at in a damaged Ogg file would have given nothing: packet for packet as by steps of 1
// KiB.
#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
#include "tests/support/Damage.h"
#include "tests/support/Muxed.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace Quorva::Proc {
namespace {

using Bytes = std::vector<uint8_t>;

/// The skipping reader as it is defined, without a thought for the time it takes.
int ReadByTheBook(AVFormatContext* context, AVPacket* packet)
{
    AVIOContext* const io = context->pb;
    for (int64_t position = INT64_MIN;;) {
        position = std::max(position, io->pos);
        const int result = av_read_frame(context, packet);
        if (result >= 0 || result == AVERROR_EOF)
            return result;
        if (position <= 0 || avio_size(io) - position <= 100 * 1024)
            return result;
        position += 1024;
        io->eof_reached = 0;
        if (av_seek_frame(context, -1, position, AVSEEK_FLAG_BYTE) < 0)
            return result;
    }
}

/// Every packet's time, place and bytes, and the result at the end.
std::string ReadAll(const Bytes& bytes, int (*read)(AVFormatContext*, AVPacket*), uint64_t& asked)
{
    const Damage::Case file{"", bytes, {}};
    Damage::Effort effort;
    const auto stream = Damage::Open(file, effort);
    AVIOContext* io = avio_alloc_context(static_cast<uint8_t*>(av_malloc(8192)), 8192, 0, stream.get(),
                                         FFReadCallback, nullptr, FFSeekRCallback);
    AVFormatContext* context = avformat_alloc_context();
    context->pb = io;
    AVPacket* packet = av_packet_alloc();
    std::string text;
    int result = avformat_open_input(&context, nullptr, nullptr, nullptr);
    while (context && (result = read(context, packet)) >= 0) {  // not where its first page is lost
        text += std::to_string(packet->pts) + " " + std::to_string(packet->pos) + " ";
        text.append(reinterpret_cast<const char*>(packet->data), static_cast<size_t>(packet->size));
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&context);
    av_freep(&io->buffer);
    avio_context_free(&io);
    asked = effort.bytes;
    return text + "end " + std::to_string(result);
}

TEST(OggSkipping, LeavesOutNothingButTime)
{
    av_log_set_level(AV_LOG_QUIET);
    const Bytes intact = Mux("ogg", "flac", 40, 0);
    ASSERT_GT(intact.size(), 400'000u);
    std::minstd_rand random(7);
    int shorter = 0;
    for (int number = 0; number < 60; ++number) {
        SCOPED_TRACE(number);
        // Noise of up to 300 KB, in or in place of the file, with marks of pages in it that are none.
        Bytes noise(1 + random() % (number % 3 ? 300'000 : 3'000));
        std::ranges::generate(noise, [&] { return static_cast<uint8_t>(random() >> 8); });
        for (int marks = static_cast<int>(random() % 4); marks > 0 && noise.size() > 40; --marks) {
            const size_t at = random() % (noise.size() - 30);
            std::memcpy(&noise[at], "OggS", 4);
            if (random() % 2)  // with a head that looks right, and a wrong checksum
                std::copy_n(intact.begin() + 4, 24, noise.begin() + static_cast<ptrdiff_t>(at) + 4);
        }
        Bytes bytes = intact;
        const auto place = static_cast<ptrdiff_t>(20'000 + random() % (intact.size() - 30'000));
        if (number % 2) {
            bytes.insert(bytes.begin() + place, noise.begin(), noise.end());
        } else {
            noise.resize(std::min(noise.size(), intact.size() - static_cast<size_t>(place)));
            std::ranges::copy(noise, bytes.begin() + place);
        }
        uint64_t asked = 0, askedByTheBook = 0;
        const std::string found = ReadAll(bytes, av_read_frame_fixed, asked);
        EXPECT_TRUE(found == ReadAll(bytes, ReadByTheBook, askedByTheBook));
        shorter += 2 * asked < askedByTheBook;
    }
    EXPECT_GT(shorter, 10);
}

}  // namespace
}  // namespace Quorva::Proc
