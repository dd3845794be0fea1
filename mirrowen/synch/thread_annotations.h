#pragma once

/// Lock annotations, checked by clang's -Wthread-safety and empty for other compilers.
/// Source: clang's documentation of thread safety analysis.
#if defined(__clang__)
#define TARN_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define TARN_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) TARN_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY TARN_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) TARN_THREAD_ANNOTATION(guarded_by(x))
#define REQUIRES(...) TARN_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) TARN_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) TARN_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) TARN_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define EXCLUDES(...) TARN_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS TARN_THREAD_ANNOTATION(no_thread_safety_analysis)
