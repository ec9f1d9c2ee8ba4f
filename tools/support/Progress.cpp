#include "tools/support/Progress.h"

#include "tools/support/Console.h"
#include "tools/support/Text.h"

#include <fmt/format.h>

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <string>

namespace Quorva::Tool {

namespace {

constexpr size_t BAR = 24;

size_t ScreenWidth()
{
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace

Progress::Progress(std::optional<size_t> files, bool wanted)
    : visible(wanted && files.value_or(2) > 1 && CanShowStatus()), files(files)
{
}

Progress::~Progress()
{
    if (visible)
        ShowStatus({});
}

void Progress::Begin(std::string_view name)
{
    const auto now = std::chrono::steady_clock::now();
    if (!visible || now < due)
        return;
    due = now + std::chrono::milliseconds(100);
    const std::string line =
        fmt::format("{}{}{} {}", CountText(), RateText(now), FailuresText(), Printable(name));
    ShowStatus(Shortened(line, ScreenWidth() - 1));
}

void Progress::End(std::optional<FailureKind> failure)
{
    ++done;
    if (failure)
        ++failures[FailureKindName(*failure)];
}

std::string Progress::CountText() const
{
    if (!files || *files == 0)
        return std::to_string(done);
    const size_t filled = std::min(done, *files) * BAR / *files;
    return fmt::format("[{:#<{}}{:.<{}}] {}/{}", "", filled, "", BAR - filled, done, *files);
}

/// " 12.3/s, 0:40 left"; empty in the first second, which says little.
std::string Progress::RateText(std::chrono::steady_clock::time_point now) const
{
    const double seconds = std::chrono::duration<double>(now - start).count();
    if (seconds < 1 || done == 0)
        return {};
    const double rate = static_cast<double>(done) / seconds;
    std::string text = fmt::format(" {:.3g}/s", rate);
    if (files && *files > done) {
        const auto left = static_cast<unsigned long>(static_cast<double>(*files - done) / rate);
        text += left < 3600 ? fmt::format(", {}:{:02} left", left / 60, left % 60)
                            : fmt::format(", {}:{:02}:{:02} left", left / 3600, left / 60 % 60, left % 60);
    }
    return text;
}

/// ", failed: 2 crashed, 1 timeout"
std::string Progress::FailuresText() const
{
    std::string text;
    for (const auto& [kind, count] : failures)
        text += fmt::format("{} {} {}", text.empty() ? ", failed:" : ",", count, kind);
    return text;
}

}  // namespace Quorva::Tool
