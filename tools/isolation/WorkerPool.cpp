// RunIsolated(): workers are forked, given files, watched and reaped here.
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tools/isolation/FileRun.h"
#include "tools/isolation/Worker.h"
#include "tools/support/Interruption.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <list>
#include <optional>
#include <utility>

namespace Quorva::Tool {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds TICK{100};    ///< between looks at the clock and at wishes to stop
constexpr size_t FILES_PER_JOB = 8;  ///< begun and not yet shown

class Pool {
public:
    Pool(IsolatedWork& work, const IsolationOptions& options)
        : work(work), options(options), sandbox(options.sandbox), jobs(std::max<size_t>(options.jobs, 1))
    {
    }

    bool Run()
    {
        while (!IsFinished()) {
            StartFiles();
            ForkAhead();
            Wait();
            PassStopOn();
            for (FileRun& run : runs)
                run.Read();
            ShowFiles();
        }
        return !Interruption::IsWanted() || IsAllBegun();
    }

private:
    bool IsAllBegun() const { return found == NextFile::End && queue.empty(); }
    bool IsFinished() const { return runs.empty() && (IsAllBegun() || Interruption::IsWanted()); }

    /// Knows a few files ahead, so that no worker is forked for nothing.
    void FetchFiles()
    {
        for (found = found == NextFile::Nothing ? NextFile::File : found;
             found == NextFile::File && queue.size() < jobs;) {
            WalkedFile file;
            found = work.Next(file);
            if (found == NextFile::File)
                queue.push_back(std::move(file));
        }
    }

    void StartFiles()
    {
        FetchFiles();
        while (!Interruption::IsWanted() && !queue.empty() && CountRunning() < jobs &&
               runs.size() < jobs * FILES_PER_JOB) {
            if (idle.empty())
                Fork();
            std::unique_ptr<WorkerProcess> worker = std::move(idle.back());
            idle.pop_back();
            CheckStart(*worker);
            runs.emplace_back(work, options, next++, std::move(queue.front()), std::move(worker));
            queue.pop_front();
            FetchFiles();
        }
    }

    size_t CountRunning() const
    {
        return static_cast<size_t>(std::ranges::count_if(runs, &FileRun::IsRunning));
    }

    /// While others work.
    void ForkAhead()
    {
        if (Interruption::IsWanted())
            idle.clear();
        else if (options.spare)
            while (idle.size() < queue.size())
                Fork();
    }

    void Fork() { idle.push_back(std::make_unique<WorkerProcess>(work, sandbox, options)); }

    /// A worker that could not set itself up has said why.
    void CheckStart(const WorkerProcess& worker)
    {
        const ControlMessage message = ReceiveMessage(worker.control.Get(), false, false);
        if (message.kind == ControlMessage::Kind::Broken)
            Proc::Details::Throw<Proc::ProcException>("a worker can't be started: {}", message.payload);
    }

    void Wait()
    {
        descriptors.clear();
        for (const FileRun& run : runs)
            run.AddTo(descriptors);
        if (found == NextFile::Nothing && queue.size() < jobs)
            descriptors.push_back({work.GetWaitDescriptor(), POLLIN, 0});
        const auto start = Clock::now();
        // Not examined: after a signal or a failure the workers are looked at all the same.
        poll(descriptors.data(), descriptors.size(), static_cast<int>(TICK.count()));
        const auto elapsed = std::chrono::duration_cast<milliseconds>(Clock::now() - start + remainder);
        remainder = Clock::now() - start + remainder - elapsed;
        // Waiting for our own output, or a stop by Ctrl-Z, is not the workers' time.
        for (FileRun& run : runs)
            run.Watch(std::min(elapsed, 2 * TICK));
    }

    void PassStopOn()
    {
        Interruption::ShowLife();
        const int wishes = Interruption::IsWanted() + Interruption::IsUrgent();
        const bool late = wishes > 0 && Clock::now() >= deadline;
        if (wishes == passedOn && !late)
            return;
        if (passedOn < 1 && options.patience)
            deadline = Clock::now() + *options.patience;
        if (wishes > 1 && passedOn < 2)
            deadline = std::min(deadline, Clock::now() + options.grace);
        for (; passedOn < wishes; ++passedOn)
            for (FileRun& run : runs)
                run.Stop(!options.finishOnStop);
        if (late)
            for (FileRun& run : runs)
                run.Stop(true);
    }

    /// Shows the file whose turn it is, and those that end behind it.
    void ShowFiles()
    {
        while (!runs.empty()) {
            if (!ChooseTurn())
                return;
            FileRun& run = runs.front();
            run.Show();
            if (run.IsRunning())
                return;
            work.Done(run.GetIndex(), run.GetFile(), run.GetResult());
            runs.pop_front();
            shown = false;
        }
    }

    /// Where order doesn't matter and no file is half shown, puts one first that has ended, or else one that
    /// has something to show. Returns whether there is one.
    bool ChooseTurn()
    {
        if (shown || options.ordered)
            return true;
        auto chosen = std::ranges::find_if_not(runs, &FileRun::IsRunning);
        if (chosen == runs.end())
            chosen = std::ranges::find_if(runs, &FileRun::IsWaiting);
        if (chosen == runs.end())
            return false;
        runs.splice(runs.begin(), runs, chosen);
        return shown = true;
    }

    IsolatedWork& work;
    const IsolationOptions& options;
    const Sandbox sandbox;
    const size_t jobs;
    const Interruption interruption{Interruption::Unwatched{options.discard}};
    size_t next = 0;                                   ///< number of the file to begin
    NextFile found = NextFile::File;                   ///< by the last look for files
    std::deque<WalkedFile> queue;                      ///< files to begin
    std::vector<std::unique_ptr<WorkerProcess>> idle;  ///< without a file yet
    std::list<FileRun> runs;                           ///< begun and not yet shown to their ends
    bool shown = false;                                ///< some of the first one is
    std::vector<pollfd> descriptors;
    Clock::duration remainder{};  ///< of the time that was counted, below a millisecond
    int passedOn = 0;             ///< wishes to stop
    Clock::time_point deadline = Clock::time_point::max();
};

/// Answers requests in the process that makes them.
class LocalLink final : public Details::WorkerLink {
public:
    LocalLink(IsolatedWork& work, const IsolationOptions& options, size_t index, const std::string& first)
        : work(work),
          index(index),
          brokerOptions{options.allowOutside, BrokerOptions().maxInputs,
                        [this](const std::string& path) { return this->work.OpenOutput(this->index, path); },
                        [this](const std::string& path) { this->work.CheckOutput(this->index, path); },
                        [this] { this->work.CommitOutputs(this->index); }},
          broker(first, brokerOptions)
    {
    }

    ControlMessage Ask(ControlMessage request) override { return broker.Answer(request); }
    void Send(ControlMessage message) override { work.Record(index, message.payload); }

private:
    IsolatedWork& work;
    const size_t index;
    const BrokerOptions brokerOptions;
    FileBroker broker;
};

FileResult RunHere(IsolatedWork& work, const IsolationOptions& options, size_t index, const WalkedFile& file)
{
    FileResult result;
    LocalLink link(work, options, index, file.path);
    const Details::LinkInUse inUse(link);
    try {
        result.code = work.Process(index, file);
    } catch (...) {
        PrintFailure(file.path, CurrentFailure(file.path), false);
        result.code = 1;
    }
    return result;
}

/// Waits for the next file. Returns whether there is one.
bool NextHere(IsolatedWork& work, WalkedFile& file)
{
    while (true) {
        const NextFile found = work.Next(file);
        if (found != NextFile::Nothing)
            return found == NextFile::File;
        pollfd waiting{work.GetWaitDescriptor(), POLLIN, 0};
        poll(&waiting, 1, static_cast<int>(TICK.count()));  // not examined: Next() looks again
        if (Interruption::IsWanted())
            return false;
    }
}

}  // namespace

Descriptor IsolatedWork::OpenOutput(size_t, const std::string& path)
{
    Proc::Details::Raise(Core::IOException() << TagDescription(fmt::format("'{}' is not to be written", path))
                                             << TagFailureKind(FailureKind::Unwritable));
}

void IsolatedWork::CheckOutput(size_t index, const std::string& path)
{
    IsolatedWork::OpenOutput(index, path);
}

void IsolatedWork::CommitOutputs(size_t)
{
    Proc::Details::Raise(Core::IOException() << TagDescription("nothing is to be written")
                                             << TagFailureKind(FailureKind::Unwritable));
}

bool RunIsolated(IsolatedWork& work, const IsolationOptions& options)
{
    if (options.isolate)
        return Pool(work, options).Run();
    std::optional<Interruption> interruption;
    if (options.finishOnStop)
        interruption.emplace(options.discard, options.patience);
    WalkedFile file;
    for (size_t index = 0; NextHere(work, file); ++index) {
        work.Begin(index, file);
        work.Done(index, file, RunHere(work, options, index, file));
        if (interruption && Interruption::IsWanted())
            return false;
    }
    return true;
}

}  // namespace Quorva::Tool
