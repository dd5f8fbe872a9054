/*
 * vld_record_internal.h: the record framework behind every block-text record.
 *
 * Each record type is described once, by a Record descriptor: its block name,
 * its keyword table, and one Field per member that a keyword reaches (the
 * member's offset, its storage kind, the sub-record of a nested block, an
 * optional writing condition). One generic reader callback and one generic
 * writer walk the descriptor, so a record's eg_ and ep_ functions are one line
 * each, and copy, free and deep comparison come from the same description.
 *
 * Storage kinds say how a value lives in the record; the keyword table says how
 * it is written. So an Angle field may be declared VTYPE_FLOAT (degrees as a
 * number) or VTYPE_DMS (degrees as d:m:s) and is stored in radians either way.
 *
 * Ownership: String, Filename, BandIdText and List members are owned by the
 * record; BlockPtr and BlockList members own their sub-records. rec_free_contents
 * releases them, rec_copy deep-copies them. Members without a Field are plain
 * data: copied with the record's bytes, neither freed nor compared.
 *
 * Everything here runs under vld_mutex_on: the readers and writers take it.
 * Internal to VLDlib and its neighbours; nothing here crosses the C interface.
 */
#ifndef VORLAN_VLD_RECORD_INTERNAL_H
#define VORLAN_VLD_RECORD_INTERNAL_H

#include <cstddef>
#include <cstdint>

#include "vld_blocktext.h"
#include "vld_blocktext_internal.h"

namespace vld {

using vld_bt::report_list_count;

struct Record;
struct Field;

/* How a member is stored. */
enum class Kind : uint8_t {
    Int32,      /* int32_t; VTYPE_INT */
    Double,     /* double; VTYPE_FLOAT, VTYPE_DMS, VTYPE_LENGTH */
    YesNo,      /* int32_t 1 or 0; written from its first byte */
    YesNo8,     /* uint8_t 1 or 0 */
    Enum,       /* int32_t value of the keyword's enum table */
    Time,       /* int32_t seconds since 1970; VTYPE_DATETIME */
    String,     /* char *, owned; VTYPE_STRING (raw unless Field::unescape) */
    Filename,   /* char *, owned; VTYPE_FILENAME, absolute after reading */
    BandIdText, /* char *, owned; VTYPE_BANDID */
    Angle,      /* double in radians; read and written in degrees */
    Rgb,        /* uint8_t[3]; the triple type */
    List,       /* textnode *, owned; VTYPE_LIST kept as read and written back as
                   quoted elements, unless Field::read and Field::write take it */
    Block,      /* sub-record embedded at offset; read and written by Field::sub */
    BlockPtr,   /* sub-record pointer, owned; allocated on reading, null is left out */
    BlockList,  /* singly linked list of owned sub-records, appended in reading order.
                   The sub-record's first member must be its `next` pointer. */
    Discard,    /* a block read by Field::sub and dropped; never written */
    Ignore,     /* a value read and dropped; never written */
    Custom      /* Field::read and Field::write do the work. With Field::sub set, the
                   member is that sub-record embedded, freed, copied and compared as
                   one (a list value kept in a small record, say). */
};

/* What the generic reader callback carries; eg_general receives its address as
 * the record. `field` is set before a Custom reader is called. The first
 * failure row of a nested read or of an after_read hook lands in `status`. */
struct ReadContext {
    void *record;
    const Record *rec;
    const void *aux;
    const Field *field;
    int status;
    /* The element that a list field of this record took last, so that a long
     * list is built in linear time: null, or an element still in its list. */
    const Field *last_list = nullptr;
    void *last_element = nullptr;
    /* A count that a record's readers keep for the length of one read (the
     * BandId blocks of a RasterInfo, say). */
    size_t counter = 0;
};

/* A text that a document can't tell from an absent one. */
inline bool empty_text(const char *s)
{
    return !s || !*s;
}

/* Replaces an owned text by a copy of `text` (null stays null); `text` may be
 * the slot's own text. */
inline void replace_text(char *&slot, const char *text)
{
    char *copy = text ? strsave(text) : nullptr;
    safe_free(slot);
    slot = copy;
}

/* Keeps the first failure of a read in the context; later ones don't replace it. */
inline void keep_status(ReadContext &ctx, int status)
{
    if (status && !ctx.status) ctx.status = status;
}

/* A record seen through the untyped pointer of a hook. */
template <class T>
T &as(void *r)
{
    return *static_cast<T *>(r);
}
template <class T>
const T &as(const void *r)
{
    return *static_cast<const T *>(r);
}

/* What a Custom writer receives. */
struct WriteContext {
    const void *record;
    const Record *rec;
    const void *aux;
    const Field *field;
};

/* One member reached by a keyword. Several keywords may share the code of one
 * Field (synonyms, older spellings); the writer uses the first of them. */
struct Field {
    uint32_t code;
    Kind kind;
    size_t offset = 0;
    /* The descriptor of a nested block: Block, BlockPtr, BlockList, Discard. */
    const Record &(*sub)() = nullptr;
    /* The aux handed to the nested record; null passes the parent's aux on. */
    const void *(*sub_aux)(const void *record, const void *aux) = nullptr;
    /* The writer leaves the line (or block) out when this is true. */
    bool (*omit)(const void *record, const void *aux) = nullptr;
    /* A legacy keyword: read, never written. */
    bool read_only = false;
    /* A transient: accepted on reading but kept only while read_transients is
     * set, and written only while write_transients is set. A transient block
     * needs `sub`, so that it can be read past. */
    bool transient = false;
    /* String only: backslash sequences of the text become characters on
     * reading (convert_backquoted_chars). */
    bool unescape = false;
    /* Custom reader, or a List's reader when the list isn't kept raw. */
    void (*read)(ReadContext &ctx, VLD_STATEMENT *statement) = nullptr;
    /* Custom writer, or the value writer of a List. */
    void (*write)(const WriteContext &ctx) = nullptr;
};

/* One record type. */
struct Record {
    const char *block;           /* block name of a document of its own */
    const VLD_KEYWORD *keywords; /* ended by a null name */
    const Field *fields;         /* in writing order */
    size_t nfields;
    size_t size; /* sizeof the record */
    /* Fixed non-zero starting values of a new record (ea_), after zeroing. */
    void (*init)(void *record) = nullptr;
    /* Default values (df_); runs after init on a new record. */
    void (*defaults)(void *record) = nullptr;
    /* Before each read, top-level or nested ("set defaults where there are
     * any"). Must not drop owned pointers. */
    void (*before_read)(void *record, const void *aux) = nullptr;
    /* After a successful parse; returns 0 or an error row (already set up). */
    int (*after_read)(void *record, const void *aux) = nullptr;
    /* True when the record has nothing to write: the block is left out. */
    bool (*empty)(const void *record, const void *aux) = nullptr;
    /* Called by the writer before the fields (to stamp times and the like);
     * the record handed to ep_ is the caller's own, so it may be changed. */
    void (*before_write)(void *record, const void *aux) = nullptr;
    /* What Custom members own. free_extra releases it. copy_extra runs after
     * the generic copy, with dst holding src's pointers shallowly, and must
     * replace them by copies. equal_extra compares it. */
    void (*free_extra)(void *record) = nullptr;
    void (*copy_extra)(void *dst, const void *src) = nullptr;
    bool (*equal_extra)(const void *a, const void *b) = nullptr;
    /* A record whose reading leaves something for its end has a state of its
     * own for each read: new_read_state makes it (given the aux the read came
     * with, which it may keep) and free_read_state drops it, and for that read
     * it stands as the aux of the record (before_read, the fields' readers,
     * after_read) and of the blocks it holds. So every read carries its own
     * state, and nothing is kept between reads. */
    void *(*new_read_state)(const void *aux) = nullptr;
    void (*free_read_state)(void *state) = nullptr;
};

/* The reading state of a record with new_read_state, from its aux. */
template <typename T>
T &read_state(const void *aux)
{
    return *static_cast<T *>(const_cast<void *>(aux));
}

/* The number of elements of a static array, for Record::nfields and the
 * tables of the index. */
template <typename T, size_t N>
constexpr size_t count_of(const T (&)[N])
{
    return N;
}

/* The member of `record` that `f` describes. */
inline void *field_addr(void *record, const Field &f)
{
    return static_cast<char *>(record) + f.offset;
}
inline const void *field_addr(const void *record, const Field &f)
{
    return static_cast<const char *>(record) + f.offset;
}

/* ---------------------------------------------------------------- the family */

/* ea_: a zeroed record from malloc_or_die, with init applied. */
void *rec_alloc(const Record &r);
/* ef_: frees what the record owns and the record. Null does nothing. */
void rec_free(void *record, const Record &r);
/* ef_X_contents: frees what the record owns and zeroes those members. */
void rec_free_contents(void *record, const Record &r);
/* df_X_noalloc: applies defaults (not init). */
void rec_defaults(void *record, const Record &r);
/* df_X: allocates (with init) and applies defaults. */
void *rec_new_defaults(const Record &r);

/* eg_X_noalloc: runs before_read, reads the block (`block`, or r.block when
 * null) with eg_general, runs after_read. A null filename goes on in the open
 * document. Returns 0 or a row; the record is left partly filled on failure. */
int rec_read(void *record, const char *filename, const Record &r, const void *aux = nullptr,
             const char *block = nullptr);
/* eg_X: allocates with rec_alloc, stores the record through `address` and reads.
 * On failure the record stays allocated, for the caller to free. */
int rec_get(void **address, const char *filename, const Record &r, const void *aux = nullptr,
            const char *block = nullptr);

/* ep_X: writes the record as block `block` (r.block when null). With a filename
 * it is a document of its own; with a null filename it nests in the document
 * being written, and a null record or an empty() one writes nothing. */
int rec_write(const void *record, const char *filename, const Record &r, const void *aux = nullptr,
              const char *block = nullptr);
/* Writes the fields' lines alone, in descriptor order, at the current level. */
void rec_write_fields(const void *record, const Record &r, const void *aux);
/* Writes one line of the field at `value` with the field's code (ep_line). */
void rec_write_line(const WriteContext &ctx, const void *value);

/* cp_X_noalloc: deep copy into `dst`, whose old contents are not freed. */
void rec_copy(void *dst, const void *src, const Record &r);
/* cp_X: allocates and deep-copies; a null source gives null. */
void *rec_dup(const void *src, const Record &r);

/* ee_X: a malloc_or_die copy of the keyword table without its end marker;
 * returns the number of entries. The names are static. */
int rec_enumerate(VLD_KEYWORD **array, const Record &r);
/* Deep equality of the described members (and equal_extra), as a document
 * sees them: NaN equals NaN, an empty text equals a null one, and file names
 * compare without their "." components ("dir/./a" is "dir/a"). */
bool rec_equal(const void *a, const void *b, const Record &r);

/* The first keyword of a code in the record's table, or null. */
const VLD_KEYWORD *rec_keyword(const Record &r, uint32_t code);

/* ---------------------------------------------------------------- typed helpers for the C wrappers
 */

/* ea_X(address): 0, or VLD_ERR_INTERNAL for a null address. */
template <class T>
int fam_alloc(T **address, const Record &r)
{
    if (!address) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    *address = static_cast<T *>(rec_alloc(r));
    return 0;
}
/* eg_X(address, file): the record stays allocated on failure. */
template <class T>
int fam_get(T **address, const char *filename, const Record &r, const void *aux = nullptr,
            const char *block = nullptr)
{
    if (!address) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    void *record = nullptr;
    int status = rec_get(&record, filename, r, aux, block);
    *address = static_cast<T *>(record);
    return status;
}
/* cp_X(address, source): a null source gives a null copy. */
template <class T>
int fam_dup(T **address, const T *source, const Record &r)
{
    if (!address) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    *address = static_cast<T *>(rec_dup(source, r));
    return 0;
}
/* cp_X_noalloc(copy, source). */
template <class T>
int fam_copy(T *copy, const T *source, const Record &r)
{
    if (!copy || !source) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    rec_copy(copy, source, r);
    return 0;
}
/* df_X(address). */
template <class T>
int fam_new_defaults(T **address, const Record &r)
{
    if (!address) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    *address = static_cast<T *>(rec_new_defaults(r));
    return 0;
}

/* ---------------------------------------------------------------- descriptors of the small
 * documents */

/* For records that embed or discard these blocks: RasterInfo embeds CellInfo
 * and drops ClipInfo, CoordinateSpace drops Ellipsoid, VectorInfo drops
 * FontNode. Each is defined beside its record. */
const Record &vld_cellinfo_record();
const Record &vld_clipinfo_record();
const Record &vld_ellipsoid_record();
const Record &vld_fontnode_record();
const Record &vld_lut_record();
const Record &vld_config_record();
const Record &vld_screendef_record();
const Record &vld_windef_record();
const Record &vld_displaydef_record();
const Record &vld_displayinfo_record();
const Record &vld_digconfiginfo_record();
const Record &vld_digsessioninfo_record();
const Record &vld_digtypeinfo_record();
const Record &vld_cctconfiginfo_record();
const Record &vld_gamma_record();
const Record &vld_hardcopyinfo_record();
const Record &vld_maphints_record();
const Record &vld_allowed_record();
const Record &vld_dlinkparam_record();
const Record &vld_userparam_record();
const Record &vld_statsfile_record();

/* ---------------------------------------------------------------- the index of records

   One index maps the name of a record's own block to its descriptor, for code
   that holds a record and knows only what it is called. Each part adds its
   table once, at load time, through a RecordRegistration at file scope; the
   records of this folder are in vld_record_index.cpp. */

struct RecordEntry {
    const char *block;
    const Record &(*record)();
};

struct RecordRegistration {
    RecordRegistration(const RecordEntry *entries, size_t count);
};

/* The descriptor of the record whose own block is `block` (without regard to
 * case); null when there is none. */
const Record *rec_by_block(const char *block);

/* Deep comparison of two records of the type whose own block is `block`: 1
 * when equal, 0 when not, -1 for a block without a record. */
int rec_equal_by_block(const char *block, const void *a, const void *b);

/* ---------------------------------------------------------------- records owned elsewhere */

/* Descriptors of the dataset header's sub-records, used by small documents
 * that embed them (DigSessionInfo holds a WarpControl block, StatsFile a list
 * of RegionInfo blocks). Defined beside those records. */
const Record &vld_warp_control_record();
const Record &vld_regioninfo_record();

/* Reads the configuration document into p_current_config once per process; a
 * failure leaves it null and is dropped. */
void vld_config_load_once();

}  // namespace vld

#endif
