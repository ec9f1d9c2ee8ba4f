// tessadrin: starts the doctor, or loads the program, and with it the library, which may refuse this FFmpeg.
#include "tools/Launcher.h"
#include "tools/Doctor.h"
#include "tools/support/Console.h"
#include "tools/support/Text.h"

#include <dlfcn.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

namespace {

using namespace Quorva::Tool;

int Launch(int argc, char** argv)
{
    if (IsDoctorWanted(argc, argv))
        return RunDoctor(argc, argv);
    void* const program = dlopen(TESSADRIN_PROGRAM_LIBRARY, RTLD_NOW);
    void* const run = program ? dlsym(program, "tessadrin_main") : nullptr;
    if (!run) {
        WriteLine(std::string("tessadrin: ") + dlerror());
        return EXIT_FAILURE;
    }
    return reinterpret_cast<decltype(&tessadrin_main)>(run)(argc, argv);
}

}  // namespace

int main(int argc, char** argv)
{
    // Whoever started us may have had it ignored; `| head` is to end the program, not to make it complain.
    std::signal(SIGPIPE, SIG_DFL);
    UseUtf8();
    try {
        const int code = Launch(argc, argv);
        if (std::fflush(stdout) == 0 && !std::ferror(stdout))
            return code;
        WriteLine(std::string("tessadrin: can't write the output: ") + std::strerror(errno));
    } catch (const std::exception& e) {
        WriteLine(std::string("tessadrin: ") + e.what());
    }
    return EXIT_FAILURE;
}
