// Runs functions as the work on files, each in a worker.
#pragma once

#include "tools/isolation/IsolatedWork.h"
#include "tools/isolation/Worker.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Quorva::Tool {

struct IsolatedRun final : IsolatedWork {
    size_t count = 1;
    size_t given = 0;
    std::function<int(size_t)> process;
    std::function<std::string(size_t)> path = [](size_t index) { return "file" + std::to_string(index); };
    std::function<Descriptor(const std::string&)> openOutput;
    std::function<void(size_t)> ended;

    // what came of it
    bool finished = false;
    std::vector<size_t> order;
    std::vector<FileResult> results;
    std::string records, output, errors;

    NextFile Next(WalkedFile& file) override
    {
        if (given == count)
            return NextFile::End;
        file.path = path(given++);
        return NextFile::File;
    }
    int Process(size_t index, const WalkedFile&) override { return process(index); }
    void Record(size_t, std::string_view bytes) override { records += bytes; }
    void Done(size_t index, const WalkedFile&, const FileResult& result) override
    {
        order.push_back(index);
        results.push_back(result);
        if (ended)
            ended(index);
    }
    Descriptor OpenOutput(size_t index, const std::string& name) override
    {
        return openOutput ? openOutput(name) : IsolatedWork::OpenOutput(index, name);
    }

    void Run(const IsolationOptions& options)
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        finished = RunIsolated(*this, options);
        output = testing::internal::GetCapturedStdout();
        errors = testing::internal::GetCapturedStderr();
    }
};

inline IsolatedRun RunOne(std::function<int(size_t)> process, const IsolationOptions& options = {})
{
    IsolatedRun run;
    run.process = std::move(process);
    run.Run(options);
    return run;
}

}  // namespace Quorva::Tool
