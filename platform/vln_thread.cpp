/*
 * vln_thread.cpp: threads and their ids, cooperative suspension, thread-local
 * slots, sleeps and the signal helper.
 *
 * Every thread that this layer starts, and every thread that asks for it,
 * gets a record in a registry: its handle (our own running number), its kernel
 * thread id, its pthread and its suspend count. A pthread key holds the
 * calling thread's record, and the key's destructor takes the record out of
 * the registry when the thread ends, however it ends. A record that is in the
 * registry belongs to a thread that hasn't finished, which is what makes
 * pthread_cancel on it safe.
 *
 * POSIX has no way to stop another thread from outside, so suspension is
 * cooperative: a thread can only park itself, on a condition variable of its
 * record, until some other thread resumes it. That is all the pools need.
 */
#include "vln_thread.h"
#include "vln_mutex_internal.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>
#include <unordered_map>

const vln_thread_id _null_thread_id = {0, 0};

namespace {

struct ThreadRec {
    uint32_t handle = 0;
    uint32_t tid = 0;
    pthread_t thread{};
    int suspend_count = 0;
    pthread_cond_t resumed = PTHREAD_COND_INITIALIZER;
};

// The registry outlives static destruction on purpose: detached threads may
// still be ending while the process exits.
struct Registry {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t started = PTHREAD_COND_INITIALIZER;  // a new thread took its start record
    std::unordered_map<uint32_t, ThreadRec *> threads;
    uint32_t next_handle = 1;
    uint32_t main_handle = 0;
};

Registry &registry()
{
    static Registry *r = new Registry;
    return *r;
}

// Holds the registry lock for a scope. It is released on every way out,
// including the unwinding of a thread cancelled while parked.
class RegistryLock {
   public:
    RegistryLock() { pthread_mutex_lock(&registry().lock); }
    ~RegistryLock() { pthread_mutex_unlock(&registry().lock); }
    RegistryLock(const RegistryLock &) = delete;
    RegistryLock &operator=(const RegistryLock &) = delete;
};

pthread_once_t key_once = PTHREAD_ONCE_INIT;
pthread_key_t record_key;
std::atomic<bool> key_ready{false};
std::atomic<bool> threading_started{false};
pthread_mutex_t init_lock = PTHREAD_MUTEX_INITIALIZER;

uint32_t kernel_tid()
{
    return static_cast<uint32_t>(gettid());
}

// Takes a thread's record out of the registry and frees it.
void forget_thread(void *p)
{
    auto *rec = static_cast<ThreadRec *>(p);
    if (rec == nullptr) return;
    {
        RegistryLock guard;
        Registry &r = registry();
        r.threads.erase(rec->handle);
        if (r.main_handle == rec->handle) r.main_handle = 0;
    }
    pthread_cond_destroy(&rec->resumed);
    delete rec;
}

void make_key()
{
    if (pthread_key_create(&record_key, forget_thread) == 0) key_ready.store(true);
}

ThreadRec *current_record()
{
    pthread_once(&key_once, make_key);
    if (!key_ready.load()) return nullptr;
    return static_cast<ThreadRec *>(pthread_getspecific(record_key));
}

// The calling thread's record, made on first use.
ThreadRec *register_self()
{
    ThreadRec *rec = current_record();
    if (rec != nullptr || !key_ready.load()) return rec;
    rec = new ThreadRec;
    rec->tid = kernel_tid();
    rec->thread = pthread_self();
    {
        RegistryLock guard;
        Registry &r = registry();
        do {
            rec->handle = r.next_handle++;
        } while (rec->handle == 0 || r.threads.count(rec->handle) != 0);
        r.threads[rec->handle] = rec;
    }
    pthread_setspecific(record_key, rec);
    return rec;
}

// The record that an id names, by handle where it has one, else by kernel id.
// The caller holds the registry lock.
ThreadRec *find_locked(const vln_thread_id &id)
{
    Registry &r = registry();
    if (id.handle != 0) {
        auto it = r.threads.find(id.handle);
        if (it == r.threads.end()) return nullptr;
        if (id.tid != 0 && it->second->tid != id.tid) return nullptr;
        return it->second;
    }
    if (id.tid == 0) return nullptr;
    for (auto &entry : r.threads)
        if (entry.second->tid == id.tid) return entry.second;
    return nullptr;
}

bool is_self(const vln_thread_id &id)
{
    return id.tid != 0 && id.tid == kernel_tid();
}

bool is_null(const vln_thread_id &id)
{
    return id.handle == 0 && id.tid == 0;
}

// What a new thread needs from its spawner. It lives on the spawner's stack,
// which waits until the thread has taken it (`taken`).
struct StartRec {
    vln_thread_func function;
    void *argument;
    vln_thread_id *id;
    vln_thread_id filled;
    bool taken;
};

void alarm_noop(int) {}

// A new thread makes sure that signal 14 (SIGALRM) can't end the process: with
// no handler of the application's in place it gets one that does nothing, so
// that an alarm merely interrupts a blocking call.
void setup_alarm()
{
    struct sigaction current;
    if (sigaction(SIGALRM, nullptr, &current) != 0) return;
    if ((current.sa_flags & SA_SIGINFO) == 0 && current.sa_handler == SIG_DFL)
        vln_signal(SIGALRM, alarm_noop);
}

void *thread_start(void *p)
{
    auto *start = static_cast<StartRec *>(p);
    ThreadRec *self = register_self();
    vln_thread_id me = {self != nullptr ? self->handle : 0, kernel_tid()};
    vln_thread_func function = start->function;
    void *argument = start->argument;
    {
        // The id is filled under the registry's lock rather than csect: the
        // spawner waits for us, and may itself be holding csect.
        RegistryLock guard;
        if (start->id != nullptr && is_null(*start->id)) *start->id = me;
        start->filled = me;
        start->taken = true;
        pthread_cond_broadcast(&registry().started);
    }
    // The start record is gone from here on.
    setup_alarm();
    function(argument);
    return nullptr;
}

void sleep_ms(int64_t ms)
{
    timespec ts = {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) == -1 && errno == EINTR) {
    }
}

}  // namespace

/* ---------------------------------------------------------------- start and stop */

int vln_thread_init(void)
{
    pthread_mutex_lock(&init_lock);
    if (!threading_started.load()) {
        vln_mutex_create(&csect);
        ThreadRec *rec = register_self();
        if (rec != nullptr && vln_thread_ismain()) {
            RegistryLock guard;
            registry().main_handle = rec->handle;
        }
        vln_set_locking(1);
        threading_started.store(true);
    }
    pthread_mutex_unlock(&init_lock);
    return 1;
}

int vln_thread_fini(void)
{
    pthread_mutex_lock(&init_lock);
    if (threading_started.load()) {
        ThreadRec *rec = current_record();
        if (rec != nullptr) {
            pthread_setspecific(record_key, nullptr);
            forget_thread(rec);
        }
        vln_set_locking(0);
        threading_started.store(false);
    }
    pthread_mutex_unlock(&init_lock);
    return 1;
}

int vln_thread_spawn(vln_thread_id *id, int flags, vln_thread_func function, void *argument)
{
    (void)flags;
    vln_thread_init();
    if (id != nullptr) {
        vln_mutex_begin(&csect);
        *id = _null_thread_id;
        vln_mutex_end(&csect);
    }
    if (function == nullptr) {
        errno = EINVAL;
        win32_error(1, "Create Thread failed");
        return 0;
    }
    StartRec start = {function, argument, id, _null_thread_id, false};
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    int rc = pthread_create(&thread, &attr, thread_start, &start);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        errno = rc;
        win32_error(1, "Create Thread failed");
        return 0;
    }
    // The start record is on this stack: don't leave before the thread took it.
    int cancel_state;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state);
    {
        RegistryLock guard;
        while (!start.taken) pthread_cond_wait(&registry().started, &registry().lock);
    }
    pthread_setcancelstate(cancel_state, nullptr);
    if (id != nullptr) {
        vln_mutex_begin(&csect);
        if (is_null(*id)) *id = start.filled;
        vln_mutex_end(&csect);
    }
    return 2;
}

void vln_thread_exit(int status)
{
    if (vln_thread_ismain()) exit(status);
    ThreadRec *rec = current_record();
    if (rec != nullptr) {
        pthread_setspecific(record_key, nullptr);
        forget_thread(rec);
    }
    pthread_exit(reinterpret_cast<void *>(static_cast<intptr_t>(status)));
}

int vln_thread_collect(vln_thread_id *id)
{
    if (id != nullptr) *id = _null_thread_id;
    return 0;
}

int vln_thread_status(void)
{
    return 6;
}

int vln_thread_kill(vln_thread_id *id)
{
    if (id == nullptr) return -1;
    if (is_self(*id)) vln_thread_exit(1);
    RegistryLock guard;
    ThreadRec *rec = find_locked(*id);
    if (rec == nullptr) return -1;
    // Safe while we hold the lock: the thread can't leave the registry, so it
    // hasn't ended.
    return pthread_cancel(rec->thread) == 0 ? 0 : -1;
}

/* ---------------------------------------------------------------- suspension */

int vln_thread_suspend(vln_thread_id *id)
{
    if (id != nullptr && is_self(*id)) {
        ThreadRec *rec = register_self();
        if (rec == nullptr) {
            win32_error(1, "Suspend Thread failed");
            return -1;
        }
        RegistryLock guard;
        rec->suspend_count++;
        while (rec->suspend_count > 0) pthread_cond_wait(&rec->resumed, &registry().lock);
        return 0;
    }
    {
        RegistryLock guard;
        ThreadRec *rec = id != nullptr ? find_locked(*id) : nullptr;
        if (rec != nullptr) {
            rec->suspend_count++;
            return 0;
        }
    }
    errno = ESRCH;
    win32_error(1, "Suspend Thread failed");
    return -1;
}

int vln_thread_resume(vln_thread_id *id)
{
    for (;;) {
        bool self = false;
        {
            RegistryLock guard;
            ThreadRec *rec = id != nullptr ? find_locked(*id) : nullptr;
            if (rec == nullptr) break;
            if (rec->suspend_count > 0) {
                if (--rec->suspend_count == 0) pthread_cond_broadcast(&rec->resumed);
                return 0;
            }
            self = rec->tid == kernel_tid();
        }
        if (self) break;  // a running thread can't wait for itself to park
        vln_usleep(10000);
    }
    errno = ESRCH;
    win32_error(1, "Resume Thread failed");
    return -1;
}

int vln_thread_suspended(vln_thread_id *id)
{
    if (id == nullptr) return 0;
    RegistryLock guard;
    ThreadRec *rec = find_locked(*id);
    return rec != nullptr && rec->suspend_count > 0 ? 1 : 0;
}

/* ---------------------------------------------------------------- ids */

vln_thread_id vln_gettid(void)
{
    ThreadRec *rec = current_record();
    return {rec != nullptr ? rec->handle : 0, kernel_tid()};
}

vln_thread_id vln_main_tid(void)
{
    RegistryLock guard;
    return {registry().main_handle, static_cast<uint32_t>(getpid())};
}

int vln_thread_ismain(void)
{
    return gettid() == getpid() ? 1 : 0;
}

int vln_thread_equal(vln_thread_id a, vln_thread_id b)
{
    if (!threading_started.load()) return 1;
    return a.tid == b.tid ? 1 : 0;
}

void vln_thread_yield(void) {}

/* ---------------------------------------------------------------- sleeping, errno, signals */

void vln_sleep(int seconds)
{
    if (seconds > 0) sleep_ms(static_cast<int64_t>(seconds) * 1000);
}

void vln_usleep(int microseconds)
{
    int ms = microseconds / 1000;
    if (ms > 0) sleep_ms(ms);
}

int vln_errno(void)
{
    return errno;
}

vln_signal_handler vln_signal(int signo, vln_signal_handler handler)
{
    struct sigaction action = {};
    struct sigaction old = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    if (sigaction(signo, &action, &old) != 0) return SIG_ERR;
    return old.sa_handler;
}

/* ---------------------------------------------------------------- thread-local data */

int vln_tls_create(void)
{
    pthread_key_t key;
    if (pthread_key_create(&key, nullptr) != 0) return -1;
    return static_cast<int>(key);
}

int vln_tls_set_value(int key, void *value)
{
    if (key < 0) return 0;
    return pthread_setspecific(static_cast<pthread_key_t>(key), value) == 0 ? 1 : 0;
}

void *vln_tls_get_value(int key)
{
    if (key < 0) return nullptr;
    return pthread_getspecific(static_cast<pthread_key_t>(key));
}

void vln_tls_destroy(int key)
{
    if (key >= 0) pthread_key_delete(static_cast<pthread_key_t>(key));
}
