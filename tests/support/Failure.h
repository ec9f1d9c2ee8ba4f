// Looks at a thrown exception the way a caller would.
#pragma once

#include "host/Exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/exception/get_error_info.hpp>
#include <boost/throw_exception.hpp>

#include <ostream>
#include <stdexcept>
#include <string>

struct Failure {
    std::string description, function, unit;
    bool operator==(const Failure&) const = default;
    friend std::ostream& operator<<(std::ostream& stream, const Failure& failure)
    {
        return stream << '"' << failure.description << "\" in " << failure.function << " of " << failure.unit;
    }
};

/// Where `e` was thrown: function and unit (the file's name up to its first dot), and checks that the
/// location is whole.
template <class E>
Failure PlaceOf(const E& e, std::string description)
{
    const boost::source_location where = boost::get_throw_location(e);
    const std::string path = where.file_name();
    const std::string file = path.substr(path.rfind('/') + 1);
    EXPECT_GT(where.line(), 0u);
    EXPECT_GT(where.column(), 0u);
    EXPECT_NE(path.front(), '/') << "a path of the machine that built the library";
    return {std::move(description), where.function_name(), file.substr(0, file.find('.'))};
}

/// What `action` threw as an `E`; an empty Failure and a test failure when it did not.
template <class E, class Action>
Failure FailureOf(Action action)
{
    try {
        action();
    } catch (const E& e) {
        const std::string* stack = boost::get_error_info<Quorva::TagCallStack>(e);
        EXPECT_TRUE(stack && !stack->empty()) << "no call stack";
        EXPECT_TRUE(dynamic_cast<const boost::wrapexcept<E>*>(&e))
            << "of a class derived from the expected one";
        const std::string* text = boost::get_error_info<Quorva::TagDescription>(e);
        return PlaceOf(e, text ? *text : e.what());
    }
    ADD_FAILURE() << "nothing thrown";
    return {};
}

/// The same for a std::logic_error, whose call stack stands in its message below the description.
template <class Action>
Failure LogicFailureOf(Action action)
{
    try {
        action();
    } catch (const std::logic_error& e) {
        const std::string text = e.what();
        EXPECT_GT(text.size(), text.find('\n') + 10) << "no call stack";
        return PlaceOf(e, text.substr(0, text.find('\n')));
    }
    ADD_FAILURE() << "nothing thrown";
    return {};
}
