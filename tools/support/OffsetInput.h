/// @file
/// The rest of a stream as a stream.
#pragma once

#include "host/FoundationIO.h"

#include <cstdint>
#include <string>

namespace Quorva::Tool {

/// A stream's bytes from a position on, counted from there. The two share the stream's position.
class OffsetInput final : public RefCounted<Core::IDataInput> {
public:
    /// @param inner  not null; moved to `start`
    /// @param start  position in `inner`, not beyond its end
    OffsetInput(boost::intrusive_ptr<Core::IDataInput> inner, uint64_t start);

    uint64_t Read(uint8_t* buffer, uint64_t size) override { return inner->Read(buffer, size); }
    uint64_t GetSize() override;
    uint64_t MoveBy(int64_t offset) override;
    void MoveTo(uint64_t target) override;
    const std::string& GetName() const noexcept override { return inner->GetName(); }

private:
    const boost::intrusive_ptr<Core::IDataInput> inner;
    const uint64_t start;
};

}  // namespace Quorva::Tool
