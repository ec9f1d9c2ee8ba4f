/// @file
/// Named memory statistics, and the stretches of code that they are about.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <ostream>
#include <string>

namespace Quorva::Proc {

/// The numbers of one record. This library counts nothing: they stay at their start until an allocator of the
/// process is taught to write them.
struct MemStatRecord {
    std::string name;                       ///< of who allocates
    uint32_t peak = 0;                      ///< most bytes held at once
    uint32_t current = 0;                   ///< bytes held now
    uint32_t allocations = 0;               ///< so far
    uint32_t live = 0;                      ///< of them, those not yet released
    std::map<size_t, uint32_t> bySize;      ///< allocations so far, by their bytes
    std::map<size_t, uint32_t> liveBySize;  ///< of them, those not yet released
};

/// For people: "decoder: 48 bytes in 2 of 3 allocations, at most 64 bytes", and below it, indented, a line
/// for each size. No line feed at the end. Digits are plain whatever the stream's locale and flags are.
TESSADRIN_API std::ostream& operator<<(std::ostream& stream, const MemStatRecord& record);

/// A named record. Must outlive every MemLocker that was made for it.
class TESSADRIN_API MemStat {
public:
    /// @param name  copied; null is an empty name
    explicit MemStat(const char* name);
    MemStat(const MemStat&) = delete;
    MemStat& operator=(const MemStat&) = delete;
    ~MemStat();

    /// A copy of the record as it is now. Safe on any thread, also while a MemLocker of another one lives.
    MemStatRecord GetSnapshot() const;

private:
    friend class MemLocker;

    std::unique_ptr<MemStatRecord> record;
};

/// Makes a record the current one of the process as long as it lives; meanwhile, a further MemLocker waits on
/// any other thread. On the same thread one may live inside another: the inner one replaces the current
/// record, and when it ends, none is current, the outer one's neither. Ends on the thread that made it. Don't
/// fork() while one lives: the child could neither end it nor make another.
class TESSADRIN_API MemLocker {
public:
    /// @param label  for the reader of the code; not used
    MemLocker(MemStat& stat, const char* label);
    MemLocker(const MemLocker&) = delete;
    ~MemLocker();

    /// Does nothing: both go on as they are.
    MemLocker& operator=(const MemLocker& other);
};

}  // namespace Quorva::Proc
