// Bytes with nothing behind them: a read past their end is a fault in every build.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>

class GuardedBytes {
public:
    /// @param bytes  less than a page
    explicit GuardedBytes(std::string_view bytes) : page(static_cast<size_t>(sysconf(_SC_PAGESIZE)))
    {
        memory = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED || mprotect(End(), page, PROT_NONE) != 0)
            throw std::bad_alloc();
        start = End() - bytes.size();
        std::memcpy(start, bytes.data(), bytes.size());
    }
    GuardedBytes(const GuardedBytes&) = delete;
    GuardedBytes& operator=(const GuardedBytes&) = delete;
    ~GuardedBytes() { munmap(memory, 2 * page); }

    const uint8_t* data() const { return start; }

private:
    uint8_t* End() const { return static_cast<uint8_t*>(memory) + page; }

    size_t page;
    void* memory;
    uint8_t* start;
};
