/*
 * vln_process.h: child processes, pipes, link programs and the message
 * transport.
 *
 * The package runs helper programs (dynamic link programs that draw vector
 * overlays, PostScript interpreters, filters) with their standard streams on
 * pipes or on descriptors that the caller gives. A failure to start one comes
 * back as a text in the caller's buffer with a nonzero result; VLD_error is not
 * touched. One thread starts a child at a time (under csect).
 *
 * Descriptor arguments (`in_fd`, `out_fd`, `err_fd`: the child's standard
 * input, output and error) follow one rule:
 *   - a null pointer leaves that stream of the child as the parent's;
 *   - a pointer to -1 gets a new pipe, whose parent end is stored back (the
 *     write end for the input, the read end for output and error);
 *   - a pointer to any other descriptor gives that descriptor to the child.
 * Parent ends of new pipes are close-on-exec, so other children don't hold
 * them open.
 */
#ifndef VORLAN_VLN_PROCESS_H
#define VORLAN_VLN_PROCESS_H

#include "vld_core.h"

VLD_BEGIN_DECLS

/* ---------------------------------------------------------------- starting children */

/* Room for the argument vector of vln_forkexec and vln_run_cmd: the program
 * itself and at most 99 arguments. */
#define VLN_MAX_ARGS 100

/* Starts `program` (found on PATH) with the null-terminated list of arguments
 * that follows it; the program's name is also its argument 0. Returns 0 and
 * the child's id in *pid, or -1 with a text in errtext (which may be null). */
VLD_API int vln_forkexec(int *pid, char *errtext, int errsize, int *in_fd, int *out_fd, int *err_fd,
                         const char *program, ...);
/* The same with a null-terminated argument vector, argv[0] included (when argv
 * is null the vector is the program's name alone). */
VLD_API int vln_forkexecvp(int *pid, char *errtext, int errsize, int *in_fd, int *out_fd,
                           int *err_fd, const char *program, char *const argv[]);
/* Kept for callers: there are no windows to hide, so this is vln_forkexecvp. */
VLD_API int vln_forkexecvp_hidden(int *pid, char *errtext, int errsize, int *in_fd, int *out_fd,
                                  int *err_fd, const char *program, char *const argv[]);
/* vln_forkexecvp with the child leading a process group of its own. */
VLD_API int vln_forkexecvp_newgroup(int *pid, char *errtext, int errsize, int *in_fd, int *out_fd,
                                    int *err_fd, const char *program, char *const argv[]);

/* ---------------------------------------------------------------- waiting and reporting */

/* VLN_waitpid's answer for a child that is still running. */
#define VLN_STILL_ACTIVE 259

/* Reaps the child if it has ended, without waiting. Returns 1 with the wait
 * status in *status (which may be null), 0 while it runs, -1 on failure. */
VLD_API int child_done(int pid, int *status);
/* Waits up to `milliseconds` (a negative value waits for good) for the child
 * to end. Returns its exit status, the signal number when a signal ended it,
 * VLN_STILL_ACTIVE when it is still running, or -1 when it isn't our child. */
VLD_API int VLN_waitpid(int pid, int milliseconds);

/* Writes what a wait status says into buffer (of `size` bytes):
 * "NAME exited with status: N\nTEXT", "NAME terminated by signal: N\nTEXT" or
 * "NAME exited with unknown exit code: N\nTEXT". A null name is "Child
 * process", a null text is empty. Returns 0 for an exit with status 0, else 1. */
VLD_API int report_child_error2(char *buffer, int size, const char *name, int status,
                                const char *text);
/* The same message as a new string, which the caller frees with safe_free. */
VLD_API char *PE_report_child_error2(const char *name, int status, const char *text);

/* Runs `program` with the null-terminated arguments that follow, its standard
 * streams the parent's, and waits for it. Returns 0 when it exited with status
 * 0; otherwise -1 with the reason in errtext. */
VLD_API int vln_run_cmd(char *errtext, int errsize, const char *program, ...);

/* Sends `signo` to the process `pid`; ids of 0 and below (groups, everyone)
 * are refused. Returns 0 or -1. */
VLD_API int vln_kill(int pid, int signo);
/* Ends this process at once with SIGKILL: no exit handlers, no flushing. */
VLD_API void vln_kill_current_process(void);
/* Runs `command` through /bin/sh and waits. Returns the wait status, -1 when
 * no shell could be started; a null command asks whether there is a shell (1). */
VLD_API int vln_system(const char *command);

/* ---------------------------------------------------------------- link programs */

/* What a dynamic link program is told about the view it draws for. */
typedef struct vln_linkprog_args {
    const char *mode;     /* what is asked of it, e.g. "mapinfo"; null is "" */
    int32_t coordsystype; /* 2 is "EN", 3 "LL", any other "RAW" */
    double rotation;
    double top_left_x, top_left_y;
    double bottom_right_x, bottom_right_y;
    int32_t int_args[2];   /* two further integers, as the link form needs them */
    double double_args[2]; /* two further doubles */
    const char *file;      /* the last argument; null is "" */
} vln_linkprog_args;

/* Starts a link program as vln_forkexecvp does, with the argument list
 * program, mode, type word, rotation, the corners' x and y (top left, then
 * bottom right), the two integers, the two doubles, file. Doubles are written
 * with "%.17G". */
VLD_API int forkexec_linkprog(int *pid, char *errtext, int errsize, int *in_fd, int *out_fd,
                              int *err_fd, const char *program, const vln_linkprog_args *args);

/* Splits a link parameter text into two new strings. The quoted form
 * `"first" "second"` takes the texts of the first and second pair of double
 * quotes; the plain form takes the first word and the rest of the text. Returns
 * 0, or VLD_ERR_COMMAND_ARGUMENTS (with both results null). */
VLD_API int VLD_dlink_separate_arguments(const char *text, char **first, char **second);

/* ---------------------------------------------------------------- message transport */

/* A message is a 4-byte length in host order and a body of that many bytes;
 * a length of 0 has no body. Longer bodies than this are refused. */
#define VLN_TRANS_MAX_BODY 16372

typedef struct vln_trans {
    int32_t rfd; /* read end, or -1 */
    int32_t wfd; /* write end, or -1 */
    char *rname; /* FIFO names, may be null */
    char *wname;
    int32_t unlink_names; /* unlink the names at close */
} vln_trans;

/* Results of vln_trans_send and vln_trans_recv. */
enum { VLN_TRANS_OK = 0, VLN_TRANS_TIMEOUT = 1, VLN_TRANS_FAILED = 3 };

/* The serving side isn't used: always null. */
VLD_API vln_trans *vln_trans_open(const char *read_name, const char *write_name, int flags);
/* 1 on the main thread, else 0. */
VLD_API int vln_trans_init(void);
/* A new transport over two open descriptors, without names. */
VLD_API vln_trans *vln_trans_fdopen(int rfd, int wfd);
/* Closes both descriptors, unlinks the names when flagged, frees the record.
 * Returns 0 for a null transport, else 1. */
VLD_API int vln_trans_close(vln_trans *transport);

/* Sends one message and waits for one back. When *reply is null the callee
 * allocates it (the caller frees it with safe_free); otherwise *reply_length
 * gives the buffer's size on entry. On return *reply_length is the reply's
 * length. The wait polls once a second for up to `timeout` seconds (0 is one
 * attempt). Returns VLN_TRANS_OK, VLN_TRANS_TIMEOUT or VLN_TRANS_FAILED. */
VLD_API int vln_trans_send(vln_trans *transport, const void *body, int length, void **reply,
                           int *reply_length, int timeout);
/* Waits for a message with a nonzero length (empty ones are skipped) into
 * *request (allocated or sized as for a reply above), then answers with
 * `reply`, or with a body of 4 bytes of -1 when reply is null. Same results. */
VLD_API int vln_trans_recv(vln_trans *transport, void **request, int *length, const void *reply,
                           int reply_length, int timeout);

VLD_END_DECLS

#endif
