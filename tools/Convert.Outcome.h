/// @file
/// What a conversion made of each stream, and which of them that is too little of.
#pragma once

#include "tools/Convert.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Quorva::Tool {

/// One stream of the plan after the last packet.
struct StreamOutcome {
    enum class Role {
        Film,      ///< moving pictures or sound: an empty one is a failure
        Sparse,    ///< subtitles and data: an empty one is named
        Cover,     ///< likewise
        Attached,  ///< in the header: has no packets
    };

    std::string name;  ///< "stream 0: audio aac"
    Role role = Role::Film;
    bool isExpected = true;  ///< as far as is known, it has something in the time that is converted
    uint64_t read = 0;       ///< packets of the input
    uint64_t damaged = 0;    ///< those that the decoder made nothing of
    uint64_t written = 0;    ///< packets of the output

    bool IsMissing() const { return written == 0 && role != Role::Attached; }
    bool IsFailure() const { return IsMissing() && role == Role::Film && isExpected; }
};

/// @param source  the stream of the input; the counts are left to the caller
StreamOutcome OutcomeOf(const StreamPlan& stream, const AVStream& source, const Plan& plan);

/// Returns "stream 0: audio aac: nothing of it was written: all 49 packets are damaged".
std::string DescribeMissing(const StreamOutcome& outcome);

/// Whether the output holds anything of what it is made for. Covers and attached files don't count beside
/// other streams.
bool HasContent(const std::vector<StreamOutcome>& outcomes);

/// @throws Quorva::Exception  always: nothing was written, and why
[[noreturn]] void ThrowNoContent(const std::vector<StreamOutcome>& outcomes);

/// @throws Quorva::Exception  some stream is empty that must not be
void CheckOutcomes(const std::vector<StreamOutcome>& outcomes);

}  // namespace Quorva::Tool
