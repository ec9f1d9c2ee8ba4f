/// @file
/// A tree of named, typed values.
#pragma once

#include "host/Export.h"

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace Quorva {

/// What a Property holds.
enum class PropertyTypes : int32_t {
    Empty = 0,
    Boolean = 1,
    Double = 2,
    Int64 = 3,
    String = 4,
    Binary = 5,
    Group = 6,
};

namespace Core {

/// One named value, or a named group of them. A value type: copies are deep.
class QUORVA_HOST_API Property {
public:
    Property() = default;  ///< no name, no value
    /// A value under a name. Numbers of 32 bits are kept as ones of 64, text and bytes as copies.
    Property(std::string name, bool value);
    Property(std::string name, double value);
    Property(std::string name, int64_t value);
    Property(std::string name, int value);
    Property(std::string name, std::string value);
    Property(std::string name, const char* value);
    Property(std::string name, std::vector<uint8_t> value);
    /// A group of `children`, in order.
    static Property Group(std::string name, std::vector<Property> children = {});

    PropertyTypes Type() const noexcept;  ///< what it holds
    /// What it is called; empty where it has no name.
    const std::string& Name() const noexcept { return name; }
    /// Children of a group; 0 for anything else.
    uint64_t Count() const noexcept;
    /// @throws IOException  not a group, or no such child.
    const Property& operator[](uint64_t index) const;
    /// Appends a child and returns it; the reference lives until the next Add().
    /// @throws IOException  not a group.
    Property& Add(Property child);

    /// @throws IOException  the value is of another type, all four.
    const std::string& GetString() const;
    bool GetBool() const;
    double GetDouble() const;
    int64_t GetInt64() const;

private:
    /// A type of its own: libstdc++ 14 takes a variant of strings and vectors for never valueless, and
    /// destroys what isn't there when a copy fails for want of memory.
    struct Children {
        std::vector<Property> list;
    };

    std::string name;
    // In the order of PropertyTypes.
    std::variant<std::monostate, bool, double, int64_t, std::string, std::vector<uint8_t>, Children> value;
};

}  // namespace Core
}  // namespace Quorva
