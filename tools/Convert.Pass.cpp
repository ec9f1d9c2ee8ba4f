#include "tools/Convert.Pass.h"

#include "tools/support/Interruption.h"

#include <algorithm>

namespace Quorva::Tool {

namespace {

/// Packets of the input that may be read while the first one is at work.
constexpr size_t AHEAD = 64;

}  // namespace

bool Pass::Write(size_t ahead, Path* next)
{
    const auto hasRoom = [next] { return !next || next->HasRoom(); };
    while (steps.GetCount() > 0 && !Interruption::IsOverdue()) {
        const bool blocked = steps.GetCount() > ahead || steps.IsFull();
        const bool wait = blocked || !hasRoom();
        const bool complete =
            blocked ? steps.WriteFirst(GetSink(), true) : steps.WriteFirst(GetSink(), wait, hasRoom);
        if (!complete && !wait)
            return false;
        if (std::ranges::includes(steps.GetDone(), awaited)) {
            while (steps.GetCount() > 0 && !Interruption::IsOverdue())
                steps.WriteFirst(nowhere, true);
            return true;
        }
    }
    return false;
}

bool Pass::Take(AVPacket& packet)
{
    const auto path = paths.find(packet.stream_index);
    if (path == paths.end() || path->second->IsDone())
        return Write(AHEAD);
    if (Write(AHEAD, path->second) || Interruption::IsOverdue())
        return true;
    path->second->Take(packet, steps.Begin(path->first));
    return Write(AHEAD);
}

void Pass::TakeEarlier()
{
    for (const PacketPointer& packet : earlier.Get())
        if (const auto path = paths.find(packet->stream_index); path != paths.end())
            path->second->Take(*packet, steps.Begin(path->first));
}

void Pass::Finish()
{
    for (const auto& path : owned) {
        if (!path)
            continue;
        while (!path->HasRoom() && !Interruption::IsOverdue())
            steps.WriteFirst(GetSink(), true, [&] { return path->HasRoom(); });
        if (Interruption::IsOverdue())
            break;
        path->Finish(steps.Begin(0));
    }
    while (steps.GetCount() > 0 && !Interruption::IsOverdue())
        steps.WriteFirst(GetSink(), true);
    // What is complete by then goes into the output all the same.
    while (steps.GetCount() > 0 && steps.WriteFirst(GetSink(), false)) {
    }
}

}  // namespace Quorva::Tool
