#include "tools/support/StandardInput.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "host/FoundationIO.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"

#include <fmt/format.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace Quorva::Tool {

namespace {

[[noreturn]] void ThrowUnreadable(const std::string& why)
{
    Proc::Details::Raise(Core::IOException() << TagDescription("standard input " + why)
                                             << TagFailureKind(FailureKind::Unreadable));
}

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

std::FILE* KeepInput()
{
    if (::isatty(STDIN_FILENO))
        ThrowUnreadable("is a terminal: put a file or a pipe there");
    std::unique_ptr<std::FILE, CloseFile> file(std::tmpfile());
    if (!file)
        ThrowUnreadable(fmt::format("can't be kept: {}", std::strerror(errno)));
    char piece[64 * 1024];
    while (true) {
        const ssize_t size = ::read(STDIN_FILENO, piece, sizeof piece);
        if (Interruption::IsWanted())
            ThrowUnreadable("was not read to its end");
        if (size < 0 && errno == EINTR)
            continue;
        if (size < 0)
            ThrowUnreadable(fmt::format("can't be read: {}", std::strerror(errno)));
        if (size == 0)
            break;
        if (std::fwrite(piece, 1, static_cast<size_t>(size), file.get()) != static_cast<size_t>(size))
            ThrowUnreadable(fmt::format("can't be kept: {}", std::strerror(errno)));
    }
    if (std::fflush(file.get()) != 0)
        ThrowUnreadable(fmt::format("can't be kept: {}", std::strerror(errno)));
    return file.release();
}

}  // namespace

std::string StandardInputPath()
{
    struct stat status{};
    if (::fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode))
        return "/dev/stdin";
    static std::FILE* const kept = KeepInput();  // open as long as it may be asked for
    return fmt::format("/dev/fd/{}", ::fileno(kept));
}

}  // namespace Quorva::Tool
