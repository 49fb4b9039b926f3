/* Core services: memory, processor cores, threads and cache.
 *
 * The image functions take every block of memory and every thread count from here. All functions may be called from
 * any thread at any time. What they report about the machine is found out at the first call that needs it and stays the
 * same for the life of the process; racing first calls get the same answer.
 *
 * A program may define any of these functions itself; its own definition then takes the place of the library's for
 * everything in the process, by the ordinary rules of the dynamic loader. It has to keep the promises made below.
 */
#ifndef QORCORE_H
#define QORCORE_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define QORCORE_API __attribute__((visibility("default")))
#else
#define QORCORE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Allocates a block of memory.
 *
 *  @param size  bytes wanted, any value.
 *  @return a block of at least `size` bytes whose address is a multiple of 64, contents undefined; null when `size` is
 * 0 or no such block is to be had. The caller owns the block and releases it with qorFree.
 */
QORCORE_API void* qorMalloc(size_t size);

/** Releases a block that qorMalloc returned; it must not be used afterwards.
 *
 *  @param block  the block, or null, for which nothing is done.
 */
QORCORE_API void qorFree(void* block);

/** Number of processor cores on the die that the first caller ran on.
 *
 *  A core with several hardware threads counts once, and only cores with a processor online count. Where the kernel
 * does not describe the die, this is the number of processors online.
 *
 *  @return the number of cores, at least 1.
 */
QORCORE_API int32_t qorGetNumCoresOnDie(void);

/** The most threads that the library may use.
 *
 *  By default the number of processors that the process may run on: those in the affinity mask of its main thread, but
 *  no more than its CPU quota (control groups of either version) pays for, rounded up. qorSetNumThreads changes it.
 *
 *  @param numThreads  receives the number of threads, at least 1. Owned by the caller.
 *  @return 0; -8 (null pointer) if `numThreads` is null.
 */
QORCORE_API int32_t qorGetNumThreads(int32_t* numThreads);

/** Size of the thread team that an image function asks for when its work is worth sharing out.
 *
 *  The same number as qorGetNumThreads reports.
 *
 *  @return the number of threads, at least 1.
 */
QORCORE_API int32_t ownGetNumThreads(void);

/** Sets the number of threads that qorGetNumThreads and ownGetNumThreads report, for the whole process.
 *
 *  The number is taken as it is and may be larger than the number of processors. Sizes of work buffers can depend on
 *  it: change it before asking for a buffer's size, not between that and the call that uses the buffer.
 *
 *  @param numThreads  1 or more, or 0 to go back to the default.
 *  @return 0; -6 (bad size) if `numThreads` is negative, with nothing changed.
 */
QORCORE_API int32_t qorSetNumThreads(int32_t numThreads);

/** Size of the largest cache of the processor.
 *
 *  @param sizeB  receives the size in bytes, at least 1: 1048576 where it cannot be found out, and 2147483647 for any
 *                larger size. Owned by the caller.
 *  @return 0; -8 (null pointer) if `sizeB` is null.
 */
QORCORE_API int32_t qorGetMaxCacheSizeB(int32_t* sizeB);

#ifdef __cplusplus
}
#endif

#endif
