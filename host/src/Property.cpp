#include "host/Property.h"

#include "host/FoundationIO.h"
#include "host/src/Throw.h"

#include <fmt/format.h>

#include <utility>

namespace Quorva::Core {

using Quorva::Details::Throw;

Property::Property(std::string name, bool value) : name(std::move(name)), value(value) {}
Property::Property(std::string name, double value) : name(std::move(name)), value(value) {}
Property::Property(std::string name, int64_t value) : name(std::move(name)), value(value) {}
Property::Property(std::string name, int value) : Property(std::move(name), int64_t{value}) {}
Property::Property(std::string name, std::string value) : name(std::move(name)), value(std::move(value)) {}
Property::Property(std::string name, const char* value)
    : Property(std::move(name), std::string(value ? value : ""))
{
}
Property::Property(std::string name, std::vector<uint8_t> value)
    : name(std::move(name)), value(std::move(value))
{
}

Property Property::Group(std::string name, std::vector<Property> children)
{
    Property group;
    group.name = std::move(name);
    group.value = Children{std::move(children)};
    return group;
}

PropertyTypes Property::Type() const noexcept { return static_cast<PropertyTypes>(value.index()); }

uint64_t Property::Count() const noexcept
{
    const auto* const children = std::get_if<Children>(&value);
    return children ? children->list.size() : 0;
}

const Property& Property::operator[](uint64_t index) const
{
    const auto* const children = std::get_if<Children>(&value);
    if (!children)
        Throw<IOException>(fmt::format("Property '{}' is not a group", name));
    if (index >= children->list.size())
        Throw<IOException>(
            fmt::format("Property '{}' has {} children, no number {}", name, children->list.size(), index));
    return children->list[index];
}

Property& Property::Add(Property child)
{
    auto* const children = std::get_if<Children>(&value);
    if (!children)
        Throw<IOException>(fmt::format("Property '{}' is not a group", name));
    return children->list.emplace_back(std::move(child));
}

const std::string& Property::GetString() const
{
    const auto* const held = std::get_if<std::string>(&value);
    if (!held)
        Throw<IOException>(fmt::format("Property '{}' is not a string", name));
    return *held;
}

bool Property::GetBool() const
{
    const auto* const held = std::get_if<bool>(&value);
    if (!held)
        Throw<IOException>(fmt::format("Property '{}' is not a boolean", name));
    return *held;
}

double Property::GetDouble() const
{
    const auto* const held = std::get_if<double>(&value);
    if (!held)
        Throw<IOException>(fmt::format("Property '{}' is not a floating-point number", name));
    return *held;
}

int64_t Property::GetInt64() const
{
    const auto* const held = std::get_if<int64_t>(&value);
    if (!held)
        Throw<IOException>(fmt::format("Property '{}' is not an integer", name));
    return *held;
}

}  // namespace Quorva::Core
