// Text of unknown encoding, and the call stacks and descriptions that exceptions carry.
#include "host/Charset.h"
#include "host/FoundationIO.h"
#include "host/MediaDescription.h"
#include "host/Property.h"

#include <gmock/gmock.h>
#include <boost/exception/get_error_info.hpp>
#include <boost/locale/utf.hpp>
#include <boost/throw_exception.hpp>

#include <array>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace Quorva {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string Readable(const std::string& text) { return Core::CharsetEncoding::GetReadeableString(text); }

TEST(Charset, Utf8IsLeftAlone)
{
    for (const auto& text :
         {""s, "plain"s, "Café"s, "Привет"s, "日本語"s, "\xEF\xBB\xBFmarked"s, "🎬"s, "a\0b"s, "one\0two\0"s,
          "\0\0\0\0"s, "\x01\x7F"s, "\xF4\x8F\xBF\xBF"s, "\xEF\xBF\xBF"s})
        EXPECT_EQ(Readable(text), text);
}

TEST(Charset, TitlesBecomeReadable)
{
    std::string longText;
    for (int i = 0; i < 5; ++i)
        longText +=
            "This image was made with the demo version, which may be used freely as long as this notice "
            "is kept. ";
    const struct {
        const char* charset;
        std::string bytes;
        std::string text;
    } rows[] = {
        {"CP1251",                     "\xCF\xF0\xE8\xE2\xE5\xF2, \xEC\xE8\xF0",                               "Привет, мир"                      },
        {"CP1251, short",              "\xD2\xE5\xF1\xF2",                                                     "Тест"                             },
        {"CP1251, capitals",           "\xCF\xD0\xC8\xC2\xC5\xD2 \xCC\xC8\xD0",                                "ПРИВЕТ МИР"                       },
        {"CP1251, mixed",              "\xC0\xF0\xE8\xFF (Live)",                                              "Ария (Live)"                      },
        {"KOI8-R",                     "\xF7\xCC\xC1\xC4\xC9\xCD\xC9\xD2 \xF7\xD9\xD3\xCF\xC3\xCB\xC9\xCA",    "Владимир Высоцкий"                },
        {"CP1252",                     "Caf\xE9 del Mar",                                                      "Café del Mar"                     },
        {"CP1252, one letter",         "\xE9",                                                                 "é"                                },
        {"CP1252, quotes",             "Don\x92t Stop",                                                        "Don’t Stop"                       },
        {"CP1252, dash",               "Garota de Ipanema \x96 Jo\xE3o Gilberto",                              "Garota de Ipanema – João Gilberto"},
        {"CP1252, many accents",       "Die \xC4rzte - M\xE4nner sind Schweine",
         "Die Ärzte - Männer sind Schweine"                                                                                                       },
        {"CP1252, not Japanese",
         "\x8Ei\x9E"
         "ek",                                                                                                 "Žižek"                            },
        {"CP1250",                     "Dvo\xF8\xE1k: Novosv\xECtsk\xE1",                                      "Dvořák: Novosvětská"              },
        {"CP1253",                     "\xCC\xDF\xEA\xE7\xF2 \xC8\xE5\xEF\xE4\xF9\xF1\xDC\xEA\xE7\xF2",        "Μίκης Θεοδωράκης"                 },
        {"CP1255",                     "\xF9\xEC\xE5\xED \xF2\xEC\xE9\xEB\xED",                                "שלום עליכם"                       },
        {"Shift JIS",                  "\x89\x46\x91\xBD\x93\x63\x83\x71\x83\x4A\x83\x8B",                     "宇多田ヒカル"                     },
        {"Shift JIS, kanji",           "\x93\xFA\x96\x7B\x8C\xEA",                                             "日本語"                           },
        {"Shift JIS, katakana",        "\x83\x65\x83\x58\x83\x67",                                             "テスト"                           },
        {"Shift JIS, one kanji",       "X JAPAN - \x8D\x67",                                                   "X JAPAN - 紅"                     },
        {"Shift JIS, cut",             "\x8E\x63\x8D\x93\x82\xC8\x93\x56\x8E\x67\x82\xCC\x83\x65\x81\x5B\x83",
         "残酷な天使のテー\uFFFD"                                                                                                                 },
        {"EUC-JP",                     "\xC0\xE9\xA4\xC8\xC0\xE9\xBF\xD2\xA4\xCE\xBF\xC0\xB1\xA3\xA4\xB7",     "千と千尋の神隠し"                 },
        {"GB 18030",                   "\xD4\xC2\xC1\xC1\xB4\xFA\xB1\xED\xCE\xD2\xB5\xC4\xD0\xC4",             "月亮代表我的心"                   },
        {"Big5",                       "\xA9\x50\xAA\x4E\xAD\xDB",                                             "周杰倫"                           },
        {"EUC-KR",                     "\xB0\xAD\xB3\xB2\xBD\xBA\xC5\xB8\xC0\xCF",                             "강남스타일"                       },
        {"UTF-16 LE, mark",            "\xFF\xFE\x1F\x04\x38\x04\x3A\x04"s,                                    "Пик"                              },
        {"UTF-16 BE, mark",            "\xFE\xFF\x65\xE5\x67\x2C"s,                                            "日本"                             },
        {"UTF-16 LE",                  "N\0o\0\xEB\0l\0"s,                                                     "Noël"                             },
        {"UTF-16 BE",                  "\0N\0o\0\xEB\0l"s,                                                     "Noël"                             },
        {"UTF-16, pair",               "\xFF\xFE\x3C\xD8\xAC\xDF"s,                                            "🎬"                               },
        {"UTF-16, broken",             "\xFF\xFE\x41\0\x3C\xD8\x42\0\x43"s,                                    "A\uFFFDB\uFFFD"                   },
        {"UTF-32 LE, mark",            "\xFF\xFE\0\0\x41\0\0\0"s,                                              "A"                                },
        {"UTF-16 mark, Latin text",    "\xFF\xFEHello, \xE9t\xE9 and winter",                                  "ÿþHello, été and winter"          },
        {"UTF-16 mark, UTF-8 text",    "\xFF\xFEПривет",                                                       "ÿþПривет"                         },
        {"UTF-16 BE mark, ASCII text", "\xFE\xFFplain words",                                                  "þÿplain words"                    },
        {"CP1252, sign in long text",  longText + "\xAE",                                                      longText + "®"                     },
        {"CP1252, signs and accent",   "Se\xF1or \xA9 1998, 30\xB0 \xBD",                                      "Señor © 1998, 30° ½"              },
        {"CP1252, French",             "\xE0 la carte, tr\xE8s bien",                                          "à la carte, très bien"            },
        {"CP1250, first letter",
         "\xC8"
         "esk\xE1 filharmonie",                                                                                "Česká filharmonie"                },
        {"UTF-8, cut",                 "\xD0\x9A\xD0\xB8\xD0\xBD\xD0",                                         "Кин\uFFFD"                        },
    };
    for (const auto& row : rows)
        EXPECT_EQ(Readable(row.bytes), row.text) << row.charset;
}

TEST(Charset, AnyBytesBecomeValidUtf8)
{
    using Utf8 = boost::locale::utf::utf_traits<char>;
    std::mt19937 random(20);  // NOLINT(cert-msc51-cpp): the same texts every time
    for (int round = 0; round < 2000; ++round) {
        std::string text(random() % 50, '\0');
        for (char& c : text)
            switch (round % 4) {
                case 0:
                    c = static_cast<char>(random());
                    break;
                case 1:  // half of it plain
                    c = static_cast<char>(random() % 2 ? 0x80 + random() % 0x80 : 0x20 + random() % 0x60);
                    break;
                case 2:  // like UTF-16
                    c = static_cast<char>(random() % 2 ? 0 : random());
                    break;
                default:  // like two-byte sets
                    c = static_cast<char>(0xA1 + random() % 0x5E);
            }
        const std::string result = Readable(text);
        for (auto at = result.begin(); at != result.end();)
            ASSERT_TRUE(boost::locale::utf::is_valid_codepoint(Utf8::decode(at, result.end())))
                << testing::PrintToString(text);
    }
}

TEST(CallStack, BeginsWithTheCaller)
{
    const std::string stack = GetCallStack();
    EXPECT_THAT(stack, StartsWith("#0 "));
    EXPECT_THAT(stack.substr(0, stack.find('\n')), HasSubstr("HostTextTest"));
    EXPECT_THAT(stack, Not(HasSubstr("GetCallStack")));
    EXPECT_THAT(stack, HasSubstr("libc.so"));  // who called main()
}

TEST(CallStack, ThreadsShareTheNames)
{
    std::array<std::string, 4> stacks;
    std::vector<std::thread> threads;
    for (std::string& stack : stacks)
        threads.emplace_back([&stack] {
            for (int i = 0; i < 50; ++i)
                stack = GetCallStack();
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const std::string& stack : stacks) {
        EXPECT_THAT(stack, StartsWith("#0 "));
        EXPECT_EQ(stack, stacks[0]);
    }
}

TEST(Exceptions, CarryDescriptionStackAndPlace)
{
    const Core::Property number("answer", 42);
    try {
        number.GetString();
        FAIL() << "a number was read as a string";
    } catch (const Exception& e) {
        EXPECT_TRUE(dynamic_cast<const Core::IOException*>(&e));
        EXPECT_STREQ(e.what(), "Property 'answer' is not a string");
        EXPECT_EQ(*boost::get_error_info<TagDescription>(e), e.what());
        EXPECT_THAT(*boost::get_error_info<TagCallStack>(e), HasSubstr("Quorva::Core::Property::GetString"));
        const boost::source_location place = boost::get_throw_location(e);
        EXPECT_STREQ(place.function_name(), "GetString");
        EXPECT_THAT(place.file_name(), testing::EndsWith("host/src/Property.cpp"));
        EXPECT_GT(place.line(), 0u);
        EXPECT_GT(place.column(), 0u);
    }
    EXPECT_STREQ(Exception().what(), "Quorva::Exception");
}

TEST(Exceptions, MemoryKeepsWhatWasAskedForWhenWrapped)
{
    try {
        boost::throw_exception(Core::MemoryException("no room", uint64_t{1} << 40), BOOST_CURRENT_LOCATION);
    } catch (const Core::CoreException& e) {
        const auto* const memory = dynamic_cast<const Core::MemoryException*>(&e);
        ASSERT_TRUE(memory);
        EXPECT_EQ(memory->GetSize(), uint64_t{1} << 40);
        EXPECT_EQ(memory->GetDescription(), "no room");
        EXPECT_STREQ(e.what(), "no room");
    }
}

}  // namespace
}  // namespace Quorva
