#include "Proc/Wrappers/Tessadrin/OutputFormat.h"

#include "Proc/Wrappers/Tessadrin/Details/OutputCatalogue.h"
#include "Proc/Wrappers/Tessadrin/Details/RequiredKey.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/MediaDescription.h"
#include "tests/support/Failure.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Quorva::Proc {
namespace {

using namespace Details;  // NOLINT(google-build-using-namespace): the library's insides are what is tested
using Conf::IFormatFile;
using testing::Contains;
using testing::Pair;

using Muxers = std::vector<const AVOutputFormat*>;

Muxers AllBut(std::string_view name)
{
    Muxers muxers = AllMuxers();
    std::erase_if(muxers, [&](const AVOutputFormat* muxer) { return muxer->name == name; });
    return muxers;
}

TEST(GetOutputFormat, FindsTheMuxer)
{
    const struct {
        const char* why;
        std::string format;
        const char* muxer;
        const char* mimeType;
    } rows[] = {
        {"its own",                  IFormatFile::FORMAT_WAV,        "wav",      "audio/x-wav"     },
        {"text unlike the constant", IFormatFile::FORMAT_AAC,        "adts",     "audio/aac"       },
        {"one of two by MIME type",  IFormatFile::FORMAT_MKA,        "matroska", "audio/x-matroska"},
        {"one of two by MIME type",  IFormatFile::FORMAT_MATROSKA,   "matroska", "video/x-matroska"},
        {"a picture",                IFormatFile::FORMAT_PNG,        "image2",   nullptr           },
        {"a picture's own name",     IFormatFile::FORMAT_GIF,        "gif",      "image/gif"       },
        {"another's",                IFormatFile::FORMAT_M4R,        "ipod",     "video/mp4"       },
        {"another's",                IFormatFile::FORMAT_WTV,        "mpeg",     "video/mpeg"      },
        {"another's",                IFormatFile::FORMAT_MPEG1VIDEO, "mpeg",     "video/mpeg"      },
        {"another's",                IFormatFile::FORMAT_MPEG2VIDEO, "vob",      "video/mpeg"      },
        {"another's",                IFormatFile::FORMAT_MPEG2TS,    "mpegts",   "video/MP2T"      },
        {"another's",                IFormatFile::FORMAT_WMA,        "asf",      "video/x-ms-asf"  },
        {"another's",                IFormatFile::FORMAT_SSA,        "ass",      "text/x-ass"      },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format + ": " + row.why);
        const AVOutputFormat* muxer = GetOutputFormat(row.format);
        EXPECT_STREQ(muxer->name, row.muxer);
        EXPECT_STREQ(muxer->mime_type, row.mimeType);
    }
}

TEST(GetOutputFormat, NamesWhatCannotBeWritten)
{
    for (const std::string format : {"WAV", "Mkv", "", "{}", "webp", "mov,mp4,m4a,3gp,3g2,mj2"})
        EXPECT_EQ(FailureOf<ProcException>([&] { GetOutputFormat(format); }),
                  (Failure{"Unknown file format: '" + format + "'", "GetOutputFormat", "OutputFormat"}));
}

TEST(RealOutputFormats, AreFFmpegsOwnNames)
{
    const auto rows = GetFFMPEGRealOutputFormats();
    EXPECT_EQ(rows.size(), 70u);
    std::set<std::string> present, names;
    for (const AVOutputFormat* muxer : AllMuxers())
        present.insert(muxer->name);
    for (const auto& [name, mimeType] : rows) {
        EXPECT_THAT(present, Contains(name)) << "misspelt, or missing in this build of FFmpeg";
        EXPECT_EQ(!mimeType.empty(), name == "matroska") << name;
        names.insert(name);
    }
    EXPECT_EQ(names.size(), 69u);
    EXPECT_THAT(rows, Contains(Pair("matroska", "audio/x-matroska")));
    EXPECT_THAT(rows, Contains(Pair("matroska", "video/x-matroska")));
}

TEST(SupportedOutputFormats, AreThe70MuxersAnd40OthersWrittenByThem)
{
    std::map<std::string, int> writers;
    int own = 0;
    for (const auto& [format, muxer] : GetFFMPEGSupportedOutputFormats())
        if (format == muxer->name || format == IFormatFile::FORMAT_MKA)
            ++own;
        else
            ++writers[muxer->name];
    EXPECT_EQ(own, 70);
    EXPECT_EQ(
        writers,
        (std::map<std::string, int>{
            {"image2", 28},
            {"mpeg",   2 },
            {"mpegts", 1 },
            {"vob",    1 },
            {"asf",    2 },
            {"ipod",   5 },
            {"ass",    1 }
    }));
}

TEST(OutputCatalogue, ExperimentalMuxersAreNotUsedAndTheFirstOfANameIs)
{
    AVOutputFormat experimental{}, second{}, nameless{};
    experimental.name = second.name = "wav";
    experimental.flags = AVFMT_EXPERIMENTAL | AVFMT_NOFILE;
    nameless.name = "matroska";  // without a MIME type
    Muxers muxers = AllBut("wav");
    muxers.push_back(&experimental);
    EXPECT_FALSE(OutputCatalogue(muxers).formats.contains(IFormatFile::FORMAT_WAV));
    muxers.push_back(&second);
    EXPECT_EQ(OutputCatalogue(muxers).formats.at(IFormatFile::FORMAT_WAV), &second);

    muxers = AllMuxers();
    muxers.insert(muxers.begin(), &nameless);
    muxers.push_back(&second);
    EXPECT_EQ(OutputCatalogue(muxers).formats, OutputCatalogue().formats);
}

TEST(OutputCatalogue, MuxersThatWriteOtherFormatsAreRequired)
{
    for (const std::string muxer : {"image2", "mpeg", "mpegts", "vob", "asf", "ipod", "ass"}) {
        SCOPED_TRACE(muxer);
        try {
            OutputCatalogue catalogue(AllBut(muxer));
            ADD_FAILURE() << "built without it";
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), "invalid unordered_map<K, T> key");
            EXPECT_EQ(PlaceOf(e, ""), (Failure{"", "OutputCatalogue", "OutputFormat"}));
            const std::string* key = boost::get_error_info<TagMissingKey>(e);
            EXPECT_EQ(key ? *key : "", muxer) << "nobody could tell what is missing";
        }
    }
    const OutputCatalogue reduced(AllBut("matroska"));
    EXPECT_FALSE(reduced.formats.contains(IFormatFile::FORMAT_MKA));
    EXPECT_FALSE(reduced.formats.contains(IFormatFile::FORMAT_MATROSKA));
}

}  // namespace
}  // namespace Quorva::Proc
