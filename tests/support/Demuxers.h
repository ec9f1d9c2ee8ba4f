// Demuxers that score what a test wants, under names the library knows.
#pragma once

#include "Proc/Wrappers/Tessadrin/Details/DemuxerFunctions.h"

namespace Quorva::Proc::Details {

/// @tparam score  what its probe always says
template <int score>
struct ScoringDemuxer {
    explicit ScoringDemuxer(const char* name, ReadHeader readHeader = nullptr) : head{}
    {
        head.p.name = name;
        head.readProbe = [](const AVProbeData*) {
            ++calls;
            return score;
        };
        head.readHeader = readHeader;
        calls = 0;
    }
    operator const AVInputFormat*() const { return &head.p; }

    DemuxerHead head;
    static inline int calls = 0;
};

}  // namespace Quorva::Proc::Details
