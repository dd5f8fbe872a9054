/*
 * vld_cellinfo.cpp: CellInfo, the size and overlap of a cell.
 *
 * Dimensions of 0 and 1 mean "one unit" and are not written; a block whose
 * dimensions are all such and whose overlaps are all 0 is left out.
 */
#include <cmath>
#include <cstddef>

#include "vld_docs.h"
#include "vld_record_internal.h"

namespace {

enum : uint32_t { XDIMENSION = 1, YDIMENSION, ZDIMENSION, XOVERLAP, YOVERLAP, ZOVERLAP };

const VLD_KEYWORD keywords[] = {{XDIMENSION, "Xdimension", VTYPE_FLOAT, nullptr},
                                {YDIMENSION, "Ydimension", VTYPE_FLOAT, nullptr},
                                {ZDIMENSION, "Zdimension", VTYPE_FLOAT, nullptr},
                                {XOVERLAP, "Xoverlap", VTYPE_FLOAT, nullptr},
                                {YOVERLAP, "Yoverlap", VTYPE_FLOAT, nullptr},
                                {ZOVERLAP, "Zoverlap", VTYPE_FLOAT, nullptr},
                                {0, nullptr, 0, nullptr}};

bool is_unit(double d)
{
    return d == 0.0 || d == 1.0;
}

const cellinfo &ci(const void *r)
{
    return *static_cast<const cellinfo *>(r);
}

bool omit_x(const void *r, const void *)
{
    return is_unit(ci(r).x_dimension);
}
bool omit_y(const void *r, const void *)
{
    return is_unit(ci(r).y_dimension);
}
bool omit_z(const void *r, const void *)
{
    double z = ci(r).z_dimension;
    return is_unit(z) || !std::isfinite(z);
}
bool omit_xo(const void *r, const void *)
{
    return ci(r).x_overlap == 0.0;
}
bool omit_yo(const void *r, const void *)
{
    return ci(r).y_overlap == 0.0;
}
bool omit_zo(const void *r, const void *)
{
    return ci(r).z_overlap == 0.0;
}

bool nothing_to_write(const void *r, const void *)
{
    const cellinfo &c = ci(r);
    return is_unit(c.x_dimension) && is_unit(c.y_dimension) && is_unit(c.z_dimension) &&
           c.x_overlap == 0.0 && c.y_overlap == 0.0 && c.z_overlap == 0.0;
}

void set_defaults(void *r)
{
    setup_cellinfo_defaults(static_cast<cellinfo *>(r));
}
void before_read(void *r, const void *)
{
    set_defaults(r);
}
int after_read(void *r, const void *)
{
    set_defaults(r);
    return 0;
}

using vld::Kind;
const vld::Field fields[] = {
    {.code = XDIMENSION,
     .kind = Kind::Double,
     .offset = offsetof(cellinfo, x_dimension),
     .omit = omit_x},
    {.code = YDIMENSION,
     .kind = Kind::Double,
     .offset = offsetof(cellinfo, y_dimension),
     .omit = omit_y},
    {.code = ZDIMENSION,
     .kind = Kind::Double,
     .offset = offsetof(cellinfo, z_dimension),
     .omit = omit_z},
    {.code = XOVERLAP,
     .kind = Kind::Double,
     .offset = offsetof(cellinfo, x_overlap),
     .omit = omit_xo},
    {.code = YOVERLAP,
     .kind = Kind::Double,
     .offset = offsetof(cellinfo, y_overlap),
     .omit = omit_yo},
    {.code = ZOVERLAP,
     .kind = Kind::Double,
     .offset = offsetof(cellinfo, z_overlap),
     .omit = omit_zo},
};

const vld::Record record = {
    .block = "CellInfo",
    .keywords = keywords,
    .fields = fields,
    .nfields = vld::count_of(fields),
    .size = sizeof(cellinfo),
    .defaults = set_defaults,
    .before_read = before_read,
    .after_read = after_read,
    .empty = nothing_to_write,
};

}  // namespace

const vld::Record &vld::vld_cellinfo_record()
{
    return record;
}

void setup_cellinfo_defaults(cellinfo *c)
{
    if (!c) return;
    if (c->x_dimension == 0.0) c->x_dimension = 1.0;
    if (c->y_dimension == 0.0) c->y_dimension = 1.0;
    if (c->z_dimension == 0.0) c->z_dimension = 1.0;
}

int ea_cellinfo(cellinfo **address)
{
    return vld::fam_alloc(address, record);
}
int ee_cellinfo(VLD_KEYWORD **array)
{
    return vld::rec_enumerate(array, record);
}
void ef_cellinfo(cellinfo *c)
{
    vld::rec_free(c, record);
}
int eg_cellinfo(cellinfo **address, const char *filename)
{
    return vld::fam_get(address, filename, record);
}
int eg_cellinfo_noalloc(cellinfo *c, const char *filename)
{
    return vld::rec_read(c, filename, record);
}
int ep_cellinfo(const cellinfo *c, const char *filename)
{
    return vld::rec_write(c, filename, record);
}
int df_cellinfo(cellinfo **address)
{
    return vld::fam_new_defaults(address, record);
}
int cp_cellinfo_noalloc(cellinfo *copy, const cellinfo *source)
{
    return vld::fam_copy(copy, source, record);
}
