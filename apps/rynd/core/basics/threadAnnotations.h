// Names for clang's thread-safety analysis; nothing to any other compiler.
#pragma once

#if defined(__clang__)
#define RYND_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define RYND_THREAD_ATTRIBUTE(x)
#endif

#define CAPABILITY(name) RYND_THREAD_ATTRIBUTE(capability(name))
#define SCOPED_CAPABILITY RYND_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(mutex) RYND_THREAD_ATTRIBUTE(guarded_by(mutex))
#define REQUIRES(...) RYND_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) RYND_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) RYND_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) RYND_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) RYND_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS RYND_THREAD_ATTRIBUTE(no_thread_safety_analysis)
