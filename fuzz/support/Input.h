// What fuzz targets do with the bytes they get.
#pragma once

#include "host/Exception.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

/// The bytes of one run, taken piece by piece. Behind their end come zeros and empty texts.
class Input {
public:
    Input(const uint8_t* data, size_t size) : at(data), end(data + size) {}

    template <class T>
    T Number()
    {
        static_assert(std::is_arithmetic_v<T>);
        T number{};
        const size_t size = std::min(sizeof number, Left());
        std::memcpy(&number, at, size);
        at += size;
        return number;
    }
    bool Flag() { return Number<uint8_t>() & 1; }
    /// From 0 to below `limit`, which is at least 1.
    int Below(int limit) { return static_cast<int>(Number<uint32_t>() % static_cast<uint32_t>(limit)); }
    int Between(int low, int high) { return low + Below(high - low + 1); }
    /// A small number half of the time, else any.
    int Extreme() { return Flag() ? Number<int8_t>() : Number<int32_t>(); }
    std::string Text(size_t most = 32)
    {
        const size_t wanted = Number<uint8_t>() % (most + 1);  // before what is left then
        const size_t size = std::min(wanted, Left());
        const std::string text(reinterpret_cast<const char*>(at), size);
        at += size;
        return text;
    }
    std::vector<uint8_t> Bytes(size_t size)
    {
        std::vector<uint8_t> bytes(size);
        const size_t given = std::min(size, Left());
        std::copy_n(at, given, bytes.begin());
        at += given;
        return bytes;
    }
    std::vector<uint8_t> Rest() { return Bytes(Left()); }
    size_t Left() const { return static_cast<size_t>(end - at); }

private:
    const uint8_t* at;
    const uint8_t* end;
};

/// Ends the run as a find when a promise was broken.
inline void Require(bool promise)
{
    if (!promise)
        std::abort();
}

/// Lets pass what the library may throw: its family, and want of memory.
/// @return  whether nothing was thrown
template <class Action>
bool Tolerate(Action action)
{
    try {
        action();
        return true;
    } catch (const Quorva::Exception& e) {
        Require(e.what()[0] != '\0');
    } catch (const std::bad_alloc&) {
    }
    return false;
}
