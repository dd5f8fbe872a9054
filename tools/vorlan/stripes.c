/*
 * stripes.c: an algorithm's image made on every core.
 *
 * The image is cut into row stripes, one per thread; each stripe has a
 * handle of its own over a copy of the algorithm, started at the stripe's
 * first line, and puts each row where it belongs: in the output file, by
 * writes of a few megabytes at the rows' offsets, or in a picture in memory.
 * (Writes, not a mapping: a mapped new file has every page zeroed before it
 * is written, which costs more than the copy and shares out worse.) The
 * library makes a stripe's lines the same bytes as a read from the top, so
 * the output is the same however many threads there are.
 */
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "vln_thread.h"
#include "vorlan_tool.h"

int vt_threads = 0;

int vt_parse_threads(const char *sub, const char *text)
{
    char *end = NULL;
    long n = strtol(text, &end, 10);
    if (end == text || *end != '\0' || n < 1 || n > VT_MAX_THREADS)
        return vt_usage_error(sub, "bad thread count '%s' (1 to %d)", text, VT_MAX_THREADS);
    vt_threads = (int)n;
    return VT_OK;
}

int vt_thread_count(int lines)
{
    int n = vt_threads;
    if (n <= 0) {
        long cores = sysconf(_SC_NPROCESSORS_ONLN);
        n = cores > 0 ? (int)(cores < VT_MAX_THREADS ? cores : VT_MAX_THREADS) : 1;
    }
    return n < lines ? n : (lines > 0 ? lines : 1);
}

typedef struct stripe {
    const vt_stripe_job *job;
    int first, end;
    algorithm *alg; /* the stripe's copy; null for a handle opened by the caller */
    Vds *vds;
    pthread_t thread;
    int started;
    int status;
} stripe;

/* What the stripes share: the first failure's text, and whether to stop. */
static pthread_mutex_t failure_lock = PTHREAD_MUTEX_INITIALIZER;
static atomic_int stop_all = 0;
static char *failure_text = NULL;

static int stripe_failed(const char *text)
{
    pthread_mutex_lock(&failure_lock);
    if (failure_text == NULL) failure_text = strsave(text != NULL && *text ? text : "failed");
    stop_all = 1;
    pthread_mutex_unlock(&failure_lock);
    return VT_FAILED;
}

/* Writes `count` rows from `rows` at row `first` of the output file. */
static int write_rows(const vt_stripe_job *job, const unsigned char *rows, int first, int count)
{
    off_t at = job->base + (off_t)first * (off_t)job->row_bytes;
    for (size_t left = job->row_bytes * (size_t)count; left > 0;) {
        ssize_t n = pwrite(job->fd, rows, left, at);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = ENOSPC;
            return -1;
        }
        rows += n;
        at += n;
        left -= (size_t)n;
    }
    return 0;
}

/* Rows gathered before one write: few writes, each of a few megabytes, keep
 * the threads from queueing for the file. */
enum { BATCH_BYTES = 4 << 20 };

static int run_stripe(stripe *s)
{
    const vt_stripe_job *job = s->job;
    if (s->vds == NULL) {
        char *errmsg = NULL;
        s->vds = job->open(s->alg, &errmsg);
        if (s->vds == NULL) {
            int status = stripe_failed(errmsg);
            safe_free(errmsg);
            return status;
        }
        safe_free(errmsg);
    }
    if (vds_set_line_range(s->vds, s->first, s->end - s->first) != 0)
        return stripe_failed(VLD_error_text());
    int batch = job->memory != NULL ? 1 : (int)(BATCH_BYTES / (job->row_bytes + 1));
    if (batch < 1) batch = 1;
    unsigned char *rows =
        job->memory != NULL ? NULL : malloc_or_die(job->row_bytes * (size_t)batch + 16);
    /* Without a conversion the bands are read straight into the row. */
    unsigned char *cells =
        job->convert != NULL ? malloc_or_die(job->band_bytes * (size_t)job->nr_bands + 16) : NULL;
    void **lines = malloc_or_die(sizeof(void *) * (size_t)job->nr_bands);
    int status = VT_OK, held = 0;
    for (int y = s->first; y < s->end && status == VT_OK; y++) {
        unsigned char *row = job->memory != NULL ? job->memory + job->row_bytes * (size_t)y
                                                 : rows + job->row_bytes * (size_t)held;
        unsigned char *into = cells != NULL ? cells : row;
        for (int b = 0; b < job->nr_bands; b++) lines[b] = into + job->band_bytes * (size_t)b;
        if (vt_interrupted) {
            status = VT_INTERRUPTED;
        } else if (stop_all) {
            status = VT_FAILED;
        } else if (vds_read(s->vds, lines, NULL, 0) != 0) {
            status = stripe_failed(vt_read_error_text(s->vds));
        } else {
            if (job->convert != NULL) job->convert(lines, row, job->width);
            held += job->memory != NULL ? 0 : 1;
            if ((held == batch || y + 1 == s->end) && held > 0) {
                if (write_rows(job, rows, y + 1 - held, held) != 0) {
                    char text[300];
                    snprintf(text, sizeof text, "cannot write %s: %s", job->output_name,
                             strerror(errno != 0 ? errno : EIO));
                    status = stripe_failed(text);
                }
                held = 0;
            }
        }
    }
    if (status == VT_INTERRUPTED) stop_all = 1;
    safe_free(lines);
    safe_free(cells);
    safe_free(rows);
    return status;
}

static void *stripe_thread(void *arg)
{
    stripe *s = arg;
    s->status = run_stripe(s);
    return NULL;
}

int vt_run_stripes(const vt_stripe_job *job, Vds *first_handle)
{
    const int count = vt_thread_count(job->height);
    stripe *stripes = calloc((size_t)count, sizeof *stripes);
    if (stripes == NULL) return vt_fail(job->sub, "out of memory");
    stop_all = 0;
    safe_free(failure_text);
    failure_text = NULL;
    if (count > 1) vln_thread_init();
    for (int i = 0; i < count; i++) {
        stripe *s = &stripes[i];
        s->job = job;
        s->first = (int)((int64_t)job->height * i / count);
        s->end = (int)((int64_t)job->height * (i + 1) / count);
        if (i == 0 && first_handle != NULL) {
            s->vds = first_handle;
        } else if (cp_algorithm_all(&s->alg, job->alg) != 0) {
            stripes[i].status = stripe_failed(VLD_error_text());
        }
    }
    /* Stripe 0 runs on this thread, the others each on their own. */
    for (int i = 1; i < count; i++) {
        if (stripes[i].status != VT_OK) continue;
        if (pthread_create(&stripes[i].thread, NULL, stripe_thread, &stripes[i]) == 0)
            stripes[i].started = 1;
        else
            stripes[i].status = stripe_failed("cannot start a thread");
    }
    if (stripes[0].status == VT_OK) stripes[0].status = run_stripe(&stripes[0]);
    int status = VT_OK;
    for (int i = 0; i < count; i++) {
        stripe *s = &stripes[i];
        if (s->started) pthread_join(s->thread, NULL);
        if (s->vds != first_handle) vds_close(&s->vds);
        ef_algorithm(s->alg);
        if (s->status == VT_INTERRUPTED || (status == VT_OK && s->status != VT_OK))
            status = s->status;
    }
    free(stripes);
    if (vt_interrupted) status = VT_INTERRUPTED;
    if (status == VT_FAILED && failure_text != NULL) vt_fail_text(job->sub, failure_text);
    safe_free(failure_text);
    failure_text = NULL;
    return status;
}
