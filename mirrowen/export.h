#pragma once

/// Marks what the shared library of this floor shows to its users; everything else is hidden.
#define MIRROWEN_API __attribute__((visibility("default")))
