/// @file
/// One file being worked on, as the parent sees it.
#pragma once

#include "tools/isolation/FileBroker.h"
#include "tools/isolation/IsolatedWork.h"
#include "tools/isolation/WorkerProcess.h"

#include <poll.h>

#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace Quorva::Tool {

/// Takes what a worker prints and sends, until it is the file's turn to be shown. Nothing of it is trusted.
class FileRun {
public:
    /// Bytes kept of a file whose turn it is not. The worker waits when there are more.
    static constexpr size_t MAX_WAITING = 256 * 1024;

    /// Gives the file to the worker.
    FileRun(IsolatedWork& work, const IsolationOptions& options, size_t index, WalkedFile file,
            std::unique_ptr<WorkerProcess> worker);

    size_t GetIndex() const noexcept { return index; }
    const WalkedFile& GetFile() const noexcept { return file; }
    bool IsRunning() const noexcept { return worker != nullptr; }
    /// How it ended; for a file that does not run.
    const FileResult& GetResult() const noexcept { return result; }

    /// Adds the descriptors to be waited for: none where too much is waiting to be shown.
    void AddTo(std::vector<pollfd>& descriptors) const;
    /// Reads what there is, answers requests, and notices the end.
    void Read();
    /// Whether there is something to show.
    bool IsWaiting() const noexcept { return !pieces.empty(); }
    /// Shows all that is waiting.
    void Show();

    /// Counts time in which the worker could have worked, and ends it when it has hung for too long.
    void Watch(std::chrono::milliseconds elapsed);
    /// Passes the wish to stop on; `kill` ends it at once.
    void Stop(bool kill);

private:
    struct Piece {
        enum class Kind { Output, ErrorLine, Complaint, Record } kind;
        std::string bytes;
    };

    bool IsFull() const noexcept { return waiting >= MAX_WAITING; }
    void Keep(Piece::Kind kind, std::string bytes);
    bool ReadPipe(Descriptor& pipe, Piece::Kind kind);
    void TakeErrors(std::string_view bytes);
    void EndErrorLine();
    bool ReadControl();
    void Handle(ControlMessage message);
    void End();
    std::optional<Failure> FailureOf(const WorkerEnd& end) const;

    IsolatedWork& work;
    const IsolationOptions& options;
    const size_t index;
    const WalkedFile file;
    BrokerOptions brokerOptions;
    FileBroker broker;
    std::unique_ptr<WorkerProcess> worker;  ///< null: ended
    const bool shared;                      ///< its output and errors come by one pipe
    FileResult result;
    std::deque<Piece> pieces;
    size_t waiting = 0;  ///< bytes in `pieces`
    std::string errorLine;
    uint64_t progress = 0;
    std::chrono::milliseconds idle{0};
    bool begun = false;   ///< to be shown
    bool done = false;    ///< the worker said so
    bool broken = false;  ///< it sent what no worker sends
    bool timedOut = false;
    bool killed = false;      ///< to stop
    bool allocating = false;  ///< its last words are of memory
};

}  // namespace Quorva::Tool
