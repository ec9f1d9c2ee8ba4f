/// @file
/// How far a conversion has come.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace Quorva::Tool {

/// A line on the terminal, or JSON lines for programs; gone, or ended, with the object.
///
/// The JSON lines (docs/progress.schema.json) have the members "type": "progress", "pass", "position" and
/// "duration" (microseconds of the output, null where unknown), "speed" (of playing), "time_left"
/// (microseconds, null where unknown) and "bytes"; the last one is of the type "end" and has "state" besides:
/// complete, stopped or failed.
class ConvertProgress {
public:
    enum class Form { None, Terminal, Json };

    /// @param duration    of the output, microseconds
    /// @param toError     JSON goes to standard error, as standard output takes the conversion
    ConvertProgress(Form form, std::optional<int64_t> duration, bool toError);
    ConvertProgress(const ConvertProgress&) = delete;
    ConvertProgress& operator=(const ConvertProgress&) = delete;
    ~ConvertProgress();

    void BeginPass(int number, int count);
    /// Shows it when it is time to.
    void Update(int64_t position, uint64_t bytes);
    void End(bool complete, int64_t position, uint64_t bytes);

    double GetSpeed() const;  ///< times that of playing, since the pass began; 0: unknown

private:
    using Clock = std::chrono::steady_clock;

    void Show();
    void ShowJson(const char* state);
    std::optional<int64_t> GetTimeLeft() const;

    const Form form;
    const std::optional<int64_t> duration;
    const bool toError;
    int pass = 1;
    int passes = 1;
    int64_t position = 0;
    uint64_t bytes = 0;
    bool ended = false;
    Clock::time_point begin = Clock::now();
    Clock::time_point due{};
};

}  // namespace Quorva::Tool
