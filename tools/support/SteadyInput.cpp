#include "tools/support/SteadyInput.h"

#include "tools/isolation/ReportProgress.h"

#include <boost/exception/get_error_info.hpp>

#include <algorithm>
#include <utility>

namespace Quorva::Tool {

SteadyInput::SteadyInput(boost::intrusive_ptr<Core::IDataInput> inner, ReadLosses& losses)
    : inner(std::move(inner)), losses(losses), position(this->inner->MoveBy(0))
{
}

uint64_t SteadyInput::MoveBy(int64_t offset)
{
    inner->MoveTo(position);
    return position = inner->MoveBy(offset);
}

void SteadyInput::MoveTo(uint64_t target)
{
    inner->MoveTo(target);
    position = target;
}

uint64_t SteadyInput::Read(uint8_t* buffer, uint64_t size)
{
    inner->MoveTo(position);
    try {
        const uint64_t count = inner->Read(buffer, size);
        position += count;
        ReportFurthest();
        return count;
    } catch (const Core::IOException&) {
        // piece by piece, then
    }
    uint64_t done = 0;
    while (done < size) {
        const uint64_t wanted = std::min(size - done, PIECE - position % PIECE);
        const uint64_t count = ReadPiece(buffer + done, wanted);
        done += count;
        position += count;
        if (count < wanted)
            break;
    }
    ReportFurthest();
    return done;
}

/// Reading the same bytes again is no progress.
void SteadyInput::ReportFurthest()
{
    if (position > furthest) {
        furthest = position;
        ReportProgress();
    }
}

/// @param size  no more than there is of the piece behind the position
uint64_t SteadyInput::ReadPiece(uint8_t* buffer, uint64_t size)
{
    inner->MoveTo(position);
    try {
        return inner->Read(buffer, size);
    } catch (const Core::IOException& e) {
        if (lost.size() >= MOST)
            throw;
        if (losses.bytes == 0) {
            const std::string* const text = boost::get_error_info<TagDescription>(e);
            losses.reason = text ? *text : e.what();
        }
    }
    const uint64_t end = inner->GetSize();
    const uint64_t count = std::min(size, end > position ? end - position : 0);
    std::fill_n(buffer, count, uint8_t{0});
    if (lost.insert(position / PIECE * PIECE).second)
        losses.bytes += count;
    return count;
}

}  // namespace Quorva::Tool
