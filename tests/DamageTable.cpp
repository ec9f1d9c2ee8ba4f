// DamageTable: how much of a damaged file is still read, in four ways.
//
//   DamageTable write FILE      measures everything and renews the table in FILE
//   DamageTable check FILE      measures everything; fails where less is read than FILE says, and
//                               where the work grows faster than the file
//   DamageTable quick           reads one file of each kind, for sanitizers; numbers are not compared
//   DamageTable corpus FOLDER   writes the damaged files
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.CustomIO.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.GuardedIO.h"
#include "tests/support/Damage.h"
#include "tests/support/Owned.h"
#include "tests/support/Program.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Quorva {
namespace {

namespace fs = std::filesystem;

/// Packets by their payload, which tells a packet that was recovered from one that was made up.
using Packets = std::unordered_map<std::string, int>;

enum Way { FirstError, ReadingOn, Skipping, Converting, ways };
constexpr const char* wayNames[ways] = {"First error", "Reading on", "Skipping", "`convert`"};

/// A demuxer that has nothing more to say says so this often.
constexpr int patience = 100;

/// Every packet that one way of reading gives.
Packets Read(AVFormatContext* context, Way way)
{
    Packets packets;
    const Owned<AVPacket> packet(av_packet_alloc());
    // Every packet stands for a byte at least; demuxers may go back and read the same again.
    const int64_t most = avio_size(context->pb) + 1000;
    int failures = 0;
    for (int64_t count = 0; count < most; ++count) {
        const int result = way == Skipping ? Proc::av_read_frame_fixed(context, packet.get())
                                           : av_read_frame(context, packet.get());
        if (result == AVERROR_EOF)
            break;
        if (result < 0) {
            if (way != ReadingOn || ++failures == patience)
                break;
            continue;
        }
        ++packets[std::string(reinterpret_cast<const char*>(packet->data),
                              static_cast<size_t>(packet->size))];
        av_packet_unref(packet.get());
    }
    return packets;
}

/// What is read of a file through the guarded callbacks; nothing when it can't be opened.
Packets Read(const Damage::Case& damaged, const char* extension, Way way, Damage::Effort& effort)
{
    Proc::StreamFailure failure;
    Proc::GuardedIO io(Damage::Open(damaged, effort), 32 * 1024, failure);
    AVFormatContext* context = avformat_alloc_context();
    context->pb = io.Get();
    if (avformat_open_input(&context, (damaged.name + "." + extension).c_str(), nullptr, nullptr) < 0)
        return {};
    const Owned<AVFormatContext> owner(context);
    avformat_find_stream_info(context, nullptr);
    return Read(context, way);
}

/// For the programs that are started while it lives: the disk below their input is bad there.
class BadDisk {
public:
    BadDisk(const Damage::BadSpot& spot, const char* extension)
    {
        if (spot.begin == spot.end)
            return;
        setenv("BAD_SPOT",
               fmt::format("{} {} {:d} in.{}", spot.begin, spot.end, spot.lasting, extension).c_str(), 1);
        setenv("LD_PRELOAD", BAD_SPOT_LIBRARY, 1);
    }
    BadDisk(const BadDisk&) = delete;
    BadDisk& operator=(const BadDisk&) = delete;
    ~BadDisk()
    {
        unsetenv("LD_PRELOAD");
        unsetenv("BAD_SPOT");
    }
};

/// What of the file is in what the program makes of it.
Packets Convert(const Damage::Case& damaged, const char* extension)
{
    const TemporaryFolder folder;
    const std::string from =
        folder.Put(std::string("in.") + extension, std::string(damaged.bytes.begin(), damaged.bytes.end()));
    const BadDisk disk(damaged.spot, extension);
    const Outcome outcome = RunProgram({"convert", from, folder.At("out.mkv")});
    if (outcome.signal || outcome.code > 1)
        throw std::runtime_error("convert ended with " + outcome.errors);
    AVFormatContext* context = nullptr;
    if (avformat_open_input(&context, folder.At("out.mkv").c_str(), nullptr, nullptr) < 0)
        return {};
    const Owned<AVFormatContext> owner(context);
    return Read(context, FirstError);
}

int CountCommon(const Packets& intact, const Packets& found)
{
    int count = 0;
    for (const auto& [payload, number] : found)
        if (const auto same = intact.find(payload); same != intact.end())
            count += std::min(number, same->second);
    return count;
}

int Count(const Packets& packets)
{
    int count = 0;
    for (const auto& [payload, number] : packets)
        count += number;
    return count;
}

struct Row {
    int cases = 0;
    int packets = 0;  ///< of all cases, were they intact
    std::array<int, ways> read{};
    double effort = 0;  ///< most bytes asked of a stream by the skipping reader, by its length
};
using Table = std::map<std::pair<std::string, std::string>, Row>;

Row Measure(const Damage::Container& container, const Damage::Kind& kind, const std::vector<uint8_t>& intact,
            bool quick)
{
    Row row;
    Damage::Effort effort;
    const Damage::Case whole{"intact", intact, {}};
    const Packets original = Read(whole, container.name, FirstError, effort);
    const Packets converted = quick ? Packets() : Convert(whole, container.name);
    if (original.size() < 20 || (!quick && converted.size() < 20))
        throw std::runtime_error(std::string("nothing to lose in ") + container.name);
    row.cases = quick ? 1 : kind.cases;
    // What is encoded again differs from the damage on: there packets count as they are.
    const bool copied = 2 * CountCommon(original, converted) > Count(original);
    for (int number = 0; number < row.cases; ++number) {
        const Damage::Case damaged = kind.make(intact, number);
        row.packets += Count(original);
        for (const Way way : {FirstError, ReadingOn, Skipping}) {
            effort = {};
            row.read[way] += CountCommon(original, Read(damaged, container.name, way, effort));
            row.effort = std::max(
                row.effort, static_cast<double>(effort.bytes) / static_cast<double>(damaged.bytes.size()));
        }
        if (!quick)
            row.read[Converting] += copied
                                        ? CountCommon(converted, Convert(damaged, container.name))
                                        : std::min(Count(converted), Count(Convert(damaged, container.name)));
    }
    return row;
}

Table MeasureAll(bool quick)
{
    Table table;
    for (const Damage::Container& container : Damage::Containers()) {
        const std::vector<uint8_t> intact = Damage::Make(container);
        for (const Damage::Kind& kind : Damage::Kinds())
            table[{container.name, kind.name}] = Measure(container, kind, intact, quick);
    }
    return table;
}

/// In the order of the rows, not of the alphabet.
void Write(std::ostream& stream, const Table& table)
{
    stream << "| File | Damage | Files | Packets |";
    for (const char* name : wayNames)
        stream << ' ' << name << " |";
    stream << " Effort |\n|---|---|---|---|---|---|---|---|---|\n";
    for (const Damage::Container& container : Damage::Containers())
        for (const Damage::Kind& kind : Damage::Kinds()) {
            const Row& row = table.at({container.name, kind.name});
            fmt::print(stream, "| {} | {} | {} | {} |", container.name, kind.name, row.cases, row.packets);
            for (const int read : row.read)
                stream << ' ' << read << " |";
            fmt::print(stream, " {:.1f} |\n", row.effort);
        }
}

Table ReadTable(const fs::path& path)
{
    Table table;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::vector<std::string> cells;
        std::istringstream stream(line);
        for (std::string cell; std::getline(stream, cell, '|');)
            cells.push_back(cell.size() > 2 ? cell.substr(1, cell.size() - 2) : "");
        if (cells.size() < 10 || cells[3].empty() || !std::isdigit(static_cast<unsigned char>(cells[3][0])))
            continue;
        Row row{std::stoi(cells[3]), std::stoi(cells[4]), {}, std::stod(cells[9])};
        for (size_t way = 0; way < ways; ++way)
            row.read[way] = std::stoi(cells[5 + way]);
        table[{cells[1], cells[2]}] = row;
    }
    return table;
}

/// @return  how many cells are worse
int Compare(const Table& known, const Table& measured)
{
    int worse = 0;
    for (const auto& [key, row] : measured) {
        const auto same = known.find(key);
        const std::string name = key.first + ", " + key.second;
        if (same == known.end()) {
            fmt::print("{}: not in the table\n", name);
            ++worse;
            continue;
        }
        // Encoders round differently on other processors, and other packets are hit then.
        const int slack = row.packets / 100;
        for (size_t way = 0; way < ways; ++way)
            if (row.read[way] < same->second.read[way] - slack) {
                fmt::print("{}: {} packets by {}, were {}\n", name, row.read[way], wayNames[way],
                           same->second.read[way]);
                ++worse;
            } else if (row.read[way] > same->second.read[way] + slack) {
                fmt::print("{}: {} packets by {}, were {}: better, the table may be renewed\n", name,
                           row.read[way], wayNames[way], same->second.read[way]);
            }
        if (row.effort > 1.1 * same->second.effort + 0.1) {
            fmt::print("{}: {:.1f} bytes are asked for each of the file, were {:.1f}\n", name, row.effort,
                       same->second.effort);
            ++worse;
        }
    }
    return worse;
}

/// Bytes that the skipping reader asks for, by the file's length.
double EffortOf(const std::vector<uint8_t>& intact, const char* extension, const Damage::Kind& kind)
{
    const Damage::Case damaged = kind.make(intact, kind.cases / 2);
    Damage::Effort effort;
    Read(damaged, extension, Skipping, effort);
    return static_cast<double>(effort.bytes) / static_cast<double>(damaged.bytes.size());
}

/// The work for a damaged file grows as its length does, not faster.
/// @return  how many cases break that
int CheckGrowth()
{
    int broken = 0;
    for (const Damage::Container& container : Damage::Containers()) {
        Damage::Container longer = container;
        longer.frames *= 4;
        const std::vector<uint8_t> intact = Damage::Make(container), longerIntact = Damage::Make(longer);
        for (const Damage::Kind& kind : Damage::Kinds()) {
            const double effort = EffortOf(intact, container.name, kind);
            const double longerEffort = EffortOf(longerIntact, container.name, kind);
            if (longerEffort <= 1.5 * std::max(effort, 1.) + 0.5)
                continue;
            fmt::print(
                "{}, {}: {:.1f} bytes are asked for each of the file, {:.1f} in one four times as long\n",
                container.name, kind.name, effort, longerEffort);
            ++broken;
        }
    }
    return broken;
}

/// All of the file but its table is written by hand.
void Renew(const fs::path& path, const Table& table)
{
    std::ostringstream text;
    {
        std::ifstream file(path);
        bool written = false;
        for (std::string line; std::getline(file, line);)
            if (!line.starts_with("|"))
                text << line << '\n';
            else if (!written) {
                written = true;
                Write(text, table);
            }
        if (!written)
            Write(text, table);
    }
    std::ofstream(path) << text.str();
}

void WriteCorpus(const fs::path& folder)
{
    for (const Damage::Container& container : Damage::Containers()) {
        const std::vector<uint8_t> intact = Damage::Make(container);
        fs::create_directories(folder / container.name);
        for (const Damage::Kind& kind : Damage::Kinds())
            for (int number = 0; number < kind.cases; ++number) {
                const Damage::Case damaged = kind.make(intact, number);
                if (damaged.spot.begin == damaged.spot.end)
                    std::ofstream(folder / container.name / (damaged.name + "." + container.name),
                                  std::ios::binary)
                        .write(reinterpret_cast<const char*>(damaged.bytes.data()),
                               static_cast<std::streamsize>(damaged.bytes.size()));
            }
    }
}

int Run(const std::vector<std::string>& arguments)
{
    av_log_set_level(AV_LOG_QUIET);
    const std::string command = arguments.empty() ? "" : arguments[0];
    if (command == "write" && arguments.size() == 2)
        return Renew(arguments[1], MeasureAll(false)), 0;
    if (command == "check" && arguments.size() == 2)
        return Compare(ReadTable(arguments[1]), MeasureAll(false)) + CheckGrowth() ? 1 : 0;
    if (command == "quick")
        return MeasureAll(true), 0;
    if (command == "corpus" && arguments.size() == 2)
        return WriteCorpus(arguments[1]), 0;
    std::fputs("usage: DamageTable write|check FILE, quick, or corpus FOLDER\n", stderr);
    return 64;
}

}  // namespace
}  // namespace Quorva

int main(int argc, char** argv)
{
    try {
        return Quorva::Run({argv + 1, argv + argc});
    } catch (const std::exception& e) {
        std::fprintf(stderr, "DamageTable: %s\n", e.what());
        return 1;
    }
}
