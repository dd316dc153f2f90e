#pragma once

/// Counting semaphores under the names of the Mach kernel, implemented with the standard library's mutex and
/// condition variable.
///
/// Each operation returns KERN_SUCCESS or one of the other codes. All but the creation and the destruction
/// may be called from any number of threads at once.

struct PlatformSemaphore;
using semaphore_t = PlatformSemaphore*;
using task_t = unsigned;
using kern_return_t = int;

/// The task that a semaphore belongs to; there is only this one.
inline constexpr task_t mach_task_self_ = 0;

/// The latest waiter wakes first.
inline constexpr int SYNC_POLICY_LIFO = 2;

inline constexpr kern_return_t KERN_SUCCESS = 0;
/// A null semaphore, or a policy other than SYNC_POLICY_LIFO.
inline constexpr kern_return_t KERN_INVALID_ARGUMENT = 4;
/// No memory for another semaphore.
inline constexpr kern_return_t KERN_RESOURCE_SHORTAGE = 6;

/// Makes a semaphore with the start count `value`. The caller owns it and passes it to semaphore_destroy.
/// After a failure `*semaphore` is null.
kern_return_t semaphore_create(task_t task, semaphore_t* semaphore, int policy, unsigned value);

/// Destroys a semaphore. No thread may be inside another operation on it.
kern_return_t semaphore_destroy(task_t task, semaphore_t semaphore);

/// Takes one off the count if it is above 0; otherwise blocks until a signal wakes this thread.
kern_return_t semaphore_wait(semaphore_t semaphore);

/// Wakes the latest waiter or, if there is none, adds one to the count.
kern_return_t semaphore_signal(semaphore_t semaphore);

/// Wakes the threads that wait at this moment. The count stays as it is, so a later wait still blocks.
kern_return_t semaphore_signal_all(semaphore_t semaphore);
