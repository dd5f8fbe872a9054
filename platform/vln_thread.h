/*
 * vln_thread.h: threads, thread-local data and worker pools.
 *
 * A thin layer over pthreads with three things of its own: the switch that
 * turns the library's locks on (vln_thread_init), a fork-and-join helper that
 * runs one function over several arguments in parallel (vln_thread_mfork), and
 * a pool of parked workers that run a job each when told to. Beside them sit
 * thread-local slots, periodic "reaper" callbacks, and the machine's figures
 * for processors and memory.
 *
 * A thread id is a pair: a handle, which is this layer's own number for a
 * thread it knows (0 for one it doesn't), and the kernel's thread id. Ids
 * compare by the kernel id alone.
 */
#ifndef VORLAN_VLN_THREAD_H
#define VORLAN_VLN_THREAD_H

#include "vld_core.h"

VLD_BEGIN_DECLS

typedef struct vln_thread_id {
    uint32_t handle; /* this layer's number for the thread; 0 when none */
    uint32_t tid;    /* the kernel's thread id (gettid) */
} vln_thread_id;

/* The null id: both fields 0. */
extern VLD_API const vln_thread_id _null_thread_id;

/* A thread's body. Its result is ignored. */
typedef void *(*vln_thread_func)(void *argument);
/* A job of vln_thread_mfork and of a pool: one argument and the job's index. */
typedef void (*vln_indexed_func)(void *argument, int index);

/* ---------------------------------------------------------------- threads */

/* Starts threading: creates csect, the per-thread slot, notes the calling
 * thread, and turns the library's locks on. Idempotent; returns 1. */
VLD_API int vln_thread_init(void);
/* Frees the calling thread's slot and turns locking off. Idempotent; returns 1. */
VLD_API int vln_thread_fini(void);

/* Starts `function(argument)` on a new (detached) thread, and fills `*id`
 * (when id is not null) before returning. `flags` is kept for callers and
 * ignored. Starts threading if needed. Returns 2, or 0 after reporting
 * "Create Thread failed" through win32_error. */
VLD_API int vln_thread_spawn(vln_thread_id *id, int flags, vln_thread_func function,
                             void *argument);
/* Ends the calling thread after freeing its slot; on the process's main thread
 * this is exit(status). */
VLD_API void vln_thread_exit(int status) VLD_NORETURN;
/* Resets *id to the null id. Returns 0. */
VLD_API int vln_thread_collect(vln_thread_id *id);
/* Always 6. */
VLD_API int vln_thread_status(void);
/* Cancels the thread (it ends at its next cancellation point: a wait, a sleep,
 * a read). Killing oneself is vln_thread_exit(1). Returns 0, or -1 when the id
 * names no living thread of this layer. */
VLD_API int vln_thread_kill(vln_thread_id *id);

/* Suspension is cooperative: a thread that suspends itself waits until another
 * resumes it. Suspending another thread only raises its suspend count, which
 * vln_thread_suspended reports; it does not stop it. vln_thread_resume waits
 * (polling every 10 ms) until the count is above 0, then lowers it and wakes the
 * thread when it reaches 0. Both return 0, or -1 after a win32_error report. */
VLD_API int vln_thread_suspend(vln_thread_id *id);
VLD_API int vln_thread_resume(vln_thread_id *id);
/* 1 when the thread's suspend count is above 0, else 0. */
VLD_API int vln_thread_suspended(vln_thread_id *id);

/* The calling thread's id. */
VLD_API vln_thread_id vln_gettid(void);
/* The id of the process's main thread (its kernel id is the process id). */
VLD_API vln_thread_id vln_main_tid(void);
/* 1 on the process's main thread. */
VLD_API int vln_thread_ismain(void);
/* 1 when the kernel ids agree, or when threading hasn't been started. */
VLD_API int vln_thread_equal(vln_thread_id a, vln_thread_id b);
/* Does nothing. */
VLD_API void vln_thread_yield(void);

/* Sleep the whole time, through interruptions. Microseconds are taken in whole
 * milliseconds, so that below 1000 no time passes. */
VLD_API void vln_sleep(int seconds);
VLD_API void vln_usleep(int microseconds);
VLD_API int vln_errno(void);

/* Installs `handler` for `signo` without SA_RESTART, so that the signal
 * interrupts a blocking call; returns the earlier handler, or SIG_ERR. */
typedef void (*vln_signal_handler)(int signo);
VLD_API vln_signal_handler vln_signal(int signo, vln_signal_handler handler);

/* ---------------------------------------------------------------- fork and join, pools */

/* Runs function(arguments[i], i) for every i below n, n - 1 of them on new
 * threads and the last on the calling thread, and returns when all are done. */
VLD_API void vln_thread_mfork(int n, vln_indexed_func function, void **arguments);

/* A pool of parked workers. `state` per worker: 0 idle, 1 running, 2 told to
 * quit. `running` is 1 from the worker's start until it ends. */
typedef struct vln_thread_pool {
    int32_t size;
    uint8_t *running;
    vln_thread_id *ids;
    vln_mutex mutex;
    vln_indexed_func *functions;
    void **arguments;
    uint8_t *state;
} vln_thread_pool;

enum { VLN_POOL_IDLE = 0, VLN_POOL_RUNNING = 1, VLN_POOL_QUIT = 2 };

/* Starts `size` workers and returns once all are parked. When `function` is
 * not null, every worker's job is set to it, with arguments[i] (or null when
 * `arguments` is null). Returns null when size is negative or a worker can't
 * be started; a size of 0 makes a pool without threads. */
VLD_API vln_thread_pool *vln_thread_create_pool(int size, vln_indexed_func function,
                                                void **arguments);
/* Tells every worker to quit, waits for them to end and frees the pool. */
VLD_API void vln_thread_destroy_pool(vln_thread_pool *pool);
/* Stores worker `index`'s job; returns index, or -1 for a bad index. */
VLD_API int vln_thread_set_pool(vln_thread_pool *pool, int index, vln_indexed_func function,
                                void *argument);
/* Sets every worker running on its job. */
VLD_API void vln_thread_run_pool(vln_thread_pool *pool);
/* Returns when every worker is idle again (polls every 10 ms). */
VLD_API void vln_thread_wait_pool(vln_thread_pool *pool);

/* ---------------------------------------------------------------- thread-local data */

/* A new slot, or -1. Every function ignores the key -1. */
VLD_API int vln_tls_create(void);
/* Returns 1 when the value was stored, else 0. */
VLD_API int vln_tls_set_value(int key, void *value);
VLD_API void *vln_tls_get_value(int key);
VLD_API void vln_tls_destroy(int key);

/* ---------------------------------------------------------------- reapers */

/* A background thread calls every reaper's function with its argument every
 * 200 ms, for as long as the list isn't empty. The calls are made under the
 * list's lock, so a reaper never runs after vln_thread_delete_reaper returned. */
typedef void (*vln_reaper_func)(void *argument);
/* Adds a reaper; returns its number (from 1), or -1 for a null function. */
VLD_API int vln_thread_add_reaper(vln_reaper_func function, void *argument);
/* Removes a reaper; returns 1, or 0 when the number isn't in the list. */
VLD_API int vln_thread_delete_reaper(int number);

/* ---------------------------------------------------------------- machine */

/* Processors online, at least 1. */
VLD_API int vln_get_ncpus(void);
/* The process's resident set in bytes, or 1 when it can't be read. */
VLD_API int64_t vln_procmem(void);
/* Memory that can still be committed: available physical memory plus free
 * swap, in bytes; 0 when it can't be read. */
VLD_API int64_t vln_availmem(void);
/* Available physical memory in bytes, rounded up to a multiple of 4 MiB; 0
 * when it can't be read. */
VLD_API int64_t vln_availpmem(void);

VLD_END_DECLS

#endif
