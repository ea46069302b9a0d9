// What the compiler is told about locks, so that it refuses code that uses guarded data without
// them. Clang checks this (-Wthread-safety); for other compilers the macros are empty.
#ifndef OX_MODULE_THREAD_ANNOTATIONS_H_
#define OX_MODULE_THREAD_ANNOTATIONS_H_

#ifdef __clang__
#define OX_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define OX_THREAD_ATTRIBUTE(attribute)
#endif

// Of a class: a lock, and a guard that holds a lock while it lives.
#define OX_CAPABILITY(name) OX_THREAD_ATTRIBUTE(capability(name))
#define OX_SCOPED_CAPABILITY OX_THREAD_ATTRIBUTE(scoped_lockable)

// Of a member: may be used only while the mutex is held.
#define OX_GUARDED_BY(mutex) OX_THREAD_ATTRIBUTE(guarded_by(mutex))

// Of a function: its caller must hold the mutexes; it takes them; it releases them.
#define OX_REQUIRES(...) OX_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define OX_ACQUIRE(...) OX_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define OX_RELEASE(...) OX_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))

// Of a function whose locking the compiler cannot follow. It needs a comment that says why.
#define OX_NO_THREAD_SAFETY_ANALYSIS OX_THREAD_ATTRIBUTE(no_thread_safety_analysis)

#endif
