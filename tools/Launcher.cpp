// tessadrin: starts the doctor, or loads the program, and with it the library, which may refuse this FFmpeg.
#include "tools/Launcher.h"
#include "tools/Doctor.h"
#include "tools/support/Console.h"
#include "tools/support/Text.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>

namespace {

using namespace Quorva::Tool;

/// Where the other half is, from here: as it was built, and as it is installed.
std::string FindProgram()
{
    namespace fs = std::filesystem;
    std::error_code error;
    fs::path self = fs::read_symlink("/proc/self/exe", error);
    if (error)  // a system without /proc
        self = fs::absolute(reinterpret_cast<const char*>(getauxval(AT_EXECFN)));
    const fs::path here = self.parent_path();
    const fs::path built = here / TESSADRIN_PROGRAM_BUILT;
    return fs::exists(built) ? built : here / TESSADRIN_PROGRAM_INSTALLED;
}

int Launch(int argc, char** argv)
{
    if (IsDoctorWanted(argc, argv))
        return RunDoctor(argc, argv);
    void* const program = dlopen(FindProgram().c_str(), RTLD_NOW);
    void* const run = program ? dlsym(program, "tessadrin_main") : nullptr;
    if (!run) {
        WriteComplaint(std::string("tessadrin: ") + dlerror());
        return EXIT_FAILURE;
    }
    return reinterpret_cast<decltype(&tessadrin_main)>(run)(argc, argv);
}

/// Where a standard stream is closed, the next file that is opened would take its place, and the messages.
void OccupyStandardStreams()
{
    int descriptor;
    do  // for reading: writing to it fails, as it should
        descriptor = open("/dev/null", O_RDONLY);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0)
        close(descriptor);
}

}  // namespace

int main(int argc, char** argv)
{
    // Whoever started us may have had it ignored; `| head` is to end the program, not to make it complain.
    std::signal(SIGPIPE, SIG_DFL);
    // A file that becomes larger than the user's limit is to be a failure like a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    OccupyStandardStreams();
    UseUtf8();
    try {
        const int code = Launch(argc, argv);
        if (std::fflush(stdout) == 0 && !std::ferror(stdout))
            return code;
        WriteComplaint(std::string("tessadrin: can't write the output: ") + std::strerror(errno));
    } catch (const std::exception& e) {
        WriteComplaint(std::string("tessadrin: ") + e.what());
    }
    return EXIT_FAILURE;
}
