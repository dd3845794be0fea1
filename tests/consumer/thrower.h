#pragma once

#include <functional>
#include <string>

/// A shared library of a user of ours: hidden by default, with its own copies of everything inline.
namespace tests::consumer {

[[gnu::visibility("default")]] void ThrowRuntime();
[[gnu::visibility("default")]] void ThrowNotImpl();
[[gnu::visibility("default")]] void ThrowAlreadyExists();

/// The class of what `call` throws, found by this library's own handlers.
[[gnu::visibility("default")]] std::string Classify(const std::function<void()>& call);

}  // namespace tests::consumer
