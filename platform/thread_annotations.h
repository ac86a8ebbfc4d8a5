// Clang's thread-safety analysis: which mutex guards which field, and which functions take it or
// need it held. scripts/check-thread-safety runs the analysis (-Wthread-safety) in CI over every
// translation unit that includes this header; under other compilers the macros are empty.
//
// Mutex and MutexLock are std::mutex and std::lock_guard with the attributes the analysis needs.
// A thread that waits for a guarded state uses std::condition_variable_any with the MutexLock it
// holds: the wait unlocks and locks it again through the annotated calls.
#pragma once

#include <mutex>

#if defined(__clang__)
#define PICTAVO_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define PICTAVO_THREAD_ATTRIBUTE(x)
#endif

#define CAPABILITY(x) PICTAVO_THREAD_ATTRIBUTE(capability(x))
#define SCOPED_CAPABILITY PICTAVO_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(x) PICTAVO_THREAD_ATTRIBUTE(guarded_by(x))
#define PT_GUARDED_BY(x) PICTAVO_THREAD_ATTRIBUTE(pt_guarded_by(x))
#define REQUIRES(...) PICTAVO_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) PICTAVO_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) PICTAVO_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) PICTAVO_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define EXCLUDES(...) PICTAVO_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS PICTAVO_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace pictavo::platform {

class CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }
  bool try_lock() TRY_ACQUIRE(true) { return mutex_.try_lock(); }

 private:
  std::mutex mutex_;
};

// Holds `mutex` from construction to destruction. lock and unlock are for
// std::condition_variable_any, which releases the mutex while it waits.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }

 private:
  Mutex& mutex_;
};

}  // namespace pictavo::platform
