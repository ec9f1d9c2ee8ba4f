// Streams, probes, properties, planes and reference counts.
#include "host/FoundationIO.h"
#include "host/ProcessingSupport.h"
#include "host/Property.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <boost/throw_exception.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

namespace Quorva {
namespace {

using Core::DataInputFile;
using Core::DataInputMemory;
using Core::DataOutputFile;
using Core::IDataInput;
using Core::IOException;
using testing::AllOf;
using testing::HasSubstr;

constexpr uint64_t GiB = uint64_t{1} << 30;

class Folder : public testing::Test {
protected:
    ioPath File(const std::string& name) const { return ioPath(folder.At(name)); }

    /// A file of `size` bytes that count up.
    ioPath Counting(const std::string& name, std::size_t size) const
    {
        std::vector<uint8_t> bytes(size);
        std::iota(bytes.begin(), bytes.end(), uint8_t{0});
        DataOutputFile::Create(File(name))->Write(bytes.data(), bytes.size());
        return File(name);
    }

    TemporaryFolder folder;
};

/// Up to `size` bytes from the position.
std::vector<uint8_t> Read(IDataInput& input, uint64_t size)
{
    std::vector<uint8_t> bytes(size, 0xEE);
    bytes.resize(input.Read(bytes.data(), size));
    return bytes;
}

/// Description and function of the IOException that `act` ends in.
template <class Act>
std::pair<std::string, std::string> FailureOf(Act act)
{
    try {
        act();
    } catch (const IOException& e) {
        return {e.what(), boost::get_throw_location(e).function_name()};
    }
    return {"nothing was thrown", ""};
}

using Files = Folder;

TEST_F(Files, ReadWhatWasWritten)
{
    const ioPath name = Counting("a.bin", 1000);
    for (const auto& input : {DataInputFile::Create(name), [] {
                                  std::vector<uint8_t> bytes(1000);
                                  std::iota(bytes.begin(), bytes.end(), uint8_t{0});
                                  return DataInputMemory::Create(std::move(bytes), "memory.bin");
                              }()}) {
        SCOPED_TRACE(input->GetName());
        EXPECT_EQ(input->GetSize(), 1000u);
        EXPECT_EQ(Read(*input, 3), (std::vector<uint8_t>{0, 1, 2}));
        EXPECT_EQ(input->MoveBy(-1), 2u);
        EXPECT_EQ(Read(*input, 2), (std::vector<uint8_t>{2, 3}));
        input->MoveTo(998);
        EXPECT_EQ(Read(*input, 10), (std::vector<uint8_t>{998 % 256, 999 % 256}));
        EXPECT_EQ(input->MoveBy(0), 1000u);
        EXPECT_EQ(Read(*input, 10).size(), 0u);
        EXPECT_EQ(input->MoveBy(5), 1005u);  // past the end is a position, too
        EXPECT_EQ(Read(*input, 10).size(), 0u);
    }
    EXPECT_EQ(DataInputFile::Create(name)->GetName(), name.GetText());
}

TEST_F(Files, RefuseImpossiblePositions)
{
    const auto output = DataOutputFile::Create(File("out.bin"));
    const auto check = [](auto& stream) {
        stream.MoveTo(10);
        EXPECT_EQ(FailureOf([&] { stream.MoveBy(-11); }).second, "MoveBy");
        EXPECT_EQ(FailureOf([&] { stream.MoveBy(INT64_MAX); }).second, "MoveBy");
        EXPECT_EQ(FailureOf([&] { stream.MoveBy(INT64_MIN); }).second, "MoveBy");
        EXPECT_EQ(FailureOf([&] { stream.MoveTo(uint64_t{1} << 63); }).second, "MoveTo");
        EXPECT_EQ(stream.MoveBy(0), 10u);
        stream.MoveTo(INT64_MAX);
    };
    check(*output);
    EXPECT_EQ(FailureOf([&] { output->Write(reinterpret_cast<const uint8_t*>("ab"), 2); }).second, "Write");
    check(*DataInputMemory::Create({1, 2, 3}));
    const auto input = DataInputFile::Create(File("out.bin"));
    check(*input);
    EXPECT_EQ(Read(*input, 10).size(), 0u);
}

TEST_F(Files, NameWhatCantBeOpened)
{
    Counting("secret", 1);
    ASSERT_EQ(::mkfifo(File("pipe").GetText().c_str(), 0600), 0);
    const struct {
        ioPath path;
        const char* reason;
    } rows[] = {
        {File("missing.mp4"),   "No such file"   },
        {ioPath(folder.path),   "Is a directory" },
        {File("secret/inside"), "Not a directory"},
        {File("pipe"),          "Illegal seek"   },
        {ioPath(""),            "No such file"   },
    };
    for (const auto& row : rows) {
        const auto [text, function] = FailureOf([&] { DataInputFile::Create(row.path); });
        EXPECT_THAT(text, AllOf(HasSubstr("'" + row.path.GetText() + "'"), HasSubstr(row.reason)));
        EXPECT_EQ(function, "Create");
    }
    EXPECT_THAT(FailureOf([&] { DataOutputFile::Create(ioPath(folder.path)); }).first,
                HasSubstr("Is a directory"));
    EXPECT_THAT(FailureOf([&] { DataOutputFile::Create(File("no/such/folder")); }).first,
                HasSubstr("No such file"));
}

TEST_F(Files, HaveMoreThanFourGigabytes)
{
    const ioPath name = File("sparse.bin");
    const auto output = DataOutputFile::Create(name);
    output->SetSize(5 * GiB);
    EXPECT_EQ(output->MoveBy(0), 0u);
    output->MoveTo(5 * GiB - 2);
    output->Write(reinterpret_cast<const uint8_t*>("xyz"), 3);
    EXPECT_EQ(output->GetSize(), 5 * GiB + 1);

    const auto input = DataInputFile::Create(name);
    EXPECT_EQ(input->GetSize(), 5 * GiB + 1);
    EXPECT_EQ(input->MoveBy(static_cast<int64_t>(5 * GiB - 3)), 5 * GiB - 3);
    EXPECT_EQ(Read(*input, 100), (std::vector<uint8_t>{0, 'x', 'y', 'z'}));

    output->SetSize(3);
    EXPECT_EQ(input->GetSize(), 3u);
    EXPECT_EQ(FailureOf([&] { output->SetSize(UINT64_MAX); }).second, "SetSize");
}

TEST_F(Files, ShrunkWhileReadGiveWhatIsLeft)
{
    const ioPath name = Counting("shrinks.bin", 1000);
    const auto input = DataInputFile::Create(name);
    EXPECT_EQ(Read(*input, 400).size(), 400u);
    ASSERT_EQ(::truncate(name.GetText().c_str(), 450), 0);
    EXPECT_EQ(Read(*input, 400).size(), 50u);
    EXPECT_EQ(Read(*input, 400).size(), 0u);
    EXPECT_EQ(input->GetSize(), 450u);
}

TEST_F(Files, FullDiskIsAnError)
{
    const auto output = DataOutputFile::Create(ioPath("/dev/full"));
    const auto [text, function] =
        FailureOf([&] { output->Write(reinterpret_cast<const uint8_t*>("data"), 4); });
    EXPECT_THAT(text, AllOf(HasSubstr("/dev/full"), HasSubstr("No space left")));
    EXPECT_EQ(function, "Write");
    EXPECT_EQ(output->MoveBy(0), 0u);
    output->Write(nullptr, 0);  // nothing always fits
}

TEST(Paths, KnowTheirExtension)
{
    const struct {
        const char* path;
        const char* extension;
    } rows[] = {
        {"a.MP4",            "mp4"       },
        {"/x.y/film.tar.Gz", "gz"        },
        {"/x.y/film",        ""          },
        {".hidden",          ""          },
        {".hidden.mkv",      "mkv"       },
        {"ends.",            ""          },
        {"..",               ""          },
        {"",                 ""          },
        {"ä.ÖGG",            "\xC3\x96gg"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ioPath(row.path).GetExtension(), row.extension) << row.path;
    EXPECT_EQ(ioPath(static_cast<const char*>(nullptr)).GetText(), "");
    EXPECT_EQ(ioPath("a//b/../\xFF").GetText(), "a//b/../\xFF");
}

using Probes = Folder;

TEST_F(Probes, HoldTheBeginningAndZeros)
{
    const auto input = DataInputFile::Create(Counting("film.MKV", 200));
    const struct {
        uint64_t wanted, size;
    } rows[] = {
        {0,          0  },
        {128,        128},
        {200,        200},
        {4096,       200},
        {UINT64_MAX, 200},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.wanted);
        input->MoveTo(77);
        const auto probe = Proc::MovieProbe::Create(input, row.wanted);
        EXPECT_EQ(probe->fileName, input->GetName());
        EXPECT_EQ(probe->extension, "mkv");
        ASSERT_EQ(probe->size, row.size);
        for (uint64_t i = 0; i < row.size + Proc::MovieProbe::PADDING; ++i)
            ASSERT_EQ(probe->buffer[i], i < row.size ? i : 0) << i;
        EXPECT_EQ(input->MoveBy(0), 0u);
    }
    const auto probe = Proc::MovieProbe::Create("noname", {'x'});
    EXPECT_EQ(probe->extension, "");
    EXPECT_EQ(probe->size, 1u);
    EXPECT_EQ(probe->buffer[0], 'x');
}

TEST(Properties, AreATreeOfTypedValues)
{
    using Core::Property;
    Property tree = Property::Group("root", {Property("flag", true), Property("ratio", 0.5)});
    tree.Add(Property("count", int64_t{1} << 40));
    tree.Add(Property::Group("empty"));
    tree.Add(Property("title", "text")).Name();
    tree.Add(Property("small", 7));
    tree.Add(Property("raw", std::vector<uint8_t>{1, 2}));
    tree.Add(Property());

    ASSERT_EQ(tree.Count(), 8u);
    const PropertyTypes types[] = {PropertyTypes::Boolean, PropertyTypes::Double, PropertyTypes::Int64,
                                   PropertyTypes::Group,   PropertyTypes::String, PropertyTypes::Int64,
                                   PropertyTypes::Binary,  PropertyTypes::Empty};
    for (uint64_t i = 0; i < tree.Count(); ++i)
        EXPECT_EQ(tree[i].Type(), types[i]) << i;
    EXPECT_EQ(tree[0].GetBool(), true);
    EXPECT_EQ(tree[1].GetDouble(), 0.5);
    EXPECT_EQ(tree[2].GetInt64(), int64_t{1} << 40);
    EXPECT_EQ(tree[4].GetString(), "text");
    EXPECT_EQ(tree[5].GetInt64(), 7);
    EXPECT_EQ(tree[4].Name(), "title");

    const Property copy = tree;
    tree.Add(Property("later", 1));
    EXPECT_EQ(copy.Count(), 8u);

    EXPECT_EQ(tree[3].Count(), 0u);
    EXPECT_EQ(FailureOf([&] { (void)tree[9]; }).second, "operator[]");
    EXPECT_EQ(FailureOf([&] { (void)tree[0][0]; }).second, "operator[]");
    EXPECT_EQ(FailureOf([&] { Property("leaf", 1).Add({}); }).second, "Add");
    EXPECT_EQ(FailureOf([&] { tree[0].GetInt64(); }).first, "Property 'flag' is not an integer");
    EXPECT_EQ(FailureOf([&] { tree[2].GetDouble(); }).second, "GetDouble");
    EXPECT_EQ(FailureOf([&] { tree[4].GetBool(); }).second, "GetBool");
}

TEST(Planes, CopyWhatBothHave)
{
    std::vector<uint8_t> source(8 * 5);
    std::iota(source.begin(), source.end(), uint8_t{1});
    const struct {
        const char* what;
        int64_t sourceStride, sourceLength, sourceRows;
        int64_t stride, length, rows;
    } rows[] = {
        {"equal strides, whole rows", 8, 8, 5, 8,  8,  5},
        {"source shorter",            8, 5, 3, 8,  8,  5},
        {"destination shorter",       8, 8, 5, 6,  6,  4},
        {"gaps between rows",         8, 7, 5, 10, 7,  5},
        {"equal strides with gaps",   8, 7, 5, 8,  7,  5},
        {"nothing",                   8, 8, 0, 8,  8,  5},
        {"less than nothing",         8, 8, 5, 8,  -1, 5},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        std::vector<uint8_t> destination(60, 0);
        Proc::CopyPlane({source.data(), row.sourceStride, row.sourceLength, row.sourceRows, 0, false},
                        {destination.data(), row.stride, row.length, row.rows, 0, false});
        std::vector<uint8_t> expected(60, 0);
        for (int64_t y = 0; y < std::min(row.sourceRows, row.rows); ++y)
            for (int64_t x = 0; x < std::min(row.sourceLength, row.length); ++x)
                expected[y * row.stride + x] = source[y * row.sourceStride + x];
        EXPECT_EQ(destination, expected);
    }
    // Upwards, from the second column.
    std::vector<uint8_t> destination(4);
    Proc::CopyPlane({source.data() + 8, -8, 2, 2, 1, false}, {destination.data() + 2, 2, 2, 2, 0, true});
    EXPECT_EQ(destination, (std::vector<uint8_t>{10, 11, 2, 3}));
}

TEST(RefCounting, CountsAndNeverWraps)
{
    const RefCountImpl count;
    EXPECT_EQ(count.ReleaseImpl(), 0u);
    EXPECT_EQ(count.AddRefImpl(), 1u);
    EXPECT_EQ(count.AddRefImpl(), 2u);
    EXPECT_EQ(count.ReleaseImpl(), 1u);
    EXPECT_EQ(count.ReleaseImpl(), 0u);
    EXPECT_EQ(count.ReleaseImpl(), 0u);
    EXPECT_EQ(count.AddRefImpl(), 1u);
}

TEST(RefCounting, LastOfManyThreadsDeletes)
{
    struct Counted : RefCounted<IRefCountable> {
        explicit Counted(int& deleted) : deleted(deleted) {}
        ~Counted() override { ++deleted; }
        int& deleted;
    };
    int deleted = 0;
    {
        std::vector<std::thread> threads;
        boost::intrusive_ptr<const IRefCountable> object = MakeRefCounted<Counted>(deleted);
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([object] {
                for (int n = 0; n < 1000; ++n)
                    boost::intrusive_ptr<const IRefCountable>(object).reset();
            });
        object.reset();
        for (std::thread& thread : threads)
            thread.join();
    }
    EXPECT_EQ(deleted, 1);
    EXPECT_EQ(MakeBlob({1, 2, 3})->GetSize(), 3u);
}

}  // namespace
}  // namespace Quorva
