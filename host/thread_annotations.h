// Locking rules that clang checks (-Wthread-safety); nothing for other compilers.
// https://clang.llvm.org/docs/ThreadSafetyAnalysis.html
#ifndef OX_HOST_THREAD_ANNOTATIONS_H_
#define OX_HOST_THREAD_ANNOTATIONS_H_

#if defined(__clang__)
#define OX_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define OX_THREAD_ANNOTATION(attribute)
#endif

// A class whose objects are held like a lock, and one whose objects hold such a lock for a scope.
#define OX_CAPABILITY(name) OX_THREAD_ANNOTATION(capability(name))
#define OX_SCOPED_CAPABILITY OX_THREAD_ANNOTATION(scoped_lockable)
// A field that is used with the lock held alone.
#define OX_GUARDED_BY(lock) OX_THREAD_ANNOTATION(guarded_by(lock))
// A function whose caller holds the lock; which takes it; which lets it go.
#define OX_REQUIRES(...) OX_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define OX_ACQUIRE(...) OX_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define OX_RELEASE(...) OX_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
// A function that keeps the rules in a way that the compiler cannot follow.
#define OX_NO_THREAD_SAFETY_ANALYSIS OX_THREAD_ANNOTATION(no_thread_safety_analysis)

#endif
