/*
 * vld_dshdr_internal.h: what the sources of the dataset header share.
 *
 * The header and each of its blocks is one record descriptor of the record
 * framework (vld_record_internal.h). The descriptors pass a `aux` pointer down
 * the blocks, and its meaning is fixed per record:
 *
 *   DatasetHeader                 DshdrReadState * while reading, else null
 *   CoordinateSpace               CoordspaceSpecial * for the special readers,
 *                                 else null
 *   coordinate blocks, Extents,
 *   RasterInfo, VectorInfo,
 *   FFTInfo, WarpControl          const coordspace *: the space whose type says
 *                                 how coordinates read and write (null: raw)
 *   the others                    unused
 *
 * Every field that embeds a CoordinateSpace therefore hands it a null aux
 * (no_aux), never its own.
 */
#ifndef VORLAN_VLD_DSHDR_INTERNAL_H
#define VORLAN_VLD_DSHDR_INTERNAL_H

#include <string>
#include <vector>

#include "vld_dshdr.h"
#include "vld_record_internal.h"

namespace vld {

/* ---------------------------------------------------------------- descriptors */

const Record &dshdr_record();
const Record &dshdr_vds_record(); /* the short form of a virtual dataset */
const Record &coordspace_record();
const Record &dscoord_record();
const Record &extents_record();
const Record &rasterinfo_record();
const Record &rasterinfo_vds_record();
const Record &bandid_record();
const Record &vectorinfo_record();
const Record &fftinfo_record();
const Record &radarinfo_record();
const Record &rgbcolour_record();
const Record &msstats_record();
const Record &sensorinfo_record();
const Record &fiducialinfo_record();
const Record &fiducialpoint_record();
const Record &correction_record();
const Record &orthoinfo_record();
const Record &map_to_map_info_record();
/* vld_warp_control_record() and vld_regioninfo_record() are declared with the
 * framework, for the small documents that embed them. */

/* ---------------------------------------------------------------- auxiliary arguments */

/* A sub_aux for fields that must hand their block no aux. */
const void *no_aux(const void *record, const void *aux);

inline const coordspace *space_of(const void *aux)
{
    return static_cast<const coordspace *>(aux);
}
/* The coordinate type that decides how coordinates of `space` read and write:
 * raw for a null space or one without a type. */
int coord_type_of(const coordspace *space);

/* Filled by a special CoordinateSpace reader. */
struct CoordspaceSpecial {
    bool seen = false;                /* a CoordinateSpace block was read */
    cellinfo *old_cellinfo = nullptr; /* an old CellInfo inside it, owned */
};

/* The state of one DatasetHeader read, handed down as its aux. */
struct DshdrReadState {
    CoordspaceSpecial cs;
    bool raster_seen = false;    /* a RasterInfo block went into info.r */
    bool vector_seen = false;    /* a VectorInfo block went into info.v */
    bool algorithm_seen = false; /* an Algorithm block stood in the header */
    ~DshdrReadState() { ef_cellinfo(cs.old_cellinfo); }
};

/* The Algorithm block of a header, read into a new record at `slot` (an
 * earlier one is freed) and written nested in the document being written. */
int read_embedded_algorithm(struct algorithm **slot);
void write_embedded_algorithm(const struct algorithm *alg);

/* Reads one DatasetHeader document into `record` (allocated, zeroed or not)
 * with the record reader alone: no routing, no defaults of eg_dshdr. */
int read_dshdr_document(dshdr *record, const char *filename, DshdrReadState &state);

/* The Version of the header being read (null when unknown); control point
 * lists take their layout from it. This one piece of reading state doesn't
 * travel as an aux: the WarpControl block that needs it sits below RasterInfo,
 * whose blocks take the coordinate space as their aux. It is set by the
 * header's reader and read under the same hold of the block-text lock. */
const char *document_version();
void set_document_version(const char *version);

/* ---------------------------------------------------------------- later modules */

/* The translators stand above the header, so the header reaches them through
 * these pointers; each is null until its module installs it, and a null
 * pointer makes the route report "not yet implemented". */
struct DshdrHooks {
    void (*free_raster_features)(void *features);
    void *(*copy_raster_features)(const void *features);
};
void set_dshdr_hooks(const DshdrHooks &hooks);
const DshdrHooks &dshdr_hooks();

/* ---------------------------------------------------------------- shared helpers */

/* Datum and projection both "RAW" or unset. */
bool is_raw_space(const coordspace *space);
/* Whether `text` is a number as a list element may hold one. */
bool is_number_text(const char *text);
/* The number of `text`, independent of the locale; NaN and infinities are
 * accepted in their C spellings. 0 when there is no number. */
double number_value(const char *text);
/* Takes a list and gives its elements as numbers. An element that isn't a
 * number is reported as a parse error naming `keyword`, and false returned. */
bool list_to_doubles(textnode *list, std::vector<double> &out, const char *keyword);
/* A number as list elements are written: `format_float2` with `places`, and
 * non-finite values quoted so that they read back. */
std::string list_number(double value, int places);

/* Whether two file names name the same file, a relative one taken against the
 * directory of `base`. */
bool same_file(const char *a, const char *b, const char *base);

/* Frees the band records of a raster, and copies them. */
void free_bandids(bandid *bands, int count);
bandid *copy_bandids(const bandid *bands, int count);

/* Puts the region "All" at the head of the raster's regions when it is due. */
void add_all_region(rasterinfo *raster);

/* ---------------------------------------------------------------- one read of documents */

/* How deep virtual datasets may nest: a deeper nesting is taken for a loop
 * that no name shows, and is refused like one. It also bounds the stack that
 * one read takes. */
constexpr int kMaxVdsDepth = 16;

/* Marks the calling thread as inside one read of documents for its life. The
 * outermost scope owns what the read caches, and frees it when it ends. */
class ReadScope {
   public:
    ReadScope();
    ~ReadScope();
    ReadScope(const ReadScope &) = delete;
    ReadScope &operator=(const ReadScope &) = delete;
};

/* The key of a document's results within a read: its absolute name; empty
 * for an empty name. */
std::string document_key(const char *name);

/* Marks a document as open for reading for the guard's life. refused() is
 * true, and nothing is marked, when the same document is already open further
 * up the read (reading it again would never end), or when more than
 * kMaxVdsDepth documents are open; refuse() then sets the error, VLD_ERR_VDS, and
 * returns it. */
class OpenDocument {
   public:
    explicit OpenDocument(const char *name);
    ~OpenDocument();
    bool refused() const { return looped_ || too_deep_; }
    int refuse(const char *name) const;
    OpenDocument(const OpenDocument &) = delete;
    OpenDocument &operator=(const OpenDocument &) = delete;

   private:
    std::string key_;
    bool looped_ = false;
    bool too_deep_ = false;
};

/* A new copy of what this read already made of the document `key`, or null;
 * and the keeping of a copy of a result, while inside a scope (not for the
 * outermost call itself, which nothing can ask for again). Headers are
 * eg_dshdr's results, algorithms those of embedded reads (no layers set up);
 * a copy takes `name` as its own. */
dshdr *cached_header(const std::string &key, const char *name);
void cache_header(const std::string &key, const dshdr *d);
struct algorithm *cached_embedded_algorithm(const std::string &key, const char *name);
void cache_embedded_algorithm(const std::string &key, const struct algorithm *a);

}  // namespace vld

#endif
