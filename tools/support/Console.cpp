#include "tools/support/Console.h"

#include "tools/support/Text.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <utility>

namespace Quorva::Tool {

namespace {

constinit std::mutex mutex;
constinit LineHandler lineHandler = nullptr;
constinit bool shown = false;  ///< a status line is on the screen; guarded by `mutex`

// Standard error is the last resort for every complaint: where it can't be written to, nothing is left to do.
void Write(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stderr); }

bool HasColours()
{
    static const bool has = [] {
        const char *const refused = std::getenv("NO_COLOR"), *const terminal = std::getenv("TERM");
        return isatty(STDERR_FILENO) == 1 && !(refused && *refused) && terminal &&
               std::string_view(terminal) != "dumb";
    }();
    return has;
}

std::string Erasure() { return std::exchange(shown, false) ? "\r\x1b[K" : ""; }

void WriteBelow(const std::string& line)
{
    const std::lock_guard lock(mutex);
    std::fflush(stdout);  // what was printed before stays before; its failure is noticed at the end
    Write(Erasure() + line + "\n");
}

}  // namespace

void SetLineHandler(LineHandler handler) noexcept { lineHandler = handler; }

void WriteLine(std::string_view text)
{
    if (lineHandler)
        return lineHandler(text, false);
    WriteBelow(Printable(text));
}

void WriteComplaint(std::string_view text)
{
    if (lineHandler)
        return lineHandler(text, true);
    WriteBelow(HasColours() ? "\x1b[31m" + Printable(text) + "\x1b[0m" : Printable(text));
}

void ShowStatus(std::string_view text)
{
    const std::lock_guard lock(mutex);
    const std::string erasure = Erasure();
    shown = !text.empty();
    Write(erasure + std::string(text));
    std::fflush(stderr);
}

void MakeWayForOutput()
{
    static const bool sameScreen = isatty(STDOUT_FILENO) == 1;
    if (sameScreen)
        ShowStatus({});
}

bool CanShowStatus()
{
    struct stat status{};
    return isatty(STDERR_FILENO) == 1 &&
           !(fstat(STDOUT_FILENO, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode)));
}

}  // namespace Quorva::Tool
