/*
 * capi_test.c: a C program (not C++) built against the installed library with
 * nothing but pkg-config. It calls a few functions of each area of the frame
 * and exits nonzero at the first surprise.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vld_alg.h"
#include "vld_core.h"
#include "vln_path.h"
#include "vln_process.h"
#include "vln_formula.h"
#include "vln_thread.h"

static int failures = 0;

#define CHECK(cond)                                                                  \
    do {                                                                             \
        if (!(cond)) {                                                               \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            failures++;                                                              \
        }                                                                            \
    } while (0)

static void square(void *argument, int index)
{
    int *cell = (int *)argument;
    *cell = index * index;
}

static void frame(void)
{
    /* The row names are plain C constants with the documented numbers. */
    CHECK(VLD_ERR_CANNOT_OPEN_FILE == 1 && VLD_ERR_OTHER == 196);
    CHECK(VLD_setup_error(VLD_ERR_CANNOT_OPEN_FILE, "x.vld") == 1);
    CHECK(strcmp(VLD_error_text(), "Cannot open file \"x.vld\"") == 0);
    CHECK(VLD_error.code == VLD_ERR_CANNOT_OPEN_FILE);

    char *s = strsave(NULL);
    CHECK(s != NULL && *s == '\0');
    strsave_concat(&s, "abc");
    CHECK(strcmp(s, "abc") == 0);
    VLDfree(&s);
    CHECK(s == NULL);

    char buf[32];
    CHECK(strcmp(format_float2(buf, 1.5, 3), "1.5") == 0);
    CHECK(celltypesize(IEEE8ByteReal) == 8);
    CHECK(strcmp(ev_CellType[Signed16BitInteger].name, "Signed16BitInteger") == 0);
    unsigned char w[2] = {1, 2};
    swap_bytes(w, 1, 2);
    CHECK(w[0] == 2 && w[1] == 1);
    CHECK(VLD_float_isvalue(vln_nanval()) == 1);
}

static void paths(void)
{
    char *dir = VLN_get_dirname("/a/b/c.vld");
    CHECK(dir != NULL && strcmp(dir, "/a/b") == 0);
    safe_free(dir);
    CHECK(VLN_get_dirname("bare") == NULL);
    CHECK(VLD_filetype_from_ext(".ALG") == 0);
    CHECK(VLD_filetype_from_ext("") == 16);

    char *joined = NULL;
    CHECK(VLN_concat_filepath(&joined, "/x/", "/y") == 0);
    CHECK(joined != NULL && strcmp(joined, "/x/y") == 0);
    safe_free(joined);

    char *tree = VLN_get_vorlan_dir();
    CHECK(tree != NULL && isdirectory(tree));
    safe_free(tree);
    char *config = VLN_get_config_file_name();
    CHECK(config != NULL && strstr(config, "/config/config.vln") != NULL);
    safe_free(config);
}

static void threads(void)
{
    CHECK(vln_thread_init() == 1);
    int cells[4] = {-1, -1, -1, -1};
    void *arguments[4] = {&cells[0], &cells[1], &cells[2], &cells[3]};
    vln_thread_mfork(4, square, arguments);
    CHECK(cells[0] == 0 && cells[1] == 1 && cells[2] == 4 && cells[3] == 9);
    CHECK(vln_get_ncpus() >= 1);
    CHECK(vln_thread_ismain());
    vln_thread_fini();
}

static void processes(void)
{
    char text[256] = "";
    CHECK(vln_run_cmd(text, sizeof text, "true", (char *)NULL) == 0);
    CHECK(vln_run_cmd(text, sizeof text, "false", (char *)NULL) != 0);
    CHECK(strstr(text, "exited with status 1") != NULL);

    char report[256];
    report_child_error2(report, sizeof report, NULL, 3 << 8, "");
    CHECK(strncmp(report, "Child process exited with status: 3", 35) == 0);
}

static void algorithms(void)
{
    algorithm *alg = NULL;
    CHECK(df_algorithm(&alg) == 0);
    CHECK(nr_surfaces_in_alg(alg) == 1 && nr_streams_in_alg(alg) == 1);
    CHECK(first_stream_in_alg(alg)->type == ST_Pseudo);
    CHECK(nr_streams_in_alg(NULL) == 0 && surface_index_in_alg(NULL, NULL) == -1);
    ef_algorithm(alg);

    ExprNode *tree = NULL;
    char *message = string_to_expr(&tree, "i1 + input2 * 2");
    CHECK(message == NULL && tree != NULL);
    char text[128];
    expr_to_string(text, tree, "INPUT", NULL, "REGION", NULL, "DATASET", NULL, 0, NULL);
    CHECK(strcmp(text, "INPUT1 + INPUT2 * 2") == 0);
    CHECK(count_formula_inputs(tree) == 2);
    free_ExprNode(tree);
    message = string_to_expr(&tree, "I2");
    CHECK(message != NULL && tree == NULL);
    safe_free(message);
}

int main(void)
{
    frame();
    paths();
    threads();
    processes();
    algorithms();
    if (failures != 0) {
        fprintf(stderr, "%d checks failed\n", failures);
        return 1;
    }
    printf("C interface: all checks passed\n");
    return 0;
}
