#include "host/ProcessingSupport.h"

#include <algorithm>
#include <cstring>

namespace Quorva::Proc {

void CopyPlane(const Details::PlaneTemplate<true>& source,
               const Details::PlaneTemplate<false>& destination) noexcept
{
    const int64_t length = std::min(source.rowLength, destination.rowLength);
    const int64_t rows = std::min(source.rowCount, destination.rowCount);
    if (length <= 0 || rows <= 0)
        return;
    if (source.stride == length && destination.stride == length) {
        std::memcpy(destination.data, source.data, static_cast<std::size_t>(length * rows));
        return;
    }
    for (int64_t row = 0; row < rows; ++row)
        std::memcpy(destination.data + row * destination.stride, source.data + row * source.stride,
                    static_cast<std::size_t>(length));
}

}  // namespace Quorva::Proc
