#pragma once

// What a lock guards, told to clang's thread-safety analysis (scripts/lint.sh); nothing to any other compiler.
//
// Not told, because the analysis cannot see it: the named mutexes guard files, each with a rule of its own for a wait
// that fails; a worker's thread handle belongs to its owner, or to whoever holds its slot's guard. Nor does it follow a
// pointer to a member: nothing but a review notices a missing hold in CAlertReachPKIThread::ReadLocked and WriteLocked
// and in the report's MemoryAverage.
#if defined(__clang__)
#define VARNEX_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define VARNEX_THREAD_SAFETY(attribute)
#endif

// On types: a lock, and what holds one for its scope.
#define VARNEX_CAPABILITY(name) VARNEX_THREAD_SAFETY(capability(name))
#define VARNEX_SCOPED_CAPABILITY VARNEX_THREAD_SAFETY(scoped_lockable)

// On data: touched with the lock held only; the same of what a pointer points to.
#define VARNEX_GUARDED_BY(lock) VARNEX_THREAD_SAFETY(guarded_by(lock))
#define VARNEX_PT_GUARDED_BY(lock) VARNEX_THREAD_SAFETY(pt_guarded_by(lock))

// On operations: for a caller that holds the lock; takes it; takes it where it returns the value; gives it back.
#define VARNEX_REQUIRES(lock) VARNEX_THREAD_SAFETY(requires_capability(lock))
#define VARNEX_ACQUIRE(...) VARNEX_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define VARNEX_TRY_ACQUIRE(value) VARNEX_THREAD_SAFETY(try_acquire_capability(value))
#define VARNEX_RELEASE(...) VARNEX_THREAD_SAFETY(release_capability(__VA_ARGS__))
