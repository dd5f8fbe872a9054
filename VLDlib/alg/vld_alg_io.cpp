/*
 * vld_alg_io.cpp: the algorithm document's family: reading a document and
 * setting up its layers, writing it, with or without transients or as the
 * block inside a dataset header, copies and the default algorithm.
 */
#include <cstring>
#include <ctime>

#include "vld_alg_internal.h"
#include "vln_path.h"
#include "vln_guard_internal.h"

namespace {

const vld::Record &rec()
{
    return vld::vld_algorithm_record();
}

/* Marks the algorithm being written as one inside a dataset header (or not)
 * for the length of a call. */
class EmbeddedScope {
   public:
    explicit EmbeddedScope(bool on) : outer_(vld::embedded_write()) { vld::set_embedded_write(on); }
    ~EmbeddedScope() { vld::set_embedded_write(outer_); }
    EmbeddedScope(const EmbeddedScope &) = delete;
    EmbeddedScope &operator=(const EmbeddedScope &) = delete;

   private:
    bool outer_;
};

/* Reads `name` into a new record at `address`; an inner (embedded) read sets
 * up no layers. A document that is already being read further up, through
 * the layers of another, is refused: its layers would lead back to it for
 * ever. An embedded read can't recurse, and within one read its result is
 * shared. */
int read_algorithm(algorithm **address, const char *name, bool inner)
{
    if (!address) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    vln::Guard lock(&vld_bt::vld_mutex);
    vld::ReadScope read_scope;
    std::string key = inner ? vld::document_key(name) : std::string();
    if (inner && (*address = vld::cached_embedded_algorithm(key, name)) != nullptr) return 0;
    *address = static_cast<algorithm *>(vld::rec_alloc(rec()));
    vld::OpenDocument open(inner ? nullptr : name);
    if (open.refused()) return open.refuse(name);
    vld::vld_config_load_once();
    vld::AlgReadState state;
    state.embedded = inner;
    int status = vld::rec_read(*address, name, rec(), &state, "Algorithm");
    if (!status) status = vld::finish_read(**address, name, state);
    if (!status && !inner) status = vld::setup_layers(*address);
    if (!status && inner) vld::cache_embedded_algorithm(key, *address);
    return status;
}

}  // namespace

/* ---------------------------------------------------------------- the family */

int ea_algorithm(algorithm **record)
{
    return vld::fam_alloc(record, rec());
}
void ef_algorithm(algorithm *record)
{
    vld::rec_free(record, rec());
}
int ee_algorithm(VLD_KEYWORD **array)
{
    return vld::rec_enumerate(array, rec());
}

int eg_algorithm(algorithm **record, const char *name)
{
    return read_algorithm(record, name, false);
}

int eg_vds_algorithm(algorithm **record, const char *name)
{
    return read_algorithm(record, name, true);
}

int eg_algorithm_standard(algorithm **record, const char *directory, const char *name)
{
    if (!name) return VLD_setup_error(VLD_ERR_NULL_FILE_SPEC);
    char *path = nullptr;
    if (!VLN_path_is_abs(name) && directory && *directory) {
        char *joined = nullptr;
        VLN_concat_filepath(&joined, directory, name);
        if (VLN_build_abs_fspec(&path, nullptr, joined ? joined : name) != 0) {
            safe_free(path);
            path = joined;
        } else {
            safe_free(joined);
        }
    }
    int status = eg_algorithm(record, path ? path : name);
    safe_free(path);
    return status;
}

int eg_algorithm_with_transients(algorithm **record, const char *name)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    int32_t saved = read_transients;
    read_transients = 1;
    int status = eg_algorithm(record, name);
    read_transients = saved;
    return status;
}

namespace {

int write_algorithm(algorithm *record, const char *name, bool inner)
{
    if (!record) return 0;
    vln::Guard lock(&vld_bt::vld_mutex);
    EmbeddedScope scope(inner);
    int status = vld::rec_write(record, name, rec(), nullptr, "Algorithm");
    return status;
}

}  // namespace

int ep_algorithm(algorithm *record, const char *name)
{
    return write_algorithm(record, name, false);
}

int ep_vds_algorithm(algorithm *record, const char *name)
{
    return write_algorithm(record, name, true);
}

int ep_algorithm_with_transients(algorithm *record, const char *name)
{
    vln::Guard lock(&vld_bt::vld_mutex);
    int32_t saved = write_transients;
    write_transients = 1;
    int status = ep_algorithm(record, name);
    write_transients = saved;
    return status;
}

int df_algorithm(algorithm **record)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    algorithm *a = static_cast<algorithm *>(vld::rec_alloc(rec()));
    *record = a;
    a->version = strsave("7.0");
    a->name = strsave("");
    a->description = strsave("No Description");
    a->author = strsave("Vorlan");
    a->last_updated = static_cast<int32_t>(std::time(nullptr));
    a->view_mode = VM_Planimetric2D;
    a->d3info.window_aspect_ratio = 1.0;
    surface *s = nullptr;
    df_surface(&s);
    a->surfaces = s;
    df_coordspace(&a->coordspace);
    double nan = vln_nanval();
    a->top_left = vld::new_coord({0.0, 0.0, nan});
    a->bottom_right = vld::new_coord({1000.0, 1000.0, nan});
    a->adjusted_bottom_right = vld::new_coord(*a->bottom_right);
    a->canvas_top_left = a->canvas_bottom_right = *a->top_left;
    std::memset(a->stipple_colour24, 255, 3);
    vld::select_first(*a);
    return check_pagesize(a);
}

/* A copy that leaves out what is transient (cp_algorithm), or all of it. */
static int copy_algorithm(algorithm **copy, const algorithm *source, bool leave_transients)
{
    if (!copy) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    *copy = static_cast<algorithm *>(vld::rec_dup(source, rec()));
    if (!*copy || !leave_transients) return 0;
    algorithm &a = **copy;
    a.output_height = a.output_width = a.canvas_height = a.canvas_width = 0;
    a.x_offset = a.y_offset = 0;
    a.enforce_aspect = a.do_optimisation = a.do_compilation = a.calc_histograms = a.colour24 = 0;
    a.process_vectors = 0;
    a.output_type = 0;
    safe_free(a.output_file);
    a.output_file = nullptr;
    return 0;
}

int cp_algorithm(algorithm **copy, const algorithm *source)
{
    return copy_algorithm(copy, source, true);
}
int cp_algorithm_all(algorithm **copy, const algorithm *source)
{
    return copy_algorithm(copy, source, false);
}

/* ---------------------------------------------------------------- inside a dataset header */

int vld::read_embedded_algorithm(algorithm **slot)
{
    ef_algorithm(*slot);
    *slot = static_cast<algorithm *>(rec_alloc(rec()));
    vld::AlgReadState state;
    state.embedded = true;
    int status = rec_read(*slot, nullptr, rec(), &state);
    if (!status) status = vld::finish_read(**slot, nullptr, state);
    return status;
}

void vld::write_embedded_algorithm(const algorithm *alg)
{
    if (!alg) return;
    EmbeddedScope scope(true);
    rec_write(alg, nullptr, rec(), nullptr, "Algorithm");
}

int vld::read_algorithm_document(algorithm *alg, const char *filename)
{
    vld::AlgReadState state;
    state.embedded = true;
    int status = rec_read(alg, filename, rec(), &state, "Algorithm");
    if (!status) status = vld::finish_read(*alg, nullptr, state);
    return status;
}
