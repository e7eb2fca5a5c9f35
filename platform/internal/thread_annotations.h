#pragma once

// The attributes of clang's thread-safety analysis. Other compilers ignore them.

#ifdef __clang__
#define INSTALL_CPPUTIL_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define INSTALL_CPPUTIL_ATTRIBUTE(attribute)
#endif

#define CAPABILITY INSTALL_CPPUTIL_ATTRIBUTE(capability("mutex"))
#define SCOPED_CAPABILITY INSTALL_CPPUTIL_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(mutex) INSTALL_CPPUTIL_ATTRIBUTE(guarded_by(mutex))
#define ACQUIRE(...) INSTALL_CPPUTIL_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) INSTALL_CPPUTIL_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) INSTALL_CPPUTIL_ATTRIBUTE(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS INSTALL_CPPUTIL_ATTRIBUTE(no_thread_safety_analysis)
