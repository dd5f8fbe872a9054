/*
 * vld_core.h: the library frame that every module stands on.
 *
 * One process-wide error record and its message table, an allocator that never
 * returns a null pointer, string helpers with fixed rules for null pointers and
 * whitespace, cell types with their sizes and ranges, byte order and foreign
 * number formats, floating-point classes, debug output, the library's streams
 * and its recursive locks. Everything here is plain C, callable from C, C++ and
 * anything that speaks the C ABI.
 */
#ifndef VORLAN_VLD_CORE_H
#define VORLAN_VLD_CORE_H

#include <pthread.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "vld_errors.h"

#ifdef __cplusplus
#define VLD_BEGIN_DECLS extern "C" {
#define VLD_END_DECLS }
#else
#define VLD_BEGIN_DECLS
#define VLD_END_DECLS
#endif

#define VLD_API __attribute__((visibility("default")))
#define VLD_PRINTF(f, a) __attribute__((format(printf, f, a)))
#define VLD_NORETURN __attribute__((noreturn))

VLD_BEGIN_DECLS

/* ---------------------------------------------------------------- errors */

/* The last failure of the process: a row of VLD_errmsg (named in vld_errors.h)
 * and its formatted text. */
typedef struct VLD_ERROR_REC {
    int32_t code;
    char *text; /* into a static 1024-byte buffer; null until the first error */
} VLD_ERROR_REC;

#define VLD_ERRBUF_SIZE 1024
#define VLD_ERRMSG_ROWS 197

extern VLD_API VLD_ERROR_REC VLD_error;
extern VLD_API const char *VLD_errmsg[VLD_ERRMSG_ROWS];

VLD_API int VLD_setup_error(int code, ...);
VLD_API int VLD_setup_system_error(int code, ...);
VLD_API int VLD_setup_vds_error(const char *format, ...) VLD_PRINTF(1, 2);
VLD_API char *VLD_error_text(void);
VLD_API void VLD_output_error(void);
VLD_API int VLD_error_vprintf(const char *format, va_list args);
VLD_API int construct_errmsg(char **out, const char *format, ...) VLD_PRINTF(2, 3);
VLD_API int construct_system_errmsg(char **out, const char *format, ...) VLD_PRINTF(2, 3);
VLD_API void append_system_error(char *buffer, int size);
VLD_API void append_parser_error_to_VLD_error(void);
VLD_API void append_buffer_to_VLD_error(const char *text);
VLD_API void Fatal(const char *text) VLD_NORETURN;
VLD_API void win32_error(int show, const char *text);
VLD_API char *win32_error_txt(int code);

/* ---------------------------------------------------------------- memory */

VLD_API void *malloc_or_die(size_t size);
VLD_API void *realloc_or_die(void *pointer, size_t size);
VLD_API int register_free_func(int (*function)(void));
VLD_API void safe_free(void *pointer);
/* Both take the address of a pointer variable (any pointer type). */
VLD_API void VLDfree(void *address_of_pointer);
VLD_API void safe_VLDfree(void *address_of_pointer);
VLD_API char *strsave(const char *text);
VLD_API char *VLN_strsave(const char *text);
VLD_API char *strsaveplus(const char *text, int extra);
VLD_API char *strsave_cat(const char *a, const char *b);
VLD_API char *strsave_concat(char **string, const char *text);
VLD_API char *strsave_strip_ext(const char *text);
VLD_API char *strsave_strip_cr(const char *text);
VLD_API char *strsave_backquote_chars(const char *text);
VLD_API int memory_allocated(void);
VLD_API void dump_musage(const char *label);

/* The leak layer: each call names its source file and line. */
VLD_API void *leak_malloc(const char *file, int line, size_t size);
VLD_API void *leak_calloc(const char *file, int line, size_t count, size_t size);
VLD_API void *leak_realloc(const char *file, int line, void *pointer, size_t size);
VLD_API void leak_free(const char *file, int line, void *pointer);
VLD_API void *leak_malloc_or_die(const char *file, int line, size_t size);
VLD_API void *leak_realloc_or_die(const char *file, int line, void *pointer, size_t size);
VLD_API void leak_safe_free(const char *file, int line, void *pointer);
VLD_API void leak_VLDfree(const char *file, int line, void *address_of_pointer);
VLD_API void leak_safe_VLDfree(const char *file, int line, void *address_of_pointer);
VLD_API char *leak_strsave(const char *file, int line, const char *text);
VLD_API void leak_print(void);
VLD_API void leak_reset(void);

/* A translation unit that defines VLD_LEAK_CHECK before including this header
 * routes its allocations through the leak layer. */
#ifdef VLD_LEAK_CHECK
#define malloc_or_die(s) leak_malloc_or_die(__FILE__, __LINE__, (s))
#define realloc_or_die(p, s) leak_realloc_or_die(__FILE__, __LINE__, (p), (s))
#define safe_free(p) leak_safe_free(__FILE__, __LINE__, (p))
#define VLDfree(pp) leak_VLDfree(__FILE__, __LINE__, (pp))
#define safe_VLDfree(pp) leak_safe_VLDfree(__FILE__, __LINE__, (pp))
#define strsave(t) leak_strsave(__FILE__, __LINE__, (t))
#endif

/* ---------------------------------------------------------------- strings */

VLD_API int VLD_strcasecmp(const char *a, const char *b);
VLD_API int VLD_strncasecmp(const char *a, const char *b, int n);
VLD_API char *VLD_toupper(char *s);
VLD_API char *VLD_tolower(char *s);
VLD_API char *VLD_strchar_convert(char *s, int from, int to);
VLD_API int VLD_strstr_convert(char **s, const char *from, const char *to);
VLD_API char *VLD_expanded_strtok(char *s, const char *delimiters);
VLD_API char *VLD_stripblanks(char *s);
VLD_API char *strip_whitespace(char *s);
VLD_API int strip_whitespace2(char *s);
VLD_API int string_is_blank(const char *s);
VLD_API int strcpylint(char *dst, const char *src);
VLD_API char *safe_strcat(char *dst, const char *src, int limit);
VLD_API int vln_sumstring(const char *s);
VLD_API char *quote_string(const char *s);
VLD_API char *unquote_string(const char *s);
VLD_API char *convert_backquoted_chars(char *s);
VLD_API char *VLD_expand_env_vars(char *s);
VLD_API char *format_float(char *dst, double value);
VLD_API char *format_float3(char *dst, double value, int places);
VLD_API char *format_float2_G(char *dst, double value, int places);
VLD_API char *format_float2(char *dst, double value, int places);
VLD_API int64_t vln_nint(double value);
VLD_API double vln_anint(double value);
VLD_API double vln_exp10(double value);

/* ---------------------------------------------------------------- cell types */

/* A pair of an enum table: a value and its word. Tables end with a null word. */
typedef struct VLD_ENUM {
    int32_t value;
    const char *name;
} VLD_ENUM;

typedef enum VLD_CELLTYPE {
    CT_None = 0,
    CT_Unknown = 1,
    Unsigned8BitInteger = 2,
    Unsigned16BitInteger = 3,
    Unsigned32BitInteger = 4,
    Signed8BitInteger = 5,
    Signed16BitInteger = 6,
    Signed32BitInteger = 7,
    IEEE4ByteReal = 8,
    IEEE8ByteReal = 9
} VLD_CELLTYPE;

#define VLD_NCELLTYPES 10

extern VLD_API const VLD_ENUM ev_CellType[];
extern VLD_API const int32_t typesize[VLD_NCELLTYPES];
extern VLD_API const char *DE_cell_type_string[VLD_NCELLTYPES];
extern VLD_API const VLD_ENUM ev_CST[];

VLD_API int celltypesize(int type);
VLD_API void get_celltype_max_min(int type, double *max, double *min);

/* ---------------------------------------------------------------- byte order */

enum { MSBFirst = 1, LSBFirst = 2 };

VLD_API int byteorder(void);
VLD_API void set_byteorder(int host, int data);
VLD_API int data_byteorder(int a, int b);
VLD_API float return_IEEE4(const void *p);
VLD_API double return_IEEE8(const void *p);
VLD_API int32_t return_INT32(const void *p);
VLD_API uint32_t return_UINT32(const void *p);
VLD_API int return_INT16(const void *p);
VLD_API int return_UINT16(const void *p);
VLD_API int return_INT8(const void *p);
VLD_API int return_UINT8(const void *p);
VLD_API int smart_byteswap(void *buffer, int count, int width);
VLD_API int swap_bytes(void *buffer, int count, int width);
VLD_API int32_t convert_int(void *p);
VLD_API float convert_float(const void *p);
VLD_API double convert_D_double(const void *p);
VLD_API double convert_G_double(const void *p);

/* ---------------------------------------------------------------- float classes */

VLD_API double vln_nanval(void);
VLD_API double vln_infval(void);
VLD_API int vln_isinf(double value);
VLD_API int vln_disnan(double value);
VLD_API int vln_fisnan(float value);
VLD_API int VLD_float_isvalue(double value);

/* ---------------------------------------------------------------- debug output */

extern VLD_API int vln_global_debug;

VLD_API void init_dbprintf_progname(const char *name);
VLD_API int dbprintf(const char *format, ...) VLD_PRINTF(1, 2);
VLD_API int vln_dbugprintf(const char *format, ...) VLD_PRINTF(1, 2);
VLD_API void VLN_debug_log_printf(const char *format, ...) VLD_PRINTF(1, 2);
VLD_API int vln_printf(const char *format, ...) VLD_PRINTF(1, 2);

/* The library's own streams; every module writes here, never to the process's.
 * An application redirects them with the setters (null restores the default). */
VLD_API FILE *vln_ReturnStdIn(void);
VLD_API FILE *vln_ReturnStdOut(void);
VLD_API FILE *vln_ReturnStdErr(void);
VLD_API void vln_SetStdIn(FILE *stream);
VLD_API void vln_SetStdOut(FILE *stream);
VLD_API void vln_SetStdErr(FILE *stream);

/* ---------------------------------------------------------------- locks */

/* A recursive lock that comes alive at first use; zeroed storage is a valid
 * lock. Locks do nothing until vln_thread_init turns locking on. */
typedef struct vln_mutex {
    int32_t created;
    pthread_mutex_t cs;
    int32_t count;
} vln_mutex;

extern VLD_API vln_mutex csect;
extern VLD_API vln_mutex pe_mutex;
extern VLD_API vln_mutex VLN_GLOBAL_GDT_MUTEX;

VLD_API void vln_mutex_begin(vln_mutex *mutex);
VLD_API void vln_mutex_end(vln_mutex *mutex);
VLD_API int vln_mutex_create(vln_mutex *mutex);
VLD_API void vln_mutex_destroy(vln_mutex *mutex);
VLD_API void vln_mutex_clean(void);
/* Whether locks act; turned on by vln_thread_init, off by vln_thread_fini. */
VLD_API int vln_locking_enabled(void);

/* ---------------------------------------------------------------- version */

VLD_API const char *VLD_version(void);

VLD_END_DECLS

#endif
