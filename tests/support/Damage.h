/// @file
/// Media files, and what can happen to them. The same bytes each time.
#pragma once

#include "host/FoundationIO.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Quorva::Damage {

/// A container of one stream, over 300 KB long: nearer to the end than 100 KB, readers don't look for more.
struct Container {
    const char* name;   ///< in the table, and the file's extension
    const char* muxer;  ///< FFmpeg's names, as for Mux()
    const char* encoder;
    int frames;
    int64_t bitRate;
};
std::span<const Container> Containers();
std::vector<uint8_t> Make(const Container& container);

/// Where reading fails, as on a medium that decays.
struct BadSpot {
    uint64_t begin = 0;
    uint64_t end = 0;      ///< bytes; equal to `begin` for none
    bool lasting = false;  ///< not only the first time
};

/// One damaged file.
struct Case {
    std::string name;  ///< of its file, without the extension
    std::vector<uint8_t> bytes;
    BadSpot spot;
};

/// A way to damage files, with how many files there are of it.
struct Kind {
    const char* name;  ///< in the table
    int cases;
    /// @param number  0 to cases - 1
    Case (*make)(const std::vector<uint8_t>& intact, int number);
};
std::span<const Kind> Kinds();

/// What a reader asks of a stream.
struct Effort {
    uint64_t bytes = 0;
    uint64_t calls = 0;  ///< reads and seeks
};

/// The case as a stream, which counts; both outlive it.
boost::intrusive_ptr<Core::IDataInput> Open(const Case& damaged, Effort& effort);

}  // namespace Quorva::Damage
