// Runs the built command-line program as a child process.
#pragma once

#include "tests/support/JsonSchema.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pty.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

struct Outcome {
    int code = -1;   ///< exit code; -1: ended by a signal
    int signal = 0;  ///< which one
    std::string output;
    std::string errors;

    std::vector<std::string> ErrorLines() const
    {
        std::vector<std::string> lines;
        std::istringstream stream(errors);
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line);
        return lines;
    }
};

/// Starts `program` with descriptors `in`, `out` and `error` as its standard ones. 0: it could not be.
inline pid_t Start(const std::vector<std::string>& arguments, int in, int out, int error,
                   const char* program = TESSADRIN_PROGRAM)
{
    std::vector<char*> argv{const_cast<char*>(program)};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, error, STDERR_FILENO);
    pid_t child = 0;
    const int spawned = posix_spawnp(&child, program, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(spawned, 0) << program;
    return spawned == 0 ? child : 0;
}

/// Waits for what Start() started.
inline Outcome WaitFor(pid_t child)
{
    int status = 0;
    Outcome outcome;
    if (child == 0 || waitpid(child, &status, 0) != child)
        return outcome;
    if (WIFEXITED(status))
        outcome.code = WEXITSTATUS(status);
    else
        outcome.signal = WTERMSIG(status);
    return outcome;
}

/// The words of a text between white space.
inline std::vector<std::string> Words(const std::string& text)
{
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

inline Outcome RunOn(const std::vector<std::string>& arguments, int in, int out, int error)
{
    return WaitFor(Start(arguments, in, out, error));
}

/// Runs a program with its output in files, which are no terminals. JSON of ours there has to obey its
/// schema.
inline Outcome RunProgram(const std::vector<std::string>& arguments, const char* program = TESSADRIN_PROGRAM)
{
    const TemporaryFolder folder;
    const auto open = [&](const char* name) {
        return ::open(folder.At(name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    };
    const auto content = [&](const char* name) {
        std::ifstream file(folder.At(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    const int descriptors[] = {open("in"), open("out"), open("error")};
    Outcome outcome = WaitFor(Start(arguments, descriptors[0], descriptors[1], descriptors[2], program));
    for (const int descriptor : descriptors)
        close(descriptor);
    outcome.output = content("out");
    outcome.errors = content("error");
    EXPECT_EQ(outcome.signal == 0 ? SchemaFault(outcome.output) + SchemaFault(outcome.errors) : "", "");
    return outcome;
}
