/*
 * vld_blocktext.h: the block-text reader and writer.
 *
 * Every text document of the system has one syntax: named blocks that open
 * with "X Begin" and close with "X End", holding lines "Keyword = value". The
 * reader is a pull parser without a document tree: a record's reader hands
 * eg_general a keyword table and a callback, and receives each statement in
 * file order with its value converted to the keyword's declared type. A nested
 * block arrives as a statement of type VTYPE_BLOCK, and the callback then calls
 * the nested record's reader, which goes on with the same input. The writer is
 * the mirror image: ep_general opens the document and the record's writer
 * emits its lines with ep_line and the value writers.
 *
 * The scanner and the parser have one global state, guarded by vld_mutex_on.
 */
#ifndef VORLAN_VLD_BLOCKTEXT_H
#define VORLAN_VLD_BLOCKTEXT_H

#include <stdint.h>
#include <time.h>

#include "vld_core.h"

VLD_BEGIN_DECLS

/* Declared value types of keywords; the names are the words of "Bad Type". */
enum {
    VTYPE_NONE = 0,
    VTYPE_UNKNOWN = 1,  /* a bare word, as the scanner's kind only */
    VTYPE_DATETIME = 2, /* 32-bit seconds since 1970, Greenwich time */
    VTYPE_YN = 3,       /* 1 or 0 */
    VTYPE_STRING = 4,   /* a new string, owned by the callback */
    VTYPE_INT = 5,      /* signed 32-bit */
    VTYPE_FLOAT = 6,    /* double */
    VTYPE_ENUM = 7,     /* the integer of the word in the keyword's enum table */
    VTYPE_BLOCK = 8,    /* only the code: the callback reads the block */
    VTYPE_LIST = 9,     /* a list of textnodes, owned by the callback */
    VTYPE_LENGTH = 10,  /* writer only: a length with its unit */
    VTYPE_BANDID = 11,  /* the token's text, owned by the callback */
    VTYPE_DMS = 12,     /* double, decimal degrees */
    VTYPE_TRIPLE = 13,  /* three bytes: red, green, blue */
    VTYPE_FILENAME = 14 /* a new absolute path, owned by the callback */
};

/* One keyword of a record's table. Tables end with an entry whose name is null.
 * Two names may share a code: a synonym or an older spelling. */
typedef struct VLD_KEYWORD {
    uint32_t code;
    const char *name;
    uint32_t type;
    const VLD_ENUM *enums; /* for VTYPE_ENUM */
} VLD_KEYWORD;

/* An element of a list value: its text as written, quotes removed. */
typedef struct textnode {
    struct textnode *next;
    char *text;
} textnode;

/* What a reader's callback receives; zeroed before each statement. */
typedef struct VLD_STATEMENT {
    int32_t code;
    int32_t type;
    union {
        int32_t i;      /* VTYPE_INT, VTYPE_YN, VTYPE_ENUM, VTYPE_DATETIME */
        double d;       /* VTYPE_FLOAT, VTYPE_DMS */
        char *s;        /* VTYPE_STRING, VTYPE_FILENAME, VTYPE_BANDID */
        textnode *list; /* VTYPE_LIST */
        uint8_t rgb[3]; /* VTYPE_TRIPLE */
        uint8_t bytes[8];
    } value;
} VLD_STATEMENT;

typedef void (*VLD_CALLBACK)(void *record, VLD_STATEMENT *statement);
/* A record's reader as eg_from_buffer calls it: reader(address of record, null). */
typedef int (*VLD_READER)(void *address_of_record, const char *filename);
/* A record's writer as ep_general calls it: emits the lines inside the block. */
typedef void (*VLD_BLOCK_WRITER)(void *record);
/* A record's whole writer as ep_to_buffer calls it: writer(record, null). */
typedef int (*VLD_DOC_WRITER)(void *record, const char *filename);

/* ---------------------------------------------------------------- locking */

/* The one recursive lock of all record reading and writing. */
VLD_API void vld_mutex_on(void);
VLD_API void vld_mutex_off(void);

/* ---------------------------------------------------------------- reader */

/* Reads one block. With `filename` it opens (maps) the file and expects `block`
 * as its first statement; with a null filename it goes on with the open input,
 * just after a Begin seen by the enclosing reader. Returns 0 or a row. */
VLD_API int eg_general(void *record, const char *filename, const char *block,
                       const VLD_KEYWORD *table, VLD_CALLBACK callback);
/* Parses zero-ended text by reader(address_of_record, null). */
VLD_API int eg_from_buffer(const char *text, VLD_READER reader, void *address_of_record);

/* Modes: 0 a file by stdio ("-" is the library's standard input), 1 the
 * zero-ended `buffer`, 2 the whole file mapped read-only. Returns 1, or 0 when
 * the input can't be opened. */
VLD_API int VLD_init_lexer(int mode, int *error_counter, const char *filename, const char *buffer);
VLD_API void VLD_finalise_lexer(void);
VLD_API int rf_check_file(void);
VLD_API int rf_init_parser(const char *block);
VLD_API void rf_finalise_parser(int had_errors);
VLD_API int rf_get_stmeminfo(VLD_STATEMENT *statement, const VLD_KEYWORD *table);
VLD_API void rf_report_error(const char *text);
/* The name of a type for messages: "VTYPE_INT", ..., or "VTYPE_???". */
VLD_API const char *VLD_vtype_name(int type);

/* ---------------------------------------------------------------- writer */

/* Writes "block Begin", writer(record), "block End". With a filename this is the
 * outermost call: the document goes to a temporary file in the same directory,
 * renamed over the target at the end ("-" is the library's standard output).
 * With a null filename it nests in the document being written, and a null
 * record writes nothing. A null block omits the two lines. */
VLD_API int ep_general(void *record, const char *filename, const char *block,
                       VLD_BLOCK_WRITER writer);
/* As writing a file, but into a new string stored through `text`. */
VLD_API int ep_to_buffer(void *record, VLD_DOC_WRITER writer, char **text);
/* Writes "Keyword = value" for the field at `value`, typed by the table. */
VLD_API void ep_line(const void *value, uint32_t code, const VLD_KEYWORD *table);
/* Writes a raw line at the current indentation (used by special writers). */
VLD_API void ep_raw_line(const char *text);

/* Value writers: each writes its rows and then the "}" that closes the list
 * that ep_line opened for a VTYPE_LIST keyword. */
VLD_API void ep_array(const double *values, int rows, int columns);
VLD_API void ep_text_array(char *const *strings);
/* One entry of a lookup table as ep_lut_entries takes it. */
typedef struct VLD_LUT_ENTRY {
    int32_t index;
    uint16_t red, green, blue;
} VLD_LUT_ENTRY;
VLD_API void ep_lut_entries(const void *entries, int count);     /* VLD_LUT_ENTRY[count] */
VLD_API void ep_rgb_colours(const uint16_t *entries, int count); /* 3 x uint16 each */
VLD_API void ep_c24_colours(const uint8_t *entries, int count);  /* 3 x uint8 each */
VLD_API void ep_c8_colours(const uint8_t *entries, int count);
VLD_API void ep_rescol_entries(const uint8_t *entries, int count);
VLD_API void ep_rescol24_entries(const uint8_t *entries, int count); /* 3 x uint8 each */
VLD_API void ep_trxyval_entries(const double *pairs, int count);
VLD_API void ep_hist_entries(const int32_t *counts, int count);
/* Region points: a list of nodes { next, x, y }. */
typedef struct VLD_POINTNODE {
    struct VLD_POINTNODE *next;
    double x, y;
} VLD_POINTNODE;
VLD_API void ep_region_points(const VLD_POINTNODE *points);
VLD_API void ep_bandwidth(const double *value, uint32_t code, const VLD_KEYWORD *table);
VLD_API void ep_lr_struct_element(const char *name, const char *text);

/* Renames with replacement; 0 or VLD_ERR_CANNOT_RENAME_FILE. */
VLD_API int vln_rename(const char *from, const char *to);

/* ---------------------------------------------------------------- lists and parent paths */

/* Each consumes (frees) the list. `expected` -1 takes any count; another count
 * that doesn't match is reported as a parse error of the document being read,
 * and the array is still built. The arrays are the caller's (safe_free). */
VLD_API int conv_list_to_array(double **result, textnode *list, int expected);
/* Elements truncated toward zero, saturated at the ends of the 32-bit range. */
VLD_API int conv_list_to_INT32_array(int32_t **result, textnode *list, int expected);
/* rows x columns values, or null after reporting a count that doesn't match.
 * The row pointers and the values are one block: one safe_free(*result). */
VLD_API int conv_list_to_2Darray(double ***result, textnode *list, int rows, int columns);
VLD_API void VLD_free_textnodes(textnode *list);
/* The stack takes ownership of `path`. */
VLD_API void VLD_push_parent_path(char *path);
VLD_API void VLD_pop_parent_path(const char *path);
VLD_API const char *VLD_get_parent_path(void);

/* ---------------------------------------------------------------- dates and angles */

/* Reads "Mon Jan  2 15:04:05 GMT 2006"; seconds since 1970, Greenwich time.
 * -1 for a text that isn't a date, or a date beyond the 32-bit range. */
VLD_API int32_t rdate(const char *text);
/* Writes the date form of `time` into `buffer` (at least 32 bytes). */
VLD_API char *wdate(int32_t time, char *buffer);
/* "d:m:s" in decimal degrees; a "-" on any part makes the whole negative. */
VLD_API double dmsstr_to_d(const char *text);
/* Writes "d:m:s" with `places` decimals of the seconds (0 to 20) into
 * `buffer`, which holds at least 64 bytes. d_to_dmsstr gives 9 places. */
VLD_API char *d_to_dmsstr_spec(char *buffer, double value, int places);
VLD_API char *d_to_dmsstr(char *buffer, double value);

/* ---------------------------------------------------------------- transients

   When set, algorithm readers keep the transient keywords, and writers write
   them; a header then also keeps its DataFile line. Both start at 0. */
extern VLD_API int32_t read_transients;
extern VLD_API int32_t write_transients;

/* ---------------------------------------------------------------- lengths as text */

/* A length from "<number><unit>" with unit Km, m, mm, um, nm, pm or fm (any
 * case); a missing or unknown unit gives 0. */
VLD_API double str_to_len(const char *text);
/* A length in the largest unit in which it is at least 1, at most `width`
 * characters of digits. The text lives in a buffer of the calling thread and is
 * overwritten by the next call. len_to_str uses width 9. */
VLD_API const char *generic_len_to_str(double length, int width);
VLD_API const char *len_to_str(double length);

VLD_END_DECLS

#endif
