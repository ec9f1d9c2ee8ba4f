#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/FoundationIO.h"
#include "tests/support/Allocation.h"
#include "tests/support/Failure.h"

#include <cstdint>
#include <iostream>
#include <limits>
#include <locale>
#include <string>
#include <vector>

namespace Quorva::Proc {
namespace {

using Core::Property;

class Dictionary {
public:
    Dictionary() = default;
    Dictionary(const Dictionary&) = delete;
    Dictionary& operator=(const Dictionary&) = delete;
    ~Dictionary() { av_dict_free(&dictionary); }
    AVDictionary** operator&() { return &dictionary; }
    operator AVDictionary*() const { return dictionary; }
    std::string Text() const { return AVDictionaryToStr(dictionary); }

private:
    AVDictionary* dictionary = nullptr;
};

/// As in Germany, for C++ streams; no locale of the system is needed.
class GermanNumbers {
public:
    GermanNumbers()
    {
        const std::locale german(std::locale::classic(), new Punctuation);
        global = std::locale::global(german);
        output = std::cout.imbue(german);
    }
    GermanNumbers(const GermanNumbers&) = delete;
    GermanNumbers& operator=(const GermanNumbers&) = delete;
    ~GermanNumbers()
    {
        std::cout.imbue(output);
        std::locale::global(global);
    }

private:
    struct Punctuation : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
        std::string do_truename() const override { return "wahr"; }
    };
    std::locale global, output;
};

TEST(PutMetadata, AddsReplacesAndIgnoresNothing)
{
    Dictionary dictionary;
    PutMetadata(&dictionary, "a", "");
    PutMetadata(&dictionary, "a", std::string());
    EXPECT_EQ(dictionary, nullptr);
    PutMetadata(&dictionary, "TITLE", "first");
    PutMetadata(&dictionary, "b", std::string("2"));
    PutMetadata(&dictionary, "Title", "second");
    PutMetadata(&dictionary, "b", "");
    EXPECT_EQ(av_dict_count(dictionary), 2);
    EXPECT_EQ(GetMetadata(dictionary, "TITLE"), "second");
    EXPECT_EQ(GetMetadata(dictionary, "b"), "2") << "an empty value removes nothing";
}

TEST(PutMetadata, NullIsRefused)
{
    Dictionary dictionary;
    const Failure expected{"NULL parameter(s)", "PutMetadata", "Tessadrin"};
    const auto failure = [](AVDictionary** target, const char* key, const char* value) {
        return FailureOf<Core::IOException>([=] { PutMetadata(target, key, value); });
    };
    EXPECT_EQ(failure(nullptr, "a", "1"), expected);
    EXPECT_EQ(failure(&dictionary, nullptr, "1"), expected);
    EXPECT_EQ(failure(&dictionary, "a", nullptr), expected);
    EXPECT_EQ(failure(nullptr, "a", ""), expected) << "before the value is looked at";
    EXPECT_EQ(FailureOf<Core::IOException>([&] { PutMetadata(&dictionary, nullptr, std::string("1")); }),
              expected);
    EXPECT_EQ(dictionary, nullptr);
}

TEST(PutMetadata, WantOfMemoryAddsNothing)
{
    Dictionary dictionary;
    const AllocationLimit limit(1000);
    PutMetadata(&dictionary, "a", std::string(2000, 'x'));
    EXPECT_EQ(dictionary, nullptr);
}

TEST(GetMetadata, FindsTheFirstKeyThatBeginsSo)
{
    Dictionary dictionary;
    EXPECT_EQ(GetMetadata(dictionary, "title"), "");
    PutMetadata(&dictionary, "artist", "someone");
    PutMetadata(&dictionary, "TITLE-eng", "English");
    PutMetadata(&dictionary, "title", "plain");
    EXPECT_EQ(GetMetadata(dictionary, "title"), "English");
    EXPECT_EQ(GetMetadata(dictionary, "Art"), "someone");
    EXPECT_EQ(GetMetadata(dictionary, "titles"), "");
    EXPECT_EQ(FailureOf<ProcException>([&] { GetMetadata(dictionary, nullptr); }),
              (Failure{"GetMetadata: key is NULL", "GetMetadata", "Tessadrin"}));
    EXPECT_EQ(FailureOf<ProcException>([] { GetMetadata(nullptr, nullptr); }).function, "GetMetadata");
}

TEST(GetMetadata, ValuesComeAsUtf8)
{
    Dictionary dictionary;
    PutMetadata(&dictionary, "old", "caf\xe9 cr\xe8me br\xfbl\xe9");
    PutMetadata(&dictionary, "new", "\u00fc\u4e2d");
    EXPECT_EQ(GetMetadata(dictionary, "old"), "caf\u00e9 cr\u00e8me br\u00fbl\u00e9");
    EXPECT_EQ(GetMetadata(dictionary, "new"), "\u00fc\u4e2d");
}

TEST(SetContextOptions, LeavesOfATreeBecomeText)
{
    const std::vector<Property> leaves = {
        Property("a", true),
        Property::Group("nested", {Property("b", 0.75)}),
        Property("c", 128000),
        Property("d", "text"),
        Property("none", ""),
        Property("bytes", std::vector<uint8_t>{1, 2}),
        Property(),
        Property::Group("hollow"),
        Property("e", false),
        Property("f", INT64_MIN),
    };
    Dictionary dictionary;
    SetContextOptions(&dictionary, Property::Group("encoder", leaves));
    EXPECT_EQ(dictionary.Text(), "a=true\nb=0.75\nc=128000\nd=text\ne=false\nf=-9223372036854775808");

    Dictionary single;
    SetContextOptions(&single, Property("alone", 1));
    EXPECT_EQ(single.Text(), "alone=1");
    SetContextOptions(&single, Property::Group("", {Property("ALONE", 2), Property("alone", 3)}));
    EXPECT_EQ(single.Text(), "alone=3") << "the last one stays";
}

TEST(SetContextOptions, NumbersAreThoseOfFFmpegInAnyLocale)
{
    const struct {
        double value;
        const char* text;
    } rows[] = {
        {0.5,                                     "0.5"     },
        {29.97,                                   "30"      },
        {999.5,                                   "1e+03"   },
        {1234.5,                                  "1.23e+03"},
        {-0.0001,                                 "-0.0001" },
        {0.00001,                                 "1e-05"   },
        {0.0,                                     "0"       },
        {100.0,                                   "100"     },
        {1e300,                                   "1e+300"  },
        {std::numeric_limits<double>::infinity(), "inf"     },
    };
    const auto check = [&] {
        for (const auto& row : rows) {
            Dictionary dictionary;
            SetContextOptions(&dictionary, Property("x", row.value));
            EXPECT_EQ(GetMetadata(dictionary, "x"), row.text);
        }
        Dictionary dictionary;
        SetContextOptions(&dictionary, Property::Group("", {Property("i", INT64_MAX), Property("t", true)}));
        EXPECT_EQ(dictionary.Text(), "i=9223372036854775807\nt=true");
    };
    check();
    const GermanNumbers german;
    check();
}

TEST(SetContextOptions, NoPlaceForTheDictionaryIsRefused)
{
    EXPECT_EQ(FailureOf<Core::IOException>([] { SetContextOptions(nullptr, Property("a", true)); }),
              (Failure{"NULL parameter(s)", "PutMetadata", "Tessadrin"}));
    EXPECT_EQ(FailureOf<Core::IOException>([] { SetContextOptions(nullptr, Property("a", "")); }).function,
              "PutMetadata");
    EXPECT_THROW(SetContextOptions(nullptr, Property()), Core::IOException);
    EXPECT_NO_THROW(SetContextOptions(nullptr, Property::Group("empty")));
}

TEST(AVDictionaryToStr, OneEntryALine)
{
    EXPECT_EQ(AVDictionaryToStr(nullptr), "NULL");
    Dictionary dictionary;
    PutMetadata(&dictionary, "a", "1");
    PutMetadata(&dictionary, "b", "2");
    EXPECT_EQ(dictionary.Text(), "a=1\nb=2");
    PutMetadata(&dictionary, "x=y", "back\\slash\nline");
    EXPECT_EQ(dictionary.Text(), "a=1\nb=2\nx\\=y=back\\\\slash\\\nline");
    const AllocationLimit limit(8);
    EXPECT_EQ(dictionary.Text(), "Can't get data from dictionary");
}

TEST(CreateStream, BelongsToTheContext)
{
    AVFormatContext* context = avformat_alloc_context();
    AVStream* const stream = CreateStream(context, avcodec_find_encoder(AV_CODEC_ID_MPEG4));
    ASSERT_EQ(context->nb_streams, 1u);
    EXPECT_EQ(context->streams[0], stream);
    EXPECT_EQ(CreateStream(context, nullptr)->index, 1);
    {
        const AllocationLimit limit(16);
        EXPECT_EQ(CreateStream(context, nullptr), nullptr);
    }
    avformat_free_context(context);
    EXPECT_EQ(CreateStream(nullptr, nullptr), nullptr);
}

TEST(GetMediaTypeName, EveryTypeHasOne)
{
    EXPECT_EQ(GetMediaTypeName(AVMEDIA_TYPE_VIDEO), "video");
    EXPECT_EQ(GetMediaTypeName(AVMEDIA_TYPE_AUDIO), "audio");
    EXPECT_EQ(GetMediaTypeName(AVMEDIA_TYPE_DATA), "data");
    EXPECT_EQ(GetMediaTypeName(AVMEDIA_TYPE_SUBTITLE), "subtitle");
    EXPECT_EQ(GetMediaTypeName(AVMEDIA_TYPE_ATTACHMENT), "attachment");
    EXPECT_EQ(GetMediaTypeName(AVMEDIA_TYPE_UNKNOWN), "unknown");
    EXPECT_EQ(GetMediaTypeName(AVMEDIA_TYPE_NB), "unknown");
}

TEST(Stristr, FindsTheFirstPlaceInAnyCase)
{
    const struct {
        const char* haystack;
        const char* needle;
        int place;  ///< -1 for none
    } rows[] = {
        {"video.mp4", "MP4",      6 },
        {"Video",     "vIDEO",    0 },
        {"aAab",      "AAB",      1 },
        {"a.mp4.MP4", "mp4",      2 },
        {"abc",       "abcd",     -1},
        {"abc",       "",         0 },
        {"",          "",         0 },
        {"",          "a",        -1},
        {"[]@",       "{}`",      -1},
        {"x\xc4\xd6", "\xc4\xd6", 1 },
        {"\xc4",      "\xe4",     -1},
        {"\xff",      "\xdf",     -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.haystack);
        std::string haystack = row.haystack;
        const char* const found = stristr(haystack.data(), row.needle);
        EXPECT_EQ(found ? found - haystack.data() : -1, row.place);
        EXPECT_EQ(haystack, row.haystack);
    }
    char text[] = "text";
    EXPECT_EQ(stristr(nullptr, "a"), nullptr);
    EXPECT_EQ(stristr(text, nullptr), nullptr);
}

}  // namespace
}  // namespace Quorva::Proc
