/*
 * output.c: outputs that appear whole or not at all. A file is written under
 * a temporary name in its final folder (so that the last rename stays on one
 * file system) and renamed into place at the end; a failure, SIGINT or
 * SIGTERM removes what was written. Also the one writer of a new dataset from
 * an algorithm, shared by `process` and `calc`, which makes the cells on every
 * core and writes each line at its place in the data file.
 */
#define _DEFAULT_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vld_dshdr.h"
#include "vld_raster.h"
#include "vln_path.h"
#include "vln_vds.h"
#include "vorlan_tool.h"

volatile sig_atomic_t vt_interrupted = 0;

static void on_signal(int signo)
{
    (void)signo;
    vt_interrupted = 1;
}

void vt_catch_signals(void)
{
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = on_signal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);
    /* A write past the file size limit fails with EFBIG, like a full disk,
     * instead of ending the program with its temporary files left behind. */
    signal(SIGXFSZ, SIG_IGN);
}

static char *concat3(const char *a, const char *b, const char *c)
{
    size_t n = strlen(a) + strlen(b) + strlen(c) + 1;
    char *s = malloc_or_die(n);
    snprintf(s, n, "%s%s%s", a, b, c);
    return s;
}

int vt_tempfile_init(vt_tempfile *t, const char *sub, const char *final_path, const char *suffix)
{
    t->final_path = NULL;
    t->temp_path = NULL;
    /* ".NAME.XXXXXX" in the final file's folder: hidden, and unique because
     * mkstemps creates it. */
    const char *slash = strrchr(final_path, '/');
    const size_t dir_len = slash != NULL ? (size_t)(slash - final_path) + 1 : 0;
    const char *base = final_path + dir_len;
    if (*base == '\0') {
        vt_fail(sub, "%s: not a file name", final_path);
        return -1;
    }
    size_t n = dir_len + strlen(base) + strlen(suffix) + 10;
    char *temp = malloc_or_die(n);
    snprintf(temp, n, "%.*s.%s.XXXXXX%s", (int)dir_len, final_path, base, suffix);
    int fd = mkstemps(temp, (int)strlen(suffix));
    if (fd < 0) {
        int saved = errno;
        char *dir = dir_len > 0 ? VLN_get_dirname(final_path) : NULL;
        vt_fail(sub, "cannot create a file in %s: %s", dir != NULL ? dir : ".", strerror(saved));
        safe_free(dir);
        safe_free(temp);
        return -1;
    }
    /* mkstemps makes the file private; the output gets the usual mode. */
    mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    close(fd);
    t->final_path = strsave(final_path);
    t->temp_path = temp;
    return 0;
}

int vt_tempfile_commit(vt_tempfile *t, const char *sub)
{
    if (rename(t->temp_path, t->final_path) != 0) {
        vt_fail(sub, "cannot rename %s to %s: %s", t->temp_path, t->final_path, strerror(errno));
        return -1;
    }
    safe_free(t->temp_path); /* gone: nothing for a discard to remove */
    t->temp_path = NULL;
    return 0;
}

void vt_tempfile_discard(vt_tempfile *t)
{
    if (t->temp_path != NULL) unlink(t->temp_path);
    safe_free(t->temp_path);
    safe_free(t->final_path);
    t->temp_path = t->final_path = NULL;
}

int vt_default_window(const char *sub, algorithm *alg)
{
    /* A document written for a dataset may not say how dense a screen is. */
    if (alg->dots_per_inch_across <= 0) alg->dots_per_inch_across = 96;
    if (alg->dots_per_inch_down <= 0) alg->dots_per_inch_down = 96;
    if (alg->output_width > 0 && alg->output_height > 0) return 0;
    int lines = 0, cells = 0;
    double x = 0, y = 0;
    if (VLN_get_algorithm_default_image_and_cell_dimensions(alg, &lines, &cells, &x, &y) != 0)
        return vt_fail_library(sub);
    if (lines < 1 || cells < 1) return vt_fail(sub, "the algorithm covers no cells");
    alg->output_width = alg->canvas_width = cells;
    alg->output_height = alg->canvas_height = lines;
    return 0;
}

/* The library names the region of the whole output after the output's
 * file; it was given the temporary name, so the region takes the final one. */
static void rename_regions(dshdr *dsh, const char *temp_data, const char *final_data)
{
    char *from = VLN_get_filename(temp_data), *to = VLN_get_filename(final_data);
    for (regioninfo *g = dsh->info.r.regions; from != NULL && to != NULL && g != NULL; g = g->next)
        if (g->name != NULL && strcmp(g->name, from) == 0) {
            safe_free(g->name);
            g->name = strsave(to);
        }
    safe_free(from);
    safe_free(to);
}

static int has_vld_suffix(const char *path)
{
    size_t n = strlen(path);
    return n > 4 && strcmp(path + n - 4, ".vld") == 0;
}

static Vds *open_tods(algorithm *alg, char **errmsg)
{
    return vds_open_alg_tods(alg, errmsg, NULL, NULL);
}

/* Writes every line of the image into the data file, on every core; an exit
 * status after saying what failed. */
static int write_cells(const char *sub, const algorithm *pristine, Vds *vds, const dshdr *dsh,
                       const char *shown, const char *path)
{
    const rasterinfo *r = &dsh->info.r;
    const int fd = open(path, O_WRONLY | O_TRUNC | O_CLOEXEC);
    if (fd < 0) return vt_fail(sub, "cannot write %s: %s", shown, strerror(errno));
    /* A line of the data file is the bands' lines one after the other. */
    const size_t band_bytes = (size_t)r->nr_cells * (size_t)celltypesize(r->cell_type);
    vt_stripe_job job = {sub,         shown,       pristine,   open_tods,
                         r->nr_lines, r->nr_bands, band_bytes, band_bytes * (size_t)r->nr_bands,
                         NULL,        0,           fd,         0,
                         NULL};
    int status = vt_run_stripes(&job, vds);
    if (close(fd) != 0 && status == VT_OK)
        status = vt_fail(sub, "cannot write %s: %s", shown, strerror(errno));
    return status;
}

int vt_write_dataset(const char *sub, algorithm *alg, const char *out_header, int cell_type)
{
    char *header_final =
        has_vld_suffix(out_header) ? strsave(out_header) : concat3(out_header, ".vld", "");
    char *data_final = VLN_strip_ext(header_final);
    vt_tempfile data, header = {NULL, NULL};
    vt_catch_signals();
    if (vt_tempfile_init(&data, sub, data_final, "") != 0) {
        safe_free(header_final);
        safe_free(data_final);
        return VT_FAILED;
    }
    header.final_path = header_final;
    header.temp_path = concat3(data.temp_path, ".vld", "");

    safe_free(alg->output_file);
    alg->output_file = strsave(header.temp_path);
    if (cell_type != CT_None) alg->output_type = cell_type;
    if (alg->output_type <= CT_Unknown) alg->output_type = IEEE4ByteReal;

    int status = vt_default_window(sub, alg);
    char *errmsg = NULL;
    dshdr *dsh = NULL;
    algorithm *pristine = NULL;
    if (status == VT_OK && cp_algorithm_all(&pristine, alg) != 0) status = vt_fail_library(sub);
    Vds *vds = status == VT_OK ? vds_open_alg_tods(alg, &errmsg, NULL, NULL) : NULL;
    if (status == VT_OK && (vds == NULL || PE_setup_output_dsh(vds, &dsh, &errmsg) == 0)) {
        status = vt_fail_text(sub, errmsg);
    }
    safe_free(errmsg);
    if (status == VT_OK) {
        /* The cells go to the temporary data file; the header, written last,
         * names the final one (beside it, so it is left out of the text). */
        status = write_cells(sub, pristine, vds, dsh, data_final, data.temp_path);
    }
    vds_close(&vds);
    ef_algorithm(pristine);
    if (status == VT_OK) {
        safe_free(dsh->data_file);
        dsh->data_file = strsave(data_final);
        safe_free(dsh->name);
        dsh->name = strsave(header_final);
        rename_regions(dsh, data.temp_path, data_final);
        if (ep_dshdr(dsh, header.temp_path) != 0) status = vt_fail_library(sub);
    }
    if (status == VT_OK && vt_interrupted) status = VT_INTERRUPTED;
    if (status == VT_OK && vt_tempfile_commit(&data, sub) != 0) status = VT_FAILED;
    if (status == VT_OK && vt_tempfile_commit(&header, sub) != 0) {
        unlink(data_final);
        status = VT_FAILED;
    }
    if (status == VT_INTERRUPTED) fprintf(stderr, "vorlan %s: interrupted\n", sub);
    ef_dshdr(dsh);
    vt_tempfile_discard(&data);
    vt_tempfile_discard(&header);
    safe_free(data_final);
    return status;
}
