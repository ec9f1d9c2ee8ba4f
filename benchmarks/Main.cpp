// The benchmarks: a table on standard output, and in benchmarks/RESULTS.md.
//
//   TessadrinBench [FILTER]          measures the rows whose names have FILTER in them; all are written
//   TessadrinBench growth            draws docs/growth.svg instead
//   TessadrinBench --check [FILTER]  compares with the stored ratios; 1 where one got worse by over 12
//   percent,
//                                    best of three
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "benchmarks/support/Pairs.h"
#include "benchmarks/support/Programs.h"
#include "benchmarks/support/Rows.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace Benchmarks {
namespace {

constexpr int rounds = 41;
constexpr double tolerance = 1.12;

std::vector<Result> results;

/// One iteration of Google Benchmark is one whole measurement in turns.
void RunPair(benchmark::State& state, const Pair& pair)
{
    for ([[maybe_unused]] auto iteration : state) {
        const Result result = Measure(pair, rounds);
        state.SetIterationTime(result.seconds);
        state.counters["ratio"] = result.ratio;
        results.push_back(result);
    }
}

void Tell(const Result& r)
{
    fmt::print("{:<62} {:>9.4g}  ({:.4g} to {:.4g}){}\n", r.name, r.ratio, r.lowerQuartile, r.upperQuartile,
               r.ratio > r.limit ? fmt::format("  over {:.4g}", r.limit) : "");
    if (r.instructions > 0)
        fmt::print("{:>62} {:+.0f} instructions on {:.0f}\n", "", r.instructions - r.peersInstructions,
                   r.peersInstructions);
    std::fflush(stdout);
}

/// Tells each row as it comes; the table is written at the end.
class LineReporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>&) override { Tell(results.back()); }
};

std::string TimeText(double seconds)
{
    const std::pair<double, const char*> units[] = {
        {1e-9, "ns"},
        {1e-6, "us"},
        {1e-3, "ms"}
    };
    for (const auto& [unit, name] : units)
        if (seconds < 1000 * unit)
            return fmt::format("{:.3g} {}", seconds / unit, name);
    return fmt::format("{:.3g} s", seconds);
}

std::string Row(const Result& r)
{
    std::string counts = fmt::format("{:.3g} and {:.3g} allocations", r.allocations, r.peersAllocations);
    if (r.allocations == 0 && r.peersAllocations == 0)
        counts = "";
    if (r.instructions > 0)
        counts += fmt::format("{}{:+.0f} instructions on {:.0f}", counts.empty() ? "" : "; ",
                              r.instructions - r.peersInstructions, r.peersInstructions);
    if (!r.remark.empty())
        counts += (counts.empty() ? "" : "; ") + r.remark;
    const std::string limit = std::isinf(r.limit) ? "" : fmt::format("{:.4g}", r.limit);
    return fmt::format("| {} | {} | {:.4g} | {:.4g} to {:.4g} | {} | {} | {} |\n", r.name, r.peer, r.ratio,
                       r.lowerQuartile, r.upperQuartile, limit, TimeText(r.seconds), counts);
}

std::string Machine()
{
    std::ifstream file("/proc/cpuinfo");
    std::string model = "unknown processor";
    for (std::string line; std::getline(file, line);)
        if (line.starts_with("model name"))
            model = line.substr(line.find(':') + 2);
    return fmt::format("{}, {} cores, GCC {}, FFmpeg {}", model, std::thread::hardware_concurrency(),
                       __VERSION__, av_version_info());
}

void WriteResults()
{
    std::ofstream file(TESSADRIN_RESULTS "/RESULTS.md");
    file << "# Results\n\nWritten by `./dev bench` on: " << Machine()
         << ".\n\nA ratio is our time on the processor by the peer's, the median of 41 rounds "
            "in which both work in turns; beside it the quartiles. Below 1 is faster than the "
            "peer. The "
            "times are those of one of ours and differ from machine to machine.\n\n"
            "| What | Peer | Ratio | Quartiles | Wanted | Ours takes | Counts: ours, peer's "
            "|\n|---|---|---|---|---|---|---|\n";
    for (const Result& result : results)
        file << Row(result);
    std::ofstream ratios(TESSADRIN_RESULTS "/ratios.tsv");
    for (const Result& result : results)
        ratios << result.name << '\t' << fmt::format("{:.4g}", result.ratio) << '\n';
}

int Check(const std::string& filter)
{
    std::map<std::string, double> stored;
    std::ifstream file(TESSADRIN_RESULTS "/ratios.tsv");
    for (std::string line; std::getline(file, line);)
        stored[line.substr(0, line.find('\t'))] = std::stod(line.substr(line.find('\t') + 1));
    int worse = 0;
    for (const Pair& pair : GetPairs()) {
        const auto before = stored.find(pair.name);
        if (before == stored.end() || pair.name.find(filter) == std::string::npos)
            continue;
        double best = INFINITY;
        for (int attempt = 0; attempt < 3 && best > tolerance * before->second; ++attempt)
            best = std::min(best, Measure(pair, pair.times == 1 ? 5 : rounds).ratio);
        const bool slower = best > tolerance * before->second;
        fmt::print("{:<62} {:>9.4g}, was {:.4g}{}\n", pair.name, best, before->second,
                   slower ? ": SLOWER" : "");
        std::fflush(stdout);
        worse += slower;
    }
    fmt::print("{} rows got slower by more than {:.0f} percent\n", worse, 100 * (tolerance - 1));
    return worse ? 1 : 0;
}

int Main(int argc, char** argv)
{
    std::vector<std::string> words(argv + 1, argv + argc);
    const bool check = !words.empty() && words.front() == "--check";
    if (check)
        words.erase(words.begin());
    const std::string filter = words.empty() ? "" : words.front();
    if (filter == "growth")
        return DrawGrowth(), 0;
    const auto wanted = [&](const char* name) {
        return std::string_view(name).find(filter) != std::string::npos;
    };
    const auto keep = [](const std::vector<Result>& more) {
        std::ranges::for_each(more, Tell);
        results.insert(results.end(), more.begin(), more.end());
    };
    // Programs first: the system counts our memory at the time as theirs.
    if (!check && wanted("tables at load, first throw"))
        keep(MeasureLoad());
    if (!check && wanted("convert: 30 s of 720p mpeg4"))
        keep(MeasureConvert());
    for (const auto add : {AddLookups, AddDetection, AddLog, AddPictures, AddReading, AddFailures})
        add();
    if (check)
        return Check(filter);
    bool any = false;
    for (const Pair& pair : GetPairs())
        if (wanted(pair.name.c_str()) && (any = true))
            benchmark::RegisterBenchmark(pair.name.c_str(),
                                         [&pair](benchmark::State& state) { RunPair(state, pair); })
                ->UseManualTime()
                ->Iterations(1);
    LineReporter reporter;
    if (any)
        benchmark::RunSpecifiedBenchmarks(&reporter);
    if (filter.empty())
        WriteResults();
    return results.empty() ? 2 : 0;  // 2: no row of that name
}

}  // namespace
}  // namespace Benchmarks

int main(int argc, char** argv) { return Benchmarks::Main(argc, argv); }
