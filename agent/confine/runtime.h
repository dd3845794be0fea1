#pragma once

namespace agent {

/// Lets the libraries that this program runs on read what they would otherwise look for when it is needed first: the
/// time zone for the log's time stamps and, in a build with sanitizers, what their reports need.
void PrepareRuntime();

}  // namespace agent
