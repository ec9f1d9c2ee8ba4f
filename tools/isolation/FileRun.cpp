#include "tools/isolation/FileRun.h"

#include "tools/support/Console.h"
#include "tools/support/Text.h"

#include <fmt/format.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

namespace Quorva::Tool {

namespace {

constexpr size_t MAX_LINE = 4096;  ///< bytes of a line on standard error; longer ones are divided

/// What libraries say before they abort. Forged, it only gives a crash another name.
constexpr std::string_view ALLOCATION_FAILURES[] = {"failed to allocate", "memory allocation of",
                                                    "out of memory",      "cannot allocate memory",
                                                    "std::bad_alloc",     "allocation failed"};

bool SpeaksOfMemory(std::string_view line)
{
    const auto same = [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; };
    return std::ranges::any_of(ALLOCATION_FAILURES, [&](std::string_view text) {
        return !std::ranges::search(line, text, same).empty();
    });
}

/// Printable(), but for the line feeds and tabs that make up a text.
std::string PrintableText(std::string_view text)
{
    std::string shown;
    while (!text.empty()) {
        const size_t end = text.find_first_of("\n\t");
        shown += Printable(text.substr(0, end));
        if (end == std::string_view::npos)
            break;
        shown += text[end];
        text.remove_prefix(end + 1);
    }
    return shown;
}

void WriteOutput(const std::string& bytes)
{
    static const bool terminal = isatty(STDOUT_FILENO) == 1;
    MakeWayForOutput();
    const std::string& shown = terminal ? PrintableText(bytes) : bytes;
    std::fwrite(shown.data(), 1, shown.size(), stdout);  // a failure is noticed by the next FlushOutput()
}

Failure MakeFailure(FailureKind kind, std::string message)
{
    Failure failure;
    failure.kind = kind;
    failure.description = message;
    failure.message = std::move(message);
    return failure;
}

}  // namespace

FileRun::FileRun(IsolatedWork& work, const IsolationOptions& options, size_t index, WalkedFile file,
                 std::unique_ptr<WorkerProcess> worker)
    : work(work),
      options(options),
      index(index),
      file(std::move(file)),
      brokerOptions{options.allowOutside, BrokerOptions().maxInputs,
                    [this](const std::string& path) { return this->work.OpenOutput(this->index, path); },
                    [this](const std::string& path) { this->work.CheckOutput(this->index, path); },
                    [this] { this->work.CommitOutputs(this->index); }},
      broker(this->file.path, brokerOptions),
      worker(std::move(worker)),
      shared(!this->worker->errors)
{
    ControlMessage task;
    task.kind = ControlMessage::Kind::Task;
    task.number = index;
    task.payload = this->file.folderError + '\0' + this->file.path;
    SendMessage(this->worker->control.Get(), task, false);  // where it has died, Read() finds out
}

void FileRun::AddTo(std::vector<pollfd>& descriptors) const
{
    if (!worker || IsFull())
        return;
    descriptors.push_back({worker->control.Get(), POLLIN, 0});
    for (const Descriptor* pipe : {&worker->output, &worker->errors})
        if (*pipe)
            descriptors.push_back({pipe->Get(), POLLIN, 0});
}

void FileRun::Read()
{
    // What was printed before a message is in the pipes when the message comes.
    while (worker && !IsFull()) {
        bool more = ReadPipe(worker->output, Piece::Kind::Output);
        more |= ReadPipe(worker->errors, Piece::Kind::ErrorLine);
        if (more)
            continue;
        if (!ReadControl())
            return;
    }
}

/// Returns whether something came.
bool FileRun::ReadPipe(Descriptor& pipe, Piece::Kind kind)
{
    char buffer[16384];
    const ssize_t size = pipe ? ::read(pipe.Get(), buffer, sizeof buffer) : 0;
    if (size == 0)
        pipe = Descriptor();  // closed; the control channel says whether the worker has ended
    if (size <= 0)
        return false;
    idle = {};
    const std::string_view bytes(buffer, static_cast<size_t>(size));
    if (kind == Piece::Kind::ErrorLine)
        TakeErrors(bytes);
    else
        Keep(kind, std::string(bytes));
    return true;
}

void FileRun::Keep(Piece::Kind kind, std::string bytes)
{
    waiting += bytes.size() + sizeof(Piece);
    if (kind == Piece::Kind::Output && shared)
        allocating |= SpeaksOfMemory(bytes);
    pieces.push_back({kind, std::move(bytes)});
}

void FileRun::TakeErrors(std::string_view bytes)
{
    for (const char c : bytes) {
        if (c != '\n')
            errorLine += c;
        if (c == '\n' || errorLine.size() >= MAX_LINE)
            EndErrorLine();
    }
}

void FileRun::EndErrorLine()
{
    allocating = SpeaksOfMemory(errorLine);
    Keep(Piece::Kind::ErrorLine, std::exchange(errorLine, {}));
}

/// Returns whether there may be more.
bool FileRun::ReadControl()
{
    ControlMessage message = ReceiveMessage(worker->control.Get(), false, false);
    if (message.kind != ControlMessage::Kind::None) {
        // The pipes again: what was printed before the message was sent, and after the look at them.
        while (!IsFull() && (ReadPipe(worker->output, Piece::Kind::Output) ||
                             ReadPipe(worker->errors, Piece::Kind::ErrorLine))) {
        }
        idle = {};
        Handle(std::move(message));
        return true;
    }
    if (IsDisconnected())
        End();
    return false;
}

void FileRun::Handle(ControlMessage message)
{
    using Kind = ControlMessage::Kind;
    switch (message.kind) {
        case Kind::Input:
        case Kind::Spool:
        case Kind::Output:
        case Kind::Check:
        case Kind::Commit:
            // A worker waits for each answer; one that doesn't read them is none of ours.
            if (SendMessage(worker->control.Get(), broker.Answer(message), false))
                return;
            break;
        case Kind::Record:
            Keep(Piece::Kind::Record, std::move(message.payload));
            return;
        case Kind::Line:
            Keep(Piece::Kind::ErrorLine, std::move(message.payload));
            return;
        case Kind::Complaint:
            Keep(Piece::Kind::Complaint, std::move(message.payload));
            return;
        case Kind::Done:
            done = true;
            result.code = static_cast<int>(message.number);
            return;
        default:
            break;
    }
    broken = true;
    worker->Signal(SIGKILL);
}

void FileRun::End()
{
    const WorkerEnd end = worker->Reap();
    // What is left in the pipes is no more than they hold.
    while (ReadPipe(worker->output, Piece::Kind::Output) ||
           ReadPipe(worker->errors, Piece::Kind::ErrorLine)) {
    }
    if (!errorLine.empty())
        EndErrorLine();
    result.failure = FailureOf(end);
    result.stopped = killed && result.failure;
    if (result.stopped)
        result.failure.reset();
    worker.reset();
}

std::optional<Failure> FileRun::FailureOf(const WorkerEnd& end) const
{
    if (timedOut)
        return MakeFailure(FailureKind::Timeout,
                           fmt::format("no progress for {:g} seconds (--timeout)",
                                       std::chrono::duration<double>(options.timeout).count()));
    if (broken)
        return MakeFailure(FailureKind::Crashed, "the worker process got out of control and was stopped");
    if (done && WIFEXITED(end.status))
        return std::nullopt;
    if (WIFEXITED(end.status) && !allocating)
        return MakeFailure(FailureKind::Crashed, fmt::format("the worker process ended early (exit code {})",
                                                             WEXITSTATUS(end.status)));
    const int signal = WIFSIGNALED(end.status) ? WTERMSIG(end.status) : SIGABRT;
    // The kernel kills who takes the last of the machine's memory.
    const bool bySystem = signal == SIGKILL && end.memory > options.maxMemory / 2;
    if (end.outOfMemory || allocating || bySystem)
        return MakeFailure(FailureKind::Memory, options.maxMemory > 0 && !bySystem
                                                    ? OverBudgetText(options.maxMemory)
                                                    : "needs more memory than the machine has");
    const char* const name = sigabbrev_np(signal);
    return MakeFailure(FailureKind::Crashed, fmt::format("the worker process crashed (SIG{}, signal {})",
                                                         name ? name : "?", signal));
}

void FileRun::Show()
{
    if (!std::exchange(begun, true))
        work.Begin(index, file);
    while (!pieces.empty()) {
        const Piece piece = std::move(pieces.front());
        pieces.pop_front();
        if (piece.kind == Piece::Kind::Output)
            WriteOutput(piece.bytes);
        else if (piece.kind == Piece::Kind::ErrorLine)
            WriteLine(piece.bytes);
        else if (piece.kind == Piece::Kind::Complaint)
            WriteComplaint(piece.bytes);
        else
            work.Record(index, piece.bytes);
    }
    waiting = 0;
    FlushOutput();  // a reader sees it now
}

void FileRun::Watch(std::chrono::milliseconds elapsed)
{
    if (!worker || options.timeout.count() == 0)
        return;
    if (const uint64_t now = worker->GetProgress(); IsFull() || now != progress) {
        progress = now;
        idle = {};
        return;
    }
    idle += elapsed;
    if (idle < options.timeout)
        return;
    timedOut = true;
    worker->Signal(SIGKILL);
}

void FileRun::Stop(bool kill)
{
    if (!worker)
        return;
    killed |= kill;
    worker->Signal(kill ? SIGKILL : SIGUSR1);
}

}  // namespace Quorva::Tool
