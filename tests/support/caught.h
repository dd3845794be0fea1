#pragma once

#include <exception>
#include <stdexcept>
#include <typeinfo>
#include <utility>

#include <gtest/gtest.h>

#include "tests/support/caught_error.h"

namespace tests {

/// What an action threw, with its exact type.
struct caught_t : caught_error_t {
    /// Whether the exception is a `T` and nothing derived from it.
    template <class T>
    bool Is() const {
        try {
            std::rethrow_exception(error);
        } catch (const std::exception& caught) {
            return typeid(caught) == typeid(T);
        }
    }
};

/// As CatchError for an action that must throw: the test fails when it does not.
template <class Action>
caught_t Catch(Action&& action) {
    caught_t caught{CatchError([&] { std::forward<Action>(action)(); })};
    if (!caught.thrown) {
        ADD_FAILURE() << "no exception";
        caught.error = std::make_exception_ptr(std::runtime_error("no exception"));
    }
    return caught;
}

}  // namespace tests
