#include "tools/Convert.Progress.h"

#include "tools/support/Console.h"
#include "tools/support/Json.h"
#include "tools/support/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace Quorva::Tool {

namespace {

constexpr int64_t SECOND = 1'000'000;  // microseconds

}  // namespace

ConvertProgress::ConvertProgress(Form form, std::optional<int64_t> duration, bool toError)
    : form(form == Form::Terminal && !CanShowStatus() ? Form::None : form),
      duration(duration),
      toError(toError)
{
}

ConvertProgress::~ConvertProgress()
{
    try {
        if (form == Form::Terminal)
            ShowStatus({});
        if (form == Form::Json && !ended)
            ShowJson("failed");
    } catch (...) {
        // No memory for a last line; the exit code says the same.
        return;
    }
}

void ConvertProgress::BeginPass(int number, int count)
{
    pass = number;
    passes = count;
    position = 0;
    begin = Clock::now();
    due = {};
}

void ConvertProgress::Update(int64_t reached, uint64_t written)
{
    if (form == Form::None)
        return;
    const auto now = Clock::now();
    if (now < due)
        return;
    due = now + std::chrono::milliseconds(form == Form::Terminal ? 200 : 1000);
    position = std::max(position, reached);
    bytes = written;
    if (form == Form::Json)
        ShowJson(nullptr);
    else
        Show();
}

void ConvertProgress::End(bool complete, int64_t reached, uint64_t written)
{
    position = reached;
    bytes = written;
    ended = true;
    if (form == Form::Json)
        ShowJson(complete ? "complete" : "stopped");
}

double ConvertProgress::GetSpeed() const
{
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    return seconds > 0.01 ? static_cast<double>(position) / SECOND / seconds : 0;
}

std::optional<int64_t> ConvertProgress::GetTimeLeft() const
{
    const double speed = GetSpeed();
    if (!duration || speed <= 0)
        return std::nullopt;
    // Passes before the last one are taken to be as fast as this one.
    const int64_t rest = std::max<int64_t>(*duration - position, 0) + (passes - pass) * *duration;
    return static_cast<int64_t>(static_cast<double>(rest) / speed);
}

void ConvertProgress::Show()
{
    std::string line = passes > 1 ? fmt::format("pass {} of {}, ", pass, passes) : std::string();
    line += DurationText(position);
    if (duration && *duration > 0)
        line += fmt::format(" of {} ({} %)", DurationText(*duration),
                            std::min<int64_t>(position * 100 / *duration, 100));
    if (const double speed = GetSpeed(); speed > 0)
        line += fmt::format(", {:.3g}x", speed);
    if (const auto left = GetTimeLeft())
        line += fmt::format(", {} left", DurationText(*left - *left % SECOND));
    ShowStatus(line);
}

void ConvertProgress::ShowJson(const char* state)
{
    Json line = {
        {"schema",    "tessadrin/progress/1"                },
        {"type",      state ? "end" : "progress"            },
        {"pass",      pass                                  },
        {"position",  position                              },
        {"duration",  OrNull(duration)                      },
        {"speed",     GetSpeed()                            },
        {"time_left", state ? Json() : OrNull(GetTimeLeft())},
        {"bytes",     bytes                                 }
    };
    if (state)
        line["state"] = state;
    std::FILE* const file = toError ? stderr : stdout;
    const std::string text = JsonText(line) + "\n";
    // A failure shows when the program ends.
    std::fwrite(text.data(), 1, text.size(), file);
    std::fflush(file);
}

}  // namespace Quorva::Tool
