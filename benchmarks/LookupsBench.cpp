// What the tables answer, beside what FFmpeg answers.
#include "Proc/Wrappers/Tessadrin/CodecList.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/InputFormat.h"
#include "Proc/Wrappers/Tessadrin/OutputFormat.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Codecs.h"
#include "benchmarks/support/Pairs.h"
#include "benchmarks/support/Rows.h"
#include "host/MediaDescription.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace Benchmarks {

using namespace Quorva;

namespace {

/// All of a kind in an order that no cache of branches learns.
template <class T>
std::vector<T> Shuffled(std::vector<T> values)
{
    std::ranges::shuffle(values, std::minstd_rand(1));
    return values;
}

/// Asks about one value after the other.
template <class T, class Ask>
Work AskInTurns(const std::vector<T>& values, Ask ask)
{
    return [values, ask](int64_t times) {
        size_t at = 0;
        for (int64_t i = 0; i < times; ++i) {
            benchmark::DoNotOptimize(ask(values[at]));
            if (++at == values.size())
                at = 0;
        }
    };
}

}  // namespace

void AddLookups()
{
    std::vector<AVCodecID> ids;
    std::vector<std::string> texts, names;
    for (const auto& [id, text] : GetFFCodecsMap())
        if (const AVCodecDescriptor* descriptor = avcodec_descriptor_get(id)) {
            ids.push_back(id);
            texts.push_back(text);
            names.emplace_back(descriptor->name);
        }
    ids = Shuffled(ids);
    texts = Shuffled(texts);
    names = Shuffled(names);
    Add({.name = "CodecIDToTextID",
         .peer = "avcodec_descriptor_get",
         .ours = AskInTurns(ids, [](AVCodecID id) { return CodecIDToTextID(id).data(); }),
         .peers = AskInTurns(ids, [](AVCodecID id) { return avcodec_descriptor_get(id); }),
         .limit = 1});
    Add({.name = "CodecIDFromTextID",
         .peer = "avcodec_descriptor_get_by_name",
         .ours = AskInTurns(texts, [](const std::string& text) { return CodecIDFromTextID(text); }),
         .peers = AskInTurns(
             names, [](const std::string& name) { return avcodec_descriptor_get_by_name(name.c_str()); }),
         .limit = 1. / 20});

    using Proc::ImplNames;
    Add({.name = "FindDecoder",
         .peer = "avcodec_find_decoder",
         .ours = AskInTurns(ids, [](AVCodecID id) { return Proc::FindDecoder(id, ImplNames::FFMPEG); }),
         .peers = AskInTurns(ids, [](AVCodecID id) { return avcodec_find_decoder(id); }),
         .limit = 1. / 50});
    Add({.name = "FindEncoder",
         .peer = "avcodec_find_encoder",
         .ours = AskInTurns(ids, [](AVCodecID id) { return Proc::FindEncoder(id, ImplNames::FFMPEG); }),
         .peers = AskInTurns(ids, [](AVCodecID id) { return avcodec_find_encoder(id); }),
         .limit = 1. / 50});

    std::vector<std::string> written, muxers, read, demuxers;
    for (const auto& [format, muxer] : Proc::GetFFMPEGSupportedOutputFormats()) {
        written.push_back(format);
        muxers.emplace_back(muxer->name);
    }
    for (const auto& [format, demuxer] : Proc::GetFFMPEGSupportedInputFormats()) {
        read.push_back(format);
        demuxers.emplace_back(std::string(demuxer->name).substr(0, std::string(demuxer->name).find(',')));
    }
    Add({.name = "GetOutputFormat",
         .peer = "av_guess_format",
         .ours = AskInTurns(written, [](const std::string& name) { return Proc::GetOutputFormat(name); }),
         .peers = AskInTurns(
             muxers, [](const std::string& name) { return av_guess_format(name.c_str(), nullptr, nullptr); }),
         .limit = 1. / 50});
    Add({.name = "supported input format",
         .peer = "av_find_input_format",
         .ours = AskInTurns(read,
                            [](const std::string& name) {
                                return Proc::GetFFMPEGSupportedInputFormats().find(name)->second;
                            }),
         .peers =
             AskInTurns(demuxers, [](const std::string& name) { return av_find_input_format(name.c_str()); }),
         .limit = 1. / 50});
}

}  // namespace Benchmarks
