#include "benchmarks/support/Children.h"

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <stdexcept>

namespace Benchmarks {

namespace {

double Seconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

/// What the process has held at most. The system's own number at the end counts what its parent held when it
/// was started, too.
double PeakMemory(pid_t process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:"))
            return 1024 * std::stod(line.substr(6));
    return 0;
}

/// In the new process: becomes the program.
[[noreturn]] void Become(char** argv, int output)
{
    const int nowhere = open("/dev/null", O_RDWR);
    dup2(nowhere, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    execvp(argv[0], argv);
    _exit(127);
}

/// Until the process has ended; it stands still once just before, to be asked for its memory.
int WaitFor(pid_t child, rusage& usage, double& memory)
{
    for (int status = 0;;) {
        if (wait4(child, &status, 0, &usage) != child)
            return -1;
        if (!WIFSTOPPED(status))
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        long signal = WSTOPSIG(status);
        if (status >> 8 == (SIGTRAP | PTRACE_EVENT_EXIT << 8))
            memory = PeakMemory(child);
        if (signal == SIGTRAP) {
            ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACEEXIT);
            signal = 0;
        }
        ptrace(PTRACE_CONT, child, nullptr, signal);
    }
}

}  // namespace

Cost Run(const std::vector<std::string>& arguments)
{
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0)
        throw std::runtime_error("no pipe");
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0)
        Become(argv.data(), ends[1]);
    close(ends[1]);
    Cost cost;
    rusage usage{};
    const int code = child < 0 ? -1 : WaitFor(child, usage, cost.memory);
    cost.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    char piece[4096];  // the pipe holds more than any of them writes
    for (ssize_t count; (count = read(ends[0], piece, sizeof piece)) > 0;)
        cost.output.append(piece, static_cast<size_t>(count));
    close(ends[0]);
    if (code != 0)
        throw std::runtime_error(arguments[0] + " failed");
    cost.processor = Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
    return cost;
}

double Median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
}

}  // namespace Benchmarks
