#include "tools/support/OffsetInput.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"

#include <fmt/format.h>

#include <limits>
#include <utility>

namespace Quorva::Tool {

OffsetInput::OffsetInput(boost::intrusive_ptr<Core::IDataInput> inner, uint64_t start)
    : inner(std::move(inner)), start(start)
{
    this->inner->MoveTo(start);
}

uint64_t OffsetInput::GetSize()
{
    const uint64_t size = inner->GetSize();
    return size > start ? size - start : 0;
}

uint64_t OffsetInput::MoveBy(int64_t offset)
{
    const uint64_t before = inner->MoveBy(0), after = inner->MoveBy(offset);
    if (after >= start)
        return after - start;
    inner->MoveTo(before);
    Proc::Details::Raise(Core::IOException() << TagDescription(fmt::format(
                             "Can't move by {} from {} in '{}'", offset, before - start, GetName())));
}

void OffsetInput::MoveTo(uint64_t target)
{
    // A sum that wraps around would be a valid position.
    inner->MoveTo(target <= std::numeric_limits<uint64_t>::max() - start ? start + target : target);
}

}  // namespace Quorva::Tool
