/// @file
/// Reading on where a medium can't be read.
#pragma once

#include "host/FoundationIO.h"

#include <cstdint>
#include <set>
#include <string>

namespace Quorva::Tool {

/// What could not be read of a stream.
struct ReadLosses {
    uint64_t bytes = 0;
    std::string reason;  ///< the stream's, of the first time
};

/// A stream over another one. What that refuses to read, also when it is asked again, is given as zeros, in
/// pieces of 4 KiB: one bad sector then costs a film a picture, not its rest. Where a megabyte or more is
/// refused the stream's exception comes out.
class SteadyInput final : public RefCounted<Core::IDataInput> {
public:
    static constexpr uint64_t PIECE = 4096;  ///< bytes
    static constexpr size_t MOST = 256;      ///< pieces

    /// @param losses  outlives the object
    SteadyInput(boost::intrusive_ptr<Core::IDataInput> inner, ReadLosses& losses);

    uint64_t Read(uint8_t* buffer, uint64_t size) override;
    uint64_t GetSize() override { return inner->GetSize(); }
    uint64_t MoveBy(int64_t offset) override;
    void MoveTo(uint64_t target) override;
    const std::string& GetName() const noexcept override { return inner->GetName(); }

private:
    uint64_t ReadPiece(uint8_t* buffer, uint64_t size);
    void ReportFurthest();

    const boost::intrusive_ptr<Core::IDataInput> inner;
    ReadLosses& losses;
    std::set<uint64_t> lost;  ///< positions of pieces
    uint64_t position = 0;
    uint64_t furthest = 0;  ///< position that a read has come to
};

}  // namespace Quorva::Tool
