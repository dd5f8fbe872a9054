/*
 * stripes.c: an algorithm's image made on every core.
 *
 * The image is cut into row stripes, one per thread; each stripe has a
 * handle of its own over a copy of the algorithm, started at the stripe's
 * first line, and hands its lines to a sink that puts each where it belongs
 * (at its offset in a file, or in a picture in memory). The library makes a
 * stripe's lines the same bytes as a read from the top, so the output is the
 * same however many threads there are.
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
    void **lines = malloc_or_die(sizeof(void *) * (size_t)job->nr_bands);
    char *cells = malloc_or_die(job->band_bytes * (size_t)job->nr_bands + 16);
    void *scratch = job->scratch_bytes > 0 ? malloc_or_die(job->scratch_bytes) : NULL;
    for (int b = 0; b < job->nr_bands; b++) lines[b] = cells + job->band_bytes * (size_t)b;
    int status = VT_OK;
    for (int y = s->first; y < s->end && status == VT_OK; y++) {
        if (vt_interrupted) {
            status = VT_INTERRUPTED;
        } else if (stop_all) {
            status = VT_FAILED;
        } else if (vds_read(s->vds, lines, NULL, 0) != 0) {
            status = stripe_failed(vt_read_error_text(s->vds));
        } else if (job->put(job->sink, y, lines, scratch) != 0) {
            char text[300];
            snprintf(text, sizeof text, "cannot write %s: %s", job->output_name,
                     strerror(errno != 0 ? errno : EIO));
            status = stripe_failed(text);
        }
    }
    if (status == VT_INTERRUPTED) stop_all = 1;
    safe_free(scratch);
    safe_free(cells);
    safe_free(lines);
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
