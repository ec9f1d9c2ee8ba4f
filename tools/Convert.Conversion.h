/// @file
/// A conversion and its steps.
#pragma once

#include "tools/Convert.Encoders.h"
#include "tools/Convert.Fill.h"
#include "tools/Convert.Gaps.h"
#include "tools/Convert.LookAhead.h"
#include "tools/Convert.Outcome.h"
#include "tools/Convert.Pass.h"
#include "tools/Convert.Progress.h"
#include "tools/support/Console.h"
#include "tools/support/OutputFiles.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <vector>

namespace Quorva::Tool {

/// A folder for an encoder's notes, gone with the object.
class TemporaryFolder {
public:
    TemporaryFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "tessadrin-XXXXXX").native();
        if (!mkdtemp(name.data()))
            throw std::system_error(errno, std::system_category(), "can't make a folder for the first pass");
        path = name;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder()
    {
        std::error_code error;  // a leftover in a temporary folder is no failure
        std::filesystem::remove_all(path, error);
    }
    std::string File(int stream) const { return path / fmt::format("pass-{}.log", stream); }

private:
    std::filesystem::path path;
};

/// One conversion. Its member functions are its steps.
class Conversion {
public:
    Conversion(const ConvertOptions& options, bool quiet)
        : options(options), quiet(quiet), files(options.overwrite, options.keepPartial)
    {
    }
    Conversion(const Conversion&) = delete;
    Conversion& operator=(const Conversion&) = delete;
    ~Conversion();

    bool Run();
    /// Removes what is temporary. The rest stays: threads may be in a call of a codec that takes long.
    void Abandon();

private:
    void Tell(const std::string& line) const
    {
        if (!quiet)
            WriteLine(line);
    }
    void ReportKept() const;
    void Announce() const;
    void Sum(const ConvertProgress& progress) const;
    void Open(Pass& pass, OpenedInput& input, int number);
    /// @return false after a signal to stop
    bool RunPass(OpenedInput& input, int number, ConvertProgress& progress);
    std::unique_ptr<Path> MakePath(OpenedInput& input, size_t index, Pass& pass, int number);
    std::unique_ptr<FrameStage> MakeStage(const AVStream& source, size_t index, PacketSink& sink,
                                          AVStream* target, const EncoderSetting& setting);
    TimeFrame GetTimeFrame() const { return {plan.origin, plan.end, options.start.value_or(0) > 0}; }
    void Select(OpenedInput& input) const;
    void SetOrigin(LookAhead& beginning);
    void Seek(OpenedInput& input, LookAhead& beginning, EarlierSubtitles& earlier) const;
    std::set<int> PictureStreams(const OpenedInput& input) const;
    bool Transport(OpenedInput& input, LookAhead& beginning, Pass& pass, ConvertProgress& progress);
    bool PassOn(GapFilter& filter, PauseWatch& pauses, const OpenedInput& input, Pass& pass,
                ConvertProgress& progress);
    PauseWatch MakePauseWatch(const Pass& pass) const;
    GapFilter MakeFilter(const OpenedInput& input, const Pass& pass);
    void Complete(const OpenedInput& input, Pass& pass);
    EncoderSetting SettingFor(size_t index, int pass) const;
    std::optional<int64_t> ExpectedDuration(const OpenedInput& input) const;

    const ConvertOptions& options;
    const bool quiet;
    OutputFiles files;
    Plan plan;
    std::optional<TemporaryFolder> notesOfEncoders;
    std::map<size_t, std::string> passStats;  ///< of the plan's streams
    std::set<std::string> told;
    std::vector<TimeJump> jumps;          ///< of the last pass
    bool describesChaptersLast = false;   ///< of the last pass
    std::map<int, uint64_t> damaged;      ///< packets without effect, by input stream
    std::vector<StreamOutcome> outcomes;  ///< of the plan's streams, when the last pass is complete
    uint64_t refused = 0;                 ///< packets that the muxer found damaged
    std::exception_ptr readFailure;       ///< where reading ended early; what came before is converted
    int64_t position = 0;
    uint64_t bytes = 0;
    std::unique_ptr<Pass> pass;  ///< at work; last, as its threads use the others
};

}  // namespace Quorva::Tool
