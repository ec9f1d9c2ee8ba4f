// Every operation that allocates, with its first allocation failing, its second, and so on until nothing
// fails.
#include "Proc/Wrappers/Tessadrin/Tessadrin.h"
#include "host/Charset.h"
#include "host/CodecDescriptions.h"
#include "host/Colour.h"
#include "host/Filesystem.h"
#include "host/Media.h"
#include "tests/support/FailingAllocator.h"
#include "tests/support/LogCapture.h"
#include "tests/support/MemoryStreams.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <sstream>

#if defined(__SANITIZE_ADDRESS__)
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:libuchardet";
}  // see the row of its texts
#endif

namespace Quorva::Proc {
namespace {

using FailingAllocator::Mode;

struct Row {
    const char* name;
    std::function<void()> action;
    bool inCpp = false;   ///< some of the allocations are C++'s, which sanitized builds see too
    long othersLose = 0;  ///< blocks that a library below loses at most, which can't be helped here
};

struct Outcome {
    bool refused = false;  ///< the allocation came, and failed
    long lost = 0;         ///< blocks
};

/// Runs the action with the nth allocation failing, and checks what comes out of it.
Outcome RunFailing(const Row& row, int nth, Mode mode)
{
    Outcome outcome;
    const long before = FailingAllocator::GetLiveBlocks();
    FailingAllocator::Arm(nth, mode);
    try {
        row.action();
        outcome.refused = FailingAllocator::Disarm();
    } catch (const Exception&) {
        outcome.refused = FailingAllocator::Disarm();
        EXPECT_TRUE(outcome.refused) << "thrown for another reason";
    } catch (const std::bad_alloc&) {
        outcome.refused = FailingAllocator::Disarm();
    } catch (const std::exception& e) {
        outcome.refused = FailingAllocator::Disarm();
        ADD_FAILURE() << "a foreign exception: " << e.what();
    }
    outcome.lost = FailingAllocator::GetLiveBlocks() - before;
    return outcome;
}

/// Fails every allocation of the row in turn.
/// @return  how many there were
int FailEach(const Row& row, Mode mode)
{
    for (int nth = 0;; ++nth) {
        SCOPED_TRACE(testing::Message() << row.name << ", allocation " << nth);
        Outcome outcome;
        for (int run = 0; run < 3;
             ++run)  // caches of names on call stacks, and of locales, grow in the first
            outcome = RunFailing(row, nth, mode);
        EXPECT_LE(outcome.lost, row.othersLose);
        if ((nth > 0 && !outcome.refused) || outcome.lost > row.othersLose)
            return nth - 1;
    }
}

Core::Property MakeOptions()
{
    using Core::Property;
    Property options = Property::Group("", {
                                               Property("a rather long name of a number", 1.5), {"b", 7}
    });
    options.Add(
        Property::Group("more", {
                                    {"preset", "a value too long to fit into the string"},
                                    {"x",      true                                     }
    }));
    return options;
}

struct FreeDictionary {
    ~FreeDictionary() { av_dict_free(&dictionary); }
    AVDictionary* dictionary = nullptr;
};

const Conf::SampleInfo stereo(44100, Conf::SampleFormats::S16, Conf::ChannelLayout::Stereo);
const Conf::SampleInfo surround(48000, Conf::SampleFormats::FLTP, Conf::ChannelLayout::Layout5Point1);

SwsCtxParams MakeParams(int width)
{
    return {
        .src = {.width = 64, .height = 48, .format = AV_PIX_FMT_YUV420P, .matrix = Conf::YCbCrMatrix::BT709},
        .dst = {.width = width, .height = 24, .format = AV_PIX_FMT_YUV444P}
    };  // RGB: see SafeSwsContext
}

boost::intrusive_ptr<VideoData> MakePicture(PixFmt format)
{
    auto video = MakeRefCounted<VideoData>(IDataVideo::Picture{64, 48, 1, 1}, format);
    const AVFrame& frame = *video->GetFrame();
    for (const AVBufferRef* buffer : frame.buf)
        if (buffer)
            std::fill_n(buffer->data, buffer->size, 128);
    return video;
}

struct Parameters {
    Parameters() = default;
    Parameters(const Parameters&) = delete;
    Parameters& operator=(const Parameters&) = delete;
    ~Parameters() { avcodec_parameters_free(&value); }
    AVCodecParameters* value = avcodec_parameters_alloc();
};

/// Kept, so that the row's own preparations can't fail.
struct Material {
    TemporaryFolder folder;
    std::string path = folder.Put("some file with a long name.mkv", std::string(5000, 'x'));
    std::string dump = (folder.path / "dump").native();
    std::vector<uint8_t> wave = [] {
        const std::string head(
            "RIFF\x24\x10\0\0WAVEfmt \x10\0\0\0\1\0\2\0\x44\xac\0\0\x10\xb1\2\0\4\0\x10\0data\0\x10\0\0", 44);
        std::vector<uint8_t> bytes(head.begin(), head.end());
        bytes.resize(4140);
        return bytes;
    }();
    Core::Property options = MakeOptions();
    boost::intrusive_ptr<VideoData> picture = MakePicture(PixFmt::YUV420P);
    boost::intrusive_ptr<VideoData> rgb = MakePicture(PixFmt::BGRA);
    boost::intrusive_ptr<const Conf::IFormatCodec> codec = [] {
        auto video = MakeRefCounted<Conf::VideoCodecDescription>();
        video->codecID = Conf::IFormatCodecVideo::CODEC_ID_H264;
        video->width = video->height = 64;
        video->extradata = MakeBlob(std::vector<uint8_t>(100));
        video->displayMatrix.emplace();
        video->frameCropping = Conf::FrameCropping{1, 2, 3, 4};
        return video;
    }();
};

std::vector<Row> MakeRows(const Material& m)
{
    return {
        {"option tree: copies",
         [&m] {
             Core::Property copy = m.options;
             const uint64_t count = copy.Count();
             try {
                 copy.Add(m.options);
             } catch (const std::bad_alloc&) {
                 EXPECT_EQ(copy.Count(), count);
                 throw;
             }
             copy = m.options;
         }, true},
        {"options into a dictionary",
         [&m] {
             FreeDictionary target;
             SetContextOptions(&target.dictionary, m.options);
             AVDictionaryToStr(target.dictionary);
             GetMetadata(target.dictionary, "preset");
         }, true},
        {"readable text",
         [] {
             // UTF-8 is taken as it is; the second needs the statistics, the third units of two bytes
             for (const char* text :
                  {"Grüße an alle, die hier sind",
                   "\xcf\xf0\xe8\xe2\xe5\xf2, \xec\xe8\xf0, \xea\xe0\xea \xe4\xe5\xeb\xe0"})
                 Core::CharsetEncoding::GetReadeableString(text);
             Core::CharsetEncoding::GetReadeableString(std::string("\xff\xfeT\0e\0s\0t\0", 10));
         }, true, 200}, // the statistics' constructors lose each other
        {"a failure and its call stack",
         [] {
             try {
                 CodecIDFromTextID("there is no codec of such a name");
                 ADD_FAILURE();
             } catch (const Conf::FormatException&) {
             }
         }, true},
        {"FFmpeg's results as text", [] { GetErrorDescriptionFFMPEG(-12345); }, true},
        {"lists of codecs and formats",
         [] {
             GetCustomFFDecodersList();
             GetFFMPEGKnownInputFormats();
             GetFFMPEGRealOutputFormats();
             TraceFFCodecs(true, true);
             GetSupportedHWPixelFormats(FindDecoder(AV_CODEC_ID_H264, ""));
             FilterPixelFormatsForSwScaling({PixFmt::YUV420P, PixFmt::BGRA}, true, true);
         }, true},
        {"an encoder's abilities",
         [] {
             const SafeEncoderCodec encoder(AV_CODEC_ID_H264, ImplNames::FFMPEG);
             encoder.GetSupportedPixFmts();
             encoder.GetSupportedOptions();
             encoder.GetOptionValues("preset");
         }, true},
        {"detection of a file",
         [&m] {
             const auto probe = MovieProbe::Create("x.wav", m.wave);
             ProbeResult result;
             DetectFileInputFormat(*probe, result);
             EXPECT_EQ(result.format, Conf::IFormatFile::FORMAT_WAV);
         }, true},
        {"files",
         [&m] {
             const auto input = Core::DataInputFile::Create(ioPath(m.path));
             const auto probe = MovieProbe::Create(input, 100);
             Core::DataOutputFile::Create(ioPath(m.dump))->Write(probe->buffer, probe->size);
             try {
                 Core::DataInputFile::Create(ioPath(m.path + ".none"));
             } catch (const Core::IOException&) {
             }
         }, true},
        {"reading through guarded callbacks",
         [&m] {
             StreamFailure failure;
             GuardedIO io(Core::DataInputMemory::Create(m.wave), 4096, failure);
             AVFormatContext* context = avformat_alloc_context();
             if (!context)
                 throw std::bad_alloc();
             context->pb = io.Get();
             const int opened = avformat_open_input(&context, "x.wav", nullptr, nullptr);
             if (opened >= 0) {
                 try {
                     EXPECT_EQ(GetContainerFormat(context), Conf::IFormatFile::FORMAT_WAV);
                 } catch (...) {
                     avformat_close_input(&context);
                     throw;
                 }
                 if (AVPacket* packet = av_packet_alloc()) {
                     av_read_frame_fixed(context, packet);
                     av_packet_free(&packet);
                 }
                 avformat_close_input(&context);
             }
             failure.Check();
         }, true},
        {"packets",
         [] {
             AVPacket* packet = CreatePacket(100);
             try {
                 AVPacket* copy = CopyPacket(packet);
                 ReleasePacket(&copy);
             } catch (...) {
                 ReleasePacket(&packet);
                 throw;
             }
             ReleasePacket(&packet);
         }},
        {"frames",
         [&m] {
             SafeFrame frame({}, AV_PIX_FMT_NV12, 64, 48, 1, 1);
             SafeFrame empty;
             const AVFrameWrapper wrapped(*m.picture->GetFrame());
             AVFrameWrapper copy(wrapped);
             copy = *frame.get();
         }},
        {"codec context",
         [] {
             SafeCodecContext context(FindDecoder(AV_CODEC_ID_MPEG4, ""));
             context = SafeCodecContext(nullptr);
         }},
        {"parameters",
         [&m] {
             const Parameters parameters;
             if (parameters.value)
                 FormatCodecToCodecParameters(m.codec, parameters.value);
         }},
        {"scaler",
         [&m] {
             SafeSwsContext scaler(MakeParams(32));
             try {
                 scaler = SafeSwsContext(MakeParams(16));
             } catch (...) {
                 EXPECT_EQ(scaler.GetParams().dst.width, 32);
                 throw;
             }
             SafeFrame target({}, AV_PIX_FMT_YUV444P, 16, 24, 1, 1);
             scaler.Scale(SwsSource(m.picture->GetFrame()), SwsDestination(target));
         }},
        {"resampler",
         [] {
             SafeSwrContext resampler(stereo, surround);
             const auto in = MakeRefCounted<AudioData>(stereo, 500);
             const auto out = MakeRefCounted<AudioData>(surround, 1000);
             resampler.Convert(in, out, 0);
             resampler.Init(surround, stereo);
         }},
        {"dumps", [&m] { AVFrame_SaveToBmp(m.rgb, m.dump); }, true},
        {"a packet's description",
         [] {
             AVPacket packet = {};
             std::ostringstream text;
             text << &packet;
         }, true},
        {"memory statistics",
         [] {
             MemStat statistics("a name that is too long for a short string");
             std::ostringstream text;
             text << statistics.GetSnapshot();
         }, true},
        {"a hardware device that isn't there",
         [] {
             try {
                 SafeBuffer device(AV_HWDEVICE_TYPE_DRM, "/no/such/device", nullptr, 0);
             } catch (const ProcException&) {
             }
         }, true},
    };
}

// Before anything else in this process uses them: tables that are built on first use are built by the first
// call that has the memory.
TEST(AllocationFailure, OnFirstUseLeavesTheTableToTheNextCall)
{
    const Row rows[] = {
        {"extensions",       [] { EXPECT_FALSE(Conf::GetFormatsByExtension("mkv").empty()); }                  },
        {"image containers",
         [] { EXPECT_FALSE(Conf::GetImageContainerSet(Conf::AnimatedImages::Include).empty()); }               },
        {"brands",           [] { EXPECT_FALSE(GetKnownISOBaseMediaFileFormats().empty()); }                   },
        {"supported inputs", [] { EXPECT_GT(GetFFMPEGSupportedInputFormats().size(), 100u); }                  },
        {"channel layouts",
         [] { EXPECT_EQ(AVChannelLayoutMaskFromQuorva(Conf::ChannelLayout::Mono), AV_CH_LAYOUT_MONO); }        },
        {"coefficients",     [] { EXPECT_GT(SafeSwsContext::GetCoefficients(Conf::YCbCrMatrix::BT709)[0], 0); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        int nth = 1;
        while (RunFailing(row, nth, nth % 2 ? Mode::Once : Mode::Lasting).refused && nth < 10'000)
            ++nth;
        EXPECT_EQ(RunFailing(row, 0, Mode::Once).lost, 0) << "what is built stays";
    }
}

TEST(AllocationFailure, IsAnExceptionAndLosesNothing)
{
    LogCapture();  // keeps the log off the terminal from now on; its sink would need memory itself
    const Material material;
    for (const Row& row : MakeRows(material)) {
        const int allocations = FailEach(row, Mode::Once);
        FailEach(row, Mode::Lasting);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        EXPECT_TRUE(allocations > 0 || !row.inCpp) << row.name;
#else
        EXPECT_GT(allocations, 0) << row.name;
#endif
    }
}

struct CountingSink : google::LogSink {
    void send(google::LogSeverity, const char*, const char*, int, const google::LogMessageTime&, const char*,
              size_t) override
    {
        ++records;
    }
    int records = 0;
};

TEST(AllocationFailure, OfTheLogLosesTheMessageOnly)
{
    LogCapture();
    CountingSink log;
    google::AddLogSink(&log);
    int number = 0;
    const Row row = {"message", [&] {
                         // formats are told apart by their text
                         char format[64] = "a message with a text that needs memory to be remembered 000\n";
                         const int at = ++number;
                         format[57] = static_cast<char>('0' + at / 100 % 10);
                         format[58] = static_cast<char>('0' + at / 10 % 10);
                         format[59] = static_cast<char>('0' + at % 10);
                         av_log(nullptr, AV_LOG_WARNING, format, 0);
                     }};
    int nth = 1;
    while (RunFailing(row, nth, Mode::Once).refused)
        ++nth;
    EXPECT_GT(nth, 1);
    log.records = 0;
    row.action();
    EXPECT_EQ(log.records, 1);
    google::RemoveLogSink(&log);
}

}  // namespace
}  // namespace Quorva::Proc
