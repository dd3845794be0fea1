#pragma once

namespace cli {

/// How the command ends.
inline constexpr int kDone = 0;
inline constexpr int kFailed = 1;
inline constexpr int kWrongUsage = 2;
inline constexpr int kPartlyFailed = 3;
inline constexpr int kInterrupted = 130;

}  // namespace cli
