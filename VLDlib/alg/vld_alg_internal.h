/*
 * vld_alg_internal.h: what the algorithm document's sources share.
 *
 * The document is cut by record: the algorithm itself, surfaces and streams,
 * formulae, transforms, kernels, the page and the 3D view each have a source of
 * their own with their descriptor, and the reading state of one document is
 * handed down to them as the aux of the record reader.
 *
 * Internal to VLDlib.
 */
#ifndef VORLAN_VLD_ALG_INTERNAL_H
#define VORLAN_VLD_ALG_INTERNAL_H

#include <vector>

#include "vld_alg.h"
#include "vld_dshdr_internal.h"
#include "vld_record_internal.h"

namespace vld {

/* Descriptors of the document's records. */
const Record &vld_algorithm_record();
const Record &vld_surface_record();
const Record &vld_stream_record();
const Record &vld_streaminput_record();
const Record &vld_formula_record();
const Record &vld_formulaarg_record();
const Record &vld_regionarg_record();
const Record &vld_dsarg_record();
const Record &vld_variablearg_record();
const Record &vld_kernel_record();
const Record &vld_transform_record();
const Record &vld_lineardef_record();
const Record &vld_expdef_record();
const Record &vld_logdef_record();
const Record &vld_histogram_record();
const Record &vld_pagesize_record();
const Record &vld_d3info_record();

/* Frees and copies whole chains (by next) of the records that hang on a
 * stream; a null chain is left alone or copied as null. Transform chains keep
 * their prev links. */
void free_transforms(transform *chain);
transform *copy_transforms(const transform *chain);
void free_kernels(kernel *chain);
kernel *copy_kernels(const kernel *chain);
void free_streaminputs(streaminput *chain);
streaminput *copy_streaminputs(const streaminput *chain);

/* The state of one Algorithm read, handed down as the aux of its record: what
 * the old forms of the document leave for the end of the read. */
struct AlgReadState {
    bool embedded = false; /* inside a dataset header: dots per inch are read */
    vld::CoordspaceSpecial cs;
    int32_t old_display_mode = 0;
    char *old_lookup_table = nullptr;
    std::vector<stream *> old_streams;
    bool canvas_seen = false;
    ~AlgReadState()
    {
        ef_cellinfo(cs.old_cellinfo);
        safe_free(old_lookup_table);
        for (stream *s : old_streams) ef_stream(s);
    }
};

/* What reading leaves to do once the document is parsed: the corners, the
 * old forms, the page, the selection, the 3D upgrade and the surfaces'
 * ranges. `name` (may be null) becomes the record's name. 0 or a row. */
int finish_read(algorithm &a, const char *name, AlgReadState &state);
/* Selects the first surface and its first stream. */
void select_first(algorithm &a);
/* A new dscoord from the core allocator. */
dscoord *new_coord(const dscoord &c);

/* The largest StreamSurfaceId of an old top-level stream. */
constexpr int32_t kMaxOldSurfaceId = 1024;

/* Turns the old vector stream types 81 and 82 into link layers. */
void upgrade_vector_types(stream &s, int32_t generated);
/* A stream input with id 1 and nothing else. */
streaminput *default_streaminput();

/* Sets the prev links of a transform chain from its next links. */
void relink_transforms(transform *chain);
/* The surface at a zero-based index, or null. */
surface *surface_at(const algorithm &a, int index);
/* Append a surface to the algorithm's list, or a stream to a surface's. The
 * search for the list's end starts at `last` when given, an element of the
 * list, so that a long list is built in linear time. They return what they
 * appended. */
surface *append_surface(algorithm &a, surface *s, surface *last = nullptr);
stream *append_stream(surface *s, stream *st, stream *last = nullptr);

/* Whether the algorithm being written is embedded in a dataset header: its
 * dots-per-inch values then go with it as with transients. A read carries
 * the same in its AlgReadState; a write has no state of its own, so this is
 * the calling thread's, set for the length of one write. */
bool embedded_write();
void set_embedded_write(bool on);

/* Reads an Algorithm document into `alg` (from ea_algorithm) and finishes
 * it as an embedded one: no layers are set up, so no dataset is opened and no
 * program run. */
int read_algorithm_document(algorithm *alg, const char *filename);

/* Sets up the layer of every stream that is on, in surfaces that are on:
 * the last step of reading an algorithm that isn't embedded. */
int setup_layers(algorithm *alg);

}  // namespace vld

#endif
