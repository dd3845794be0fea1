#pragma once

#include <exception>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace tests {

/// What a call threw.
struct caught_error_t {
    bool thrown = false;
    std::string type;                 ///< "exc::CRuntimeExc"
    std::string message;              ///< the text of the error alone
    std::string what;                 ///< the text with all causes
    std::vector<std::string> causes;  ///< the messages of the causes, outermost first
    std::vector<std::string> causeTypes;
    std::exception_ptr error;  ///< to throw it again
};

/// Runs `call` and describes what it threw; `thrown` is false when it threw nothing.
caught_error_t CatchError(const std::function<void()>& call);
/// Describes an error that is at hand.
caught_error_t DescribeError(const std::exception_ptr& error);

void PrintTo(const caught_error_t& caught, std::ostream* out);

/// EXPECT_THAT(CatchError([&] { ... }), Throws("exc::CRuntimeExc", "text"));
MATCHER_P2(Throws, type, text, "") {
    return arg.thrown && arg.type == type && arg.message == text;
}

/// The same for any type.
MATCHER_P(ThrowsText, text, "") {
    return arg.thrown && arg.message == text;
}

}  // namespace tests
