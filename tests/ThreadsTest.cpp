// Sixteen threads at once call everything that may be called so, in a process that hasn't called it before.
#include "Proc/Wrappers/Tessadrin/Tessadrin.h"
#include "host/Charset.h"
#include "host/CodecDescriptions.h"
#include "host/Colour.h"
#include "host/ProcessingSupport.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>
#include <boost/exception/get_error_info.hpp>

#include <barrier>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace Quorva::Proc {
namespace {

constexpr int threadCount = 16;

/// Runs the action on all threads, which start together.
void OnAllThreads(const std::function<void(int thread)>& action)
{
    std::barrier start(threadCount);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread)
        threads.emplace_back([&, thread] {
            start.arrive_and_wait();
            action(thread);
        });
    for (std::thread& thread : threads)
        thread.join();
}

std::string DetectAs(const char* name, const std::vector<uint8_t>& bytes)
{
    ProbeResult result;
    DetectFileInputFormat(*MovieProbe::Create(name, bytes), result);
    return result.format;
}

std::string FailureText()
{
    try {
        CodecIDFromTextID("no such codec");
    } catch (const Conf::FormatException& e) {
        return *boost::get_error_info<TagDescription>(e) +
               (boost::get_error_info<TagCallStack>(e)->empty() ? "" : " with a stack");
    }
    return "nothing thrown";
}

/// Text that depends on a table, or on something else that is built on first use.
struct FirstUse {
    const char* name;
    std::string (*text)();
};

// In separate rounds, so that the threads meet at each of them.
const FirstUse firstUses[] = {
    {"supported inputs",          [] { return std::to_string(GetFFMPEGSupportedInputFormats().size()); }        },
    {"supported outputs",         [] { return std::to_string(GetFFMPEGSupportedOutputFormats().size()); }       },
    {"known demuxers",            [] { return std::to_string(GetFFMPEGKnownInputFormats().size()); }            },
    {"candidates by extension",   [] { return Conf::GetFormatsByExtension("webm").front(); }                    },
    {"image containers",
     [] { return std::to_string(Conf::GetImageContainerSet(Conf::AnimatedImages::Exclude).size()); }            },
    {"brands",                    [] { return GetKnownISOBaseMediaFileFormats().front(); }                      },
    {"recognition of pictures",
     [] {
         const std::vector<uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n', 0,   0,   0,
                                           13,   'I', 'H', 'D', 'R',  0,    0,    0,    1,   0,   0,
                                           0,    1,   8,   2,   0,    0,    0,    0x90, 'w', 'S', 0xde,
                                           0,    0,   0,   0,   'I',  'E',  'N',  'D'};
         return DetectAs("a.png", png) + DetectAs("", png) +
                DetectAs("a.gif", {'G', 'I', 'F', '8', '9', 'a'});
     }                                                                                                          },
    {"channel layouts",
     [] {
         return std::to_string(AVChannelLayoutMaskFromQuorva(Conf::ChannelLayout::Layout5Point1)) +
                std::to_string(static_cast<int>(QuorvaFromAVChannelLayoutMask(AV_CH_LAYOUT_STEREO)));
     }                                                                                                          },
    {"layout records",            [] { return *Conf::LayoutRecord::Find(6)->name; }                             },
    {"sample formats",            [] { return Conf::SampleFormatRecord::Find(Conf::SampleFormats::FLTP)->name; }},
    {"pixel formats",
     [] {
         return std::to_string(PixFmtDescription::GetSupportedList().size()) +
                PixFmtDescription::Find(PixFmt::NV12)->GetName();
     }                                                                                                          },
    {"quantizers",
     [] {
         auto codec = MakeRefCounted<Conf::VideoCodecDescription>();
         codec->codecID = Conf::IFormatCodecVideo::CODEC_ID_H264;
         int64_t largest = 0;
         return std::to_string(GetProperQuality(codec, largest)) + " of " + std::to_string(largest);
     }                                                                                                          },
    {"coefficients",
     [] {
         std::string text;
         for (int matrix = 0; matrix < 18; ++matrix)
             text += std::to_string(*SafeSwsContext::GetCoefficients(static_cast<Conf::YCbCrMatrix>(matrix)));
         return text;
     }                                                                                                          },
    {"codecs",
     [] {
         return CodecIDToTextID(AV_CODEC_ID_OPUS) + FindDecoder(AV_CODEC_ID_OPUS, ImplNames::FFMPEG)->name +
                std::to_string(TraceFFCodecs(true, true).size());
     }                                                                                                          },
    {"tags",                      [] { return FindCodecID(MKTAG('a', 'v', 'c', '1')) + FindMP4CodecID(0x40); }  },
    {"character sets",
     [] { return Core::CharsetEncoding::GetReadeableString("\xcf\xf0\xe8\xe2\xe5\xf2, \xec\xe8\xf0"); }         },
    {"failures and their stacks", FailureText                                                                   },
    {"FFmpeg's results",
     [] { return GetErrorDescriptionFFMPEG(-12345) + GetErrorDescriptionFFMPEG(AVERROR_EOF); }                  },
};

TEST(SixteenThreads, UseForTheFirstTimeWhatIsBuiltThen)
{
    for (const FirstUse& use : firstUses) {
        std::string found[threadCount];
        OnAllThreads([&](int thread) { found[thread] = use.text(); });
        for (const std::string& text : found) {
            EXPECT_FALSE(text.empty()) << use.name;
            EXPECT_EQ(text, found[0]) << use.name;
        }
    }
}

TEST(SixteenThreads, HaveObjectsOfTheirOwn)
{
    LogCapture log;
    OnAllThreads([](int thread) {
        const int width = 16 + 2 * thread;
        const SafeSwsContext scaler(SwsCtxParams{
            {width,     16, AV_PIX_FMT_YUV420P10LE},
            {2 * width, 32, AV_PIX_FMT_BGRA       }
        });
        const SafeFrame source({}, AV_PIX_FMT_YUV420P10LE, width, 16, 1, 1);
        const SafeFrame target({}, AV_PIX_FMT_BGRA, 2 * width, 32, 1, 1);
        for (int plane = 0; plane < 3; ++plane)
            for (int y = 0; y < (plane ? 8 : 16); ++y)
                std::fill_n(source->data[plane] + y * source->linesize[plane], plane ? width : 2 * width, 3);
        EXPECT_EQ(scaler.Scale(SwsSource(source), SwsDestination(target)), 32);
        const SafeSwrContext resampler(
            Conf::SampleInfo(8000 + thread, Conf::SampleFormats::S16, Conf::ChannelLayout::Mono),
            Conf::SampleInfo(48000, Conf::SampleFormats::FLTP, Conf::ChannelLayout::Stereo));
        EXPECT_GE(resampler.GetDelay(48000), 0);
        SafeCodecContext decoder(FindDecoder(AV_CODEC_ID_MPEG4, ImplNames::FFMPEG));
        EXPECT_EQ(avcodec_open2(decoder.get(), nullptr, nullptr), 0);
        for (int i = 0; i < 50; ++i) {
            AVPacket* packet = CreatePacket(static_cast<size_t>(thread) * 100);
            AVPacket* copy = CopyPacket(packet);
            ReleasePacket(&packet);
            ReleasePacket(&copy);
            av_log(decoder.get(), AV_LOG_ERROR, "all say the same %d\n", thread);
        }
    });
    const auto records = log.Take();
    EXPECT_EQ(std::ranges::count_if(records,
                                    [](const LogRecord& r) { return r.text.find("all say") != r.text.npos; }),
              1);
}

}  // namespace
}  // namespace Quorva::Proc
