#include "Proc/Wrappers/Tessadrin/InputFormat.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.GuardedIO.h"
#include "host/ProcessingSupport.h"
#include "tests/support/Failure.h"
#include "tests/support/MemoryStreams.h"
#include "tests/support/Muxed.h"
#include "tests/support/Owned.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Quorva::Proc {
namespace {

using testing::InSequence;
using testing::Return;
using testing::StrictMock;

struct Unrelated {
    virtual ~Unrelated() = default;
    int value = 0;
};

/// The interface isn't where the object begins.
class MockInput : public Unrelated, public RefCounted<Core::IDataInput> {
public:
    MOCK_METHOD(uint64_t, Read, (uint8_t*, uint64_t), (override));
    MOCK_METHOD(uint64_t, GetSize, (), (override));
    MOCK_METHOD(uint64_t, MoveBy, (int64_t), (override));
    MOCK_METHOD(void, MoveTo, (uint64_t), (override));
    MOCK_METHOD(const std::string&, GetName, (), (const, noexcept, override));
};

class MockOutput : public Unrelated, public RefCounted<Core::IDataOutput> {
public:
    MOCK_METHOD(void, Write, (const uint8_t*, uint64_t), (override));
    MOCK_METHOD(uint64_t, GetSize, (), (override));
    MOCK_METHOD(void, SetSize, (uint64_t), (override));
    MOCK_METHOD(uint64_t, MoveBy, (int64_t), (override));
    MOCK_METHOD(void, MoveTo, (uint64_t), (override));
};

constexpr int allWhences[] = {SEEK_SET, SEEK_CUR, SEEK_END, AVSEEK_SIZE};
constexpr uint64_t beyondSigned = uint64_t{1} << 63;

std::vector<uint8_t> Counting(size_t size)
{
    std::vector<uint8_t> bytes(size);
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    return bytes;
}

TEST(CustomIO, BadArgumentsReachNoStream)
{
    const auto input = MakeRefCounted<StrictMock<MockInput>>();
    const auto output = MakeRefCounted<StrictMock<MockOutput>>();
    uint8_t byte = 0;
    EXPECT_EQ(FFReadCallback(nullptr, &byte, 1), AVERROR_EOF);
    EXPECT_EQ(FFReadCallback(AsOpaque(input.get()), nullptr, 1), AVERROR_EOF);
    EXPECT_EQ(FFWriteCallback(nullptr, &byte, 1), -1);
    EXPECT_EQ(av_read_frame_fixed(nullptr, nullptr), AVERROR(EINVAL));
    EXPECT_EQ(FFWriteCallback(AsOpaque(output.get()), nullptr, 1), -1);
    for (const int size : {0, -1, INT_MIN}) {
        EXPECT_EQ(FFReadCallback(AsOpaque(input.get()), &byte, size), AVERROR_EOF);
        EXPECT_EQ(FFWriteCallback(AsOpaque(output.get()), &byte, size), -1);
    }
    for (const int whence : allWhences) {
        EXPECT_EQ(FFSeekRCallback(nullptr, 0, whence), -1);
        EXPECT_EQ(FFSeekWCallback(nullptr, 0, whence), -1);
        for (const int64_t offset : {INT64_C(-1), INT64_MIN}) {
            EXPECT_EQ(FFSeekRCallback(AsOpaque(input.get()), offset, whence), -1);
            EXPECT_EQ(FFSeekWCallback(AsOpaque(output.get()), offset, whence), -1);
        }
        EXPECT_EQ(FFSeekRCallback(AsOpaque(input.get()), 0, whence | AVSEEK_FORCE), -1);
        EXPECT_EQ(FFSeekWCallback(AsOpaque(output.get()), 0, whence | AVSEEK_FORCE), -1);
    }
    for (const int whence : {3, -1}) {
        EXPECT_EQ(FFSeekRCallback(AsOpaque(input.get()), 0, whence), -1);
        EXPECT_EQ(FFSeekWCallback(AsOpaque(output.get()), 0, whence), -1);
    }
}

TEST(CustomIO, ReadsToTheEndAndThenSaysSo)
{
    const auto input = Core::DataInputMemory::Create(Counting(10));
    std::vector<uint8_t> buffer(20, 99);
    EXPECT_EQ(FFReadCallback(AsOpaque(input.get()), buffer.data(), 4), 4);
    EXPECT_EQ(FFReadCallback(AsOpaque(input.get()), buffer.data() + 4, 16), 6);
    EXPECT_EQ(FFReadCallback(AsOpaque(input.get()), buffer.data(), 16), AVERROR_EOF);
    buffer.resize(10);
    EXPECT_EQ(buffer, Counting(10));
}

TEST(CustomIO, SeeksInAnInput)
{
    const struct {
        int64_t offset;
        int whence;
        int64_t result, position;
    } rows[] = {
        {7,         SEEK_SET,    7,         7        },
        {INT64_MAX, SEEK_SET,    INT64_MAX, INT64_MAX},
        {7,         SEEK_CUR,    10,        10       },
        {0,         SEEK_CUR,    3,         3        },
        {100,       SEEK_END,    1000,      1000     },
        {0,         AVSEEK_SIZE, 1000,      3        },
        {50,        AVSEEK_SIZE, 1000,      3        },
    };
    const auto input = Core::DataInputMemory::Create(Counting(1000));
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.offset << " by " << row.whence);
        input->MoveTo(3);
        EXPECT_EQ(FFSeekRCallback(AsOpaque(input.get()), row.offset, row.whence), row.result);
        EXPECT_EQ(input->MoveBy(0), static_cast<uint64_t>(row.position));
    }
}

TEST(CustomIO, SeeksInAnOutputAndExtendsIt)
{
    const struct {
        int64_t offset;
        int whence;
        int64_t result, position;
        uint64_t size;
    } rows[] = {
        {1000, SEEK_SET,    1000, 1000, 1000},
        {5000, SEEK_SET,    5000, 5000, 5000},
        {7,    SEEK_SET,    7,    7,    1000},
        {7,    SEEK_CUR,    10,   10,   1000},
        {5000, SEEK_END,    1000, 1000, 1000},
        {5000, AVSEEK_SIZE, 1000, 3,    1000},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.offset << " by " << row.whence);
        const auto output = MakeRefCounted<MemoryOutput>();
        EXPECT_EQ(FFWriteCallback(AsOpaque(output.get()), Counting(1000).data(), 1000), 1000);
        EXPECT_EQ(output->bytes, Counting(1000));
        output->MoveTo(3);
        EXPECT_EQ(FFSeekWCallback(AsOpaque(output.get()), row.offset, row.whence), row.result);
        EXPECT_EQ(output->position, static_cast<uint64_t>(row.position));
        EXPECT_EQ(output->bytes.size(), row.size);
    }
}

TEST(CustomIO, OutputIsExtendedBeforeItIsPositioned)
{
    const auto output = MakeRefCounted<StrictMock<MockOutput>>();
    const InSequence order;
    EXPECT_CALL(*output, GetSize).WillOnce(Return(1000));
    EXPECT_CALL(*output, SetSize(5000));
    EXPECT_CALL(*output, MoveTo(5000));
    EXPECT_EQ(FFSeekWCallback(AsOpaque(output.get()), 5000, SEEK_SET), 5000);
}

TEST(CustomIO, PositionsThatFFmpegCannotHoldAreRefused)
{
    const auto input = MakeRefCounted<StrictMock<MockInput>>();
    const auto output = MakeRefCounted<StrictMock<MockOutput>>();
    EXPECT_CALL(*input, GetSize).WillRepeatedly(Return(beyondSigned));
    EXPECT_CALL(*input, MoveBy(5)).WillOnce(Return(beyondSigned));
    EXPECT_CALL(*output, GetSize).WillRepeatedly(Return(beyondSigned));
    EXPECT_CALL(*output, MoveBy(5)).WillOnce(Return(beyondSigned));
    for (const int whence : {SEEK_CUR, SEEK_END, AVSEEK_SIZE}) {
        EXPECT_EQ(FFSeekRCallback(AsOpaque(input.get()), 5, whence), -1);
        EXPECT_EQ(FFSeekWCallback(AsOpaque(output.get()), 5, whence), -1);
    }
}

TEST(CustomIO, WhatAStreamThrowsPasses)
{
    const auto output = MakeRefCounted<StrictMock<MockOutput>>();
    const uint8_t byte = 0;
    EXPECT_CALL(*output, Write).WillOnce(testing::Throw(Core::IOException()));
    EXPECT_THROW(FFWriteCallback(AsOpaque(output.get()), &byte, 1), Core::IOException);
}

/// Counts and sizes that aren't so.
class Boaster final : public RefCounted<Core::IDataInput> {
public:
    uint64_t Read(uint8_t*, uint64_t size) override { return count > size ? count : std::exchange(count, 0); }
    uint64_t GetSize() override { return UINT64_MAX; }
    uint64_t MoveBy(int64_t) override { return 0; }
    void MoveTo(uint64_t) override {}
    const std::string& GetName() const noexcept override { return name; }

    uint64_t count = 0;
    const std::string name = "boaster";
};

TEST(CustomIO, ClaimsBeyondTheRequestEndTheStream)
{
    const auto input = MakeRefCounted<Boaster>();
    uint8_t buffer[16] = {};
    for (const uint64_t claim : {uint64_t{17}, uint64_t{INT_MAX} + 2, UINT64_MAX - 9}) {
        input->count = claim;
        const std::string text = "Broken stream 'boaster': it claims to have read " + std::to_string(claim) +
                                 " bytes, but 16 were requested";
        const Failure broken{text, "CheckedRead", "Files"};
        EXPECT_EQ(FailureOf<Core::IOException>([&] { FFReadCallback(AsOpaque(input.get()), buffer, 16); }),
                  broken);
        EXPECT_EQ(FailureOf<Core::IOException>([&] { MovieProbe::Create(input, 16); }), broken);

        StreamFailure failure;
        const GuardedIO io(input, 16, failure);
        EXPECT_EQ(avio_read(io.Get(), buffer, 4), AVERROR(EIO));
        EXPECT_EQ(FailureOf<Core::IOException>([&] { failure.Check(); }), broken);
    }
    ProbeResult result;
    EXPECT_THROW(DetectInputFormat(input, result), Core::IOException);
    input->count = 10;
    EXPECT_EQ(MovieProbe::Create(input, UINT64_MAX)->size, 10u) << "memory as the stream's size claims";
}

/// A place that can't be read: each attempt there fails, `times` in all.
struct Damage {
    int64_t begin = 0, end = 0;  ///< bytes
    int error = 0;               ///< FFmpeg's code; 0 throws
    int times = 0;
};

constexpr int always = INT_MAX;

class Demuxing {
public:
    explicit Demuxing(const std::vector<uint8_t>& bytes) : input(Core::DataInputMemory::Create(bytes))
    {
        constexpr int bufferSize = 32 * 1024;
        context->pb = avio_alloc_context(static_cast<uint8_t*>(av_malloc(bufferSize)), bufferSize, 0, this,
                                         &Read, nullptr, &Seek);
        context->probesize = 50'000;  // leaves the rest for the test
        context->max_analyze_duration = 1;
        io.reset(context->pb);
        if (avformat_open_input(&context, "", nullptr, nullptr) < 0 ||
            avformat_find_stream_info(context, nullptr) < 0)
            throw std::runtime_error("can't open what was made for the test");
    }
    ~Demuxing() { avformat_close_input(&context); }

    /// Reads until an error comes, which is `last` then.
    /// @return  packets
    int Drain(const Damage& harm, int (*read)(AVFormatContext*, AVPacket*))
    {
        damage = harm;
        int packets = 0;
        while ((last = read(context, packet.get())) >= 0) {
            ++packets;
            payload += packet->size;
            av_packet_unref(packet.get());
        }
        return packets;
    }

    int last = 0;
    int reads = 0;
    int failures = 0;
    int64_t payload = 0;  ///< bytes in all packets

private:
    static constexpr int readLimit = 200'000;  ///< without end, otherwise

    static int Read(void* opaque, uint8_t* buffer, int size)
    {
        auto& self = *static_cast<Demuxing*>(opaque);
        if (++self.reads > readLimit)
            return AVERROR_EXIT;
        const auto position = static_cast<int64_t>(self.input->MoveBy(0));
        if (self.damage.times > 0 && position < self.damage.end) {
            if (position >= self.damage.begin) {
                --self.damage.times;
                ++self.failures;
                if (self.damage.error == 0)
                    throw Core::IOException();
                return self.damage.error;
            }
            size = static_cast<int>(std::min<int64_t>(size, self.damage.begin - position));
        }
        return FFReadCallback(AsOpaque(self.input.get()), buffer, size);
    }
    static int64_t Seek(void* opaque, int64_t offset, int whence)
    {
        return FFSeekRCallback(AsOpaque(static_cast<Demuxing*>(opaque)->input.get()), offset, whence);
    }

    boost::intrusive_ptr<Core::IDataInput> input;
    AVFormatContext* context = avformat_alloc_context();
    Owned<AVIOContext> io;
    const Owned<AVPacket> packet{av_packet_alloc()};
    Damage damage;
};

int64_t At(const std::vector<uint8_t>& bytes, double part)
{
    return static_cast<int64_t>(static_cast<double>(bytes.size()) * part);
}

TEST(ReadFrameFixed, GetsPastDamage)
{
    // Whether the demuxer finds its way from any byte. FLV's takes the first it meets for a length, and may
    // swallow the rest.
    enum Finds { ALWAYS, BY_LUCK, NEVER };
    const struct {
        const char* muxer;
        const char* encoder;
        int frames;
        Finds finds;
    } rows[] = {
        {"mpegts",   "mpeg2video", 230, ALWAYS },
        {"mpegts",   "mp2",        800, ALWAYS },
        {"ogg",      "flac",       60,  ALWAYS },
        {"avi",      "mpeg4",      230, ALWAYS },
        {"ac3",      "ac3",        700, ALWAYS },
        {"wav",      "pcm_s16le",  280, ALWAYS },
        {"flv",      "flv",        230, BY_LUCK},
        {"matroska", "mpeg4",      230, NEVER  },
        {"mp4",      "mpeg4",      230, NEVER  },
    };
    for (const auto& row : rows) {
        const std::vector<uint8_t> bytes = Mux(row.muxer, row.encoder, row.frames, 384'000);
        const int whole = Demuxing(bytes).Drain({}, av_read_frame);
        EXPECT_EQ(Demuxing(bytes).Drain({}, av_read_frame_fixed), whole);
        for (const double part : {0.3, 0.4, 0.5, 0.6}) {
            SCOPED_TRACE(testing::Message() << row.encoder << " in " << row.muxer << " at " << part);
            const int64_t place = At(bytes, part);
            const Damage lasting{place, place + 40'000, AVERROR(EIO), always};
            Demuxing plain(bytes), fixed(bytes);
            const int plainly = plain.Drain(lasting, av_read_frame);
            const int packets = fixed.Drain(lasting, av_read_frame_fixed);
            EXPECT_EQ(plain.last, AVERROR(EIO));
            EXPECT_GE(packets, row.finds == ALWAYS ? plainly + whole / 4 : plainly);
            if (row.finds == NEVER) {
                EXPECT_EQ(packets, plainly);
            }
            EXPECT_EQ(fixed.last, row.finds == NEVER ? AVERROR(EIO) : AVERROR_EOF)
                << "an error must not look like the end";

            // What fails only once costs little, and the rest can be had from all of them.
            Demuxing moody(bytes);
            EXPECT_GE(moody.Drain({place, place + 40'000, AVERROR(EIO), 1}, av_read_frame_fixed),
                      whole * 9 / 10);
            EXPECT_EQ(moody.last, AVERROR_EOF);

            Demuxing endless(bytes);
            EXPECT_LE(endless.Drain({place, INT64_MAX, AVERROR(EIO), always}, av_read_frame_fixed),
                      plainly + 1);
            EXPECT_EQ(endless.last, AVERROR(EIO));
        }
    }
}

const std::vector<uint8_t>& Sound()
{
    static const std::vector<uint8_t> bytes = Mux("ac3", "ac3", 1000, 384'000);
    return bytes;
}

TEST(ReadFrameFixed, SkipsInStepsUntilLittleIsLeft)
{
    const int64_t size = std::ssize(Sound());
    const auto read = [&](int64_t begin, int64_t length) {
        Demuxing input(Sound());
        input.Drain({begin, begin + length, AVERROR(EIO), always}, av_read_frame_fixed);
        return std::pair(input.last, input.failures);
    };
    // FFmpeg reads through up to 32 KiB instead of seeking, and fails there.
    const auto [last, failures] = read(size / 2, 100 * 1024);
    EXPECT_EQ(last, AVERROR_EOF);
    EXPECT_GE(failures, 100);
    EXPECT_LE(failures, 100 + 32 + 5);
    EXPECT_EQ(read(size - 140 * 1024, 1).first, AVERROR_EOF);
    EXPECT_EQ(read(size - 130 * 1024, 1).first, AVERROR(EIO)) << "nothing is skipped in the last 100 KiB";
    EXPECT_LE(read(size - 100 * 1024, 1).second, 2) << "not even tried";
}

TEST(ReadFrameFixed, SomeErrorsAreFinal)
{
    for (const int error : {AVERROR(ENOENT), AVERROR(ENXIO), AVERROR(ENODEV), AVERROR_EOF, AVERROR_EXIT}) {
        SCOPED_TRACE(error);
        const int64_t place = At(Sound(), 0.3);
        Demuxing plain(Sound()), fixed(Sound());
        const Damage damage{place, place + 1, error, always};
        EXPECT_EQ(plain.Drain(damage, av_read_frame), fixed.Drain(damage, av_read_frame_fixed));
        EXPECT_EQ(fixed.last, error);
        EXPECT_LE(fixed.failures, plain.failures + 1) << "once more after a packet";
    }
}

TEST(ReadFrameFixed, WaitsTwentyTimesForMore)
{
    const struct {
        double part;
        int times;
        bool all;
        int last;
    } rows[] = {
        {0.3,  20,     true,  AVERROR_EOF    },
        {0.98, 20,     true,  AVERROR_EOF    },
        {0.3,  25,     false, AVERROR_EOF    }, // skips once
        {0.98, 25,     false, AVERROR(EAGAIN)}, // must not skip
        {0.98, always, false, AVERROR(EAGAIN)},
    };
    Demuxing whole(Sound());
    whole.Drain({}, av_read_frame);
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.times << " times at " << row.part);
        Demuxing input(Sound());
        input.Drain({At(Sound(), row.part), INT64_MAX, AVERROR(EAGAIN), row.times}, av_read_frame_fixed);
        EXPECT_EQ(input.last, row.last);
        EXPECT_EQ(input.payload == whole.payload, row.all) << input.payload << " of " << whole.payload;
        EXPECT_GT(input.payload, whole.payload * 9 / 10);
        if (row.last == AVERROR(EAGAIN)) {
            EXPECT_GE(input.failures, 21);
            EXPECT_LE(input.failures, 22) << "one may have come with the last packet";
        }
    }
    Demuxing patient(Sound());
    patient.Drain({At(Sound(), 0.3), At(Sound(), 0.3) + 1, AVERROR(EAGAIN), always}, av_read_frame_fixed);
    EXPECT_EQ(patient.last, AVERROR_EOF);
    EXPECT_GT(patient.failures, 20 * 20) << "each skip is followed by as many attempts";
}

TEST(ReadFrameFixed, WhatAStreamThrowsReachesTheCaller)
{
    Demuxing input(Sound());
    EXPECT_THROW(input.Drain({At(Sound(), 0.5), INT64_MAX, 0, always}, av_read_frame_fixed),
                 Core::IOException);
}

TEST(ReadFrameFixed, DemuxersWithoutAnAVIOContextGetTheirError)
{
    AVFormatContext* context = nullptr;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "pattern_type", "none", 0);
    ASSERT_EQ(avformat_open_input(&context, "no such.pgm", av_find_input_format("image2"), &options), 0);
    ASSERT_EQ(context->pb, nullptr);
    AVPacket* packet = av_packet_alloc();
    EXPECT_LT(av_read_frame_fixed(context, packet), 0);
    av_packet_free(&packet);
    avformat_close_input(&context);
    av_dict_free(&options);
}

}  // namespace
}  // namespace Quorva::Proc
