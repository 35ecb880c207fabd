// Names for the lock annotations that the clang build checks; nothing for other compilers.
#pragma once

#if defined(__clang__)
#define KT_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define KT_THREAD_ANNOTATION(x)
#endif

#define KT_CAPABILITY(name) KT_THREAD_ANNOTATION(capability(name))
#define KT_SCOPED_CAPABILITY KT_THREAD_ANNOTATION(scoped_lockable)
#define KT_GUARDED_BY(mutex) KT_THREAD_ANNOTATION(guarded_by(mutex))
#define KT_REQUIRES(...) KT_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define KT_EXCLUDES(...) KT_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define KT_ACQUIRE(...) KT_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define KT_RELEASE(...) KT_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define KT_TRY_ACQUIRE(...) KT_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define KT_NO_THREAD_SAFETY_ANALYSIS KT_THREAD_ANNOTATION(no_thread_safety_analysis)
