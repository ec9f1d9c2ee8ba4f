#include "tools/support/Progress.h"

#include "tools/support/Console.h"
#include "tools/support/Text.h"

#include <fmt/format.h>

#include <sys/ioctl.h>
#include <unistd.h>

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

Progress::Progress(size_t steps, bool wanted) : visible(wanted && steps > 1 && CanShowStatus()), steps(steps)
{
}

Progress::~Progress()
{
    if (visible)
        ShowStatus({});
}

void Progress::Begin(std::string_view name)
{
    const size_t done = begun++;
    const auto now = std::chrono::steady_clock::now();
    if (!visible || now < due)
        return;
    due = now + std::chrono::milliseconds(100);
    const size_t filled = done * BAR / steps;
    const std::string line =
        fmt::format("[{:#<{}}{:.<{}}] {}/{} {}", "", filled, "", BAR - filled, done, steps, Printable(name));
    ShowStatus(Shortened(line, ScreenWidth() - 1));
}

}  // namespace Quorva::Tool
