// Host streams in memory.
#pragma once

#include "host/FoundationIO.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace Quorva {

/// An output that keeps what is written.
class MemoryOutput final : public RefCounted<Core::IDataOutput> {
public:
    void Write(const uint8_t* buffer, uint64_t size) override
    {
        bytes.resize(std::max<uint64_t>(bytes.size(), position + size));
        std::copy_n(buffer, size, bytes.data() + position);
        position += size;
    }
    uint64_t GetSize() override { return bytes.size(); }
    void SetSize(uint64_t size) override { bytes.resize(size); }
    uint64_t MoveBy(int64_t offset) override { return position += static_cast<uint64_t>(offset); }
    void MoveTo(uint64_t target) override { position = target; }

    std::vector<uint8_t> bytes;
    uint64_t position = 0;
};

}  // namespace Quorva
