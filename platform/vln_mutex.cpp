/*
 * vln_mutex.cpp: the library's recursive locks over pthreads.
 *
 * A vln_mutex is zeroed storage that comes alive at first use. Until
 * vln_thread_init turns locking on, taking and releasing a lock does nothing, so
 * that a single-threaded program pays nothing for the locks it passes through.
 */
#include "vld_core.h"
#include "vln_mutex_internal.h"

#include <atomic>
#include <cstdio>

vln_mutex csect;
vln_mutex pe_mutex;
vln_mutex VLN_GLOBAL_GDT_MUTEX;

namespace {

std::atomic<bool> locking_on{false};

/* Whether the lock lives. A lock is created once, under create_guard, and
 * then read without it: the flag is published with release and read with
 * acquire, so that a thread that sees it set sees the lock's state too. */
int is_created(const vln_mutex *mutex)
{
    return __atomic_load_n(&mutex->created, __ATOMIC_ACQUIRE);
}
// Guards the creation of locks, so that two threads meeting a fresh lock at
// once create it only once.
pthread_mutex_t create_guard = PTHREAD_MUTEX_INITIALIZER;

}  // namespace

void vln_set_locking(int on)
{
    locking_on.store(on != 0);
}

int vln_locking_enabled(void)
{
    return locking_on.load() ? 1 : 0;
}

/* Creates the lock unless it lives already; returns 1 when it is usable. */
int vln_mutex_create(vln_mutex *mutex)
{
    if (mutex == nullptr) return 0;
    pthread_mutex_lock(&create_guard);
    if (!mutex->created) {
        pthread_mutexattr_t attr;
        pthread_mutexattr_init(&attr);
        pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
        if (pthread_mutex_init(&mutex->cs, &attr) == 0) {
            mutex->count = 0;
            __atomic_store_n(&mutex->created, 1, __ATOMIC_RELEASE);
        }
        pthread_mutexattr_destroy(&attr);
    }
    int ok = mutex->created;
    pthread_mutex_unlock(&create_guard);
    return ok;
}

void vln_mutex_destroy(vln_mutex *mutex)
{
    if (mutex == nullptr) return;
    pthread_mutex_lock(&create_guard);
    if (mutex->created) {
        __atomic_store_n(&mutex->created, 0, __ATOMIC_RELEASE);
        pthread_mutex_destroy(&mutex->cs);
        mutex->count = 0;
    }
    pthread_mutex_unlock(&create_guard);
}

void vln_mutex_clean(void)
{
    vln_mutex_destroy(&csect);
}

void vln_mutex_begin(vln_mutex *mutex)
{
    if (!locking_on.load() || mutex == nullptr) return;
    if (!is_created(mutex) && !vln_mutex_create(mutex)) {
        perror("vln_mutex_create() failed");
        return;
    }
    pthread_mutex_lock(&mutex->cs);
    mutex->count++;
}

void vln_mutex_end(vln_mutex *mutex)
{
    if (!locking_on.load() || mutex == nullptr || !is_created(mutex)) return;
    // A lock taken before locking was turned on was never entered.
    if (mutex->count <= 0) return;
    mutex->count--;
    pthread_mutex_unlock(&mutex->cs);
}
