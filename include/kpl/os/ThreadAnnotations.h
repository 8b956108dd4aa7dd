// Names for clang's thread-safety attributes; they vanish with every other compiler.
// A build with clang and -Werror=thread-safety then proves that guarded members are touched only
// under their lock.
#ifndef KPL_OS_THREADANNOTATIONS_H_
#define KPL_OS_THREADANNOTATIONS_H_

#if defined(__clang__)
// One attribute, where the compiler knows it.
#define KPL_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
// Nothing, with another compiler.
#define KPL_THREAD_ATTRIBUTE(x)
#endif

// What clang's manual calls by the same names in small letters: a lock, an object that holds one,
// what is guarded by which lock, which locks a function needs, takes and gives back.
#define KPL_CAPABILITY(name) KPL_THREAD_ATTRIBUTE(capability(name))
#define KPL_SCOPED_CAPABILITY KPL_THREAD_ATTRIBUTE(scoped_lockable)
#define KPL_GUARDED_BY(lock) KPL_THREAD_ATTRIBUTE(guarded_by(lock))
#define KPL_PT_GUARDED_BY(lock) KPL_THREAD_ATTRIBUTE(pt_guarded_by(lock))
#define KPL_REQUIRES(...) KPL_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define KPL_EXCLUDES(...) KPL_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define KPL_ACQUIRE(...) KPL_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define KPL_RELEASE(...) KPL_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define KPL_ACQUIRED_BEFORE(...) KPL_THREAD_ATTRIBUTE(acquired_before(__VA_ARGS__))
#define KPL_NO_THREAD_SAFETY_ANALYSIS KPL_THREAD_ATTRIBUTE(no_thread_safety_analysis)

#endif  // KPL_OS_THREADANNOTATIONS_H_
