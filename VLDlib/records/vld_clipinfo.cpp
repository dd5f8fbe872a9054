/*
 * vld_clipinfo.cpp: ClipInfo, the clipping limits of a document of its own.
 * A RasterInfo block of an old header may hold one; it is read and dropped
 * there.
 */
#include <cstddef>

#include "vld_docs.h"
#include "vld_record_internal.h"

namespace {

enum : uint32_t { CLIPMIN = 1, CLIPMAX };

const VLD_KEYWORD keywords[] = {{CLIPMIN, "ClipMin", VTYPE_FLOAT, nullptr},
                                {CLIPMAX, "ClipMax", VTYPE_FLOAT, nullptr},
                                {0, nullptr, 0, nullptr}};

using vld::Kind;
const vld::Field fields[] = {
    {.code = CLIPMIN, .kind = Kind::Double, .offset = offsetof(clipinfo, clip_min)},
    {.code = CLIPMAX, .kind = Kind::Double, .offset = offsetof(clipinfo, clip_max)},
};

const vld::Record record = {
    .block = "ClipInfo",
    .keywords = keywords,
    .fields = fields,
    .nfields = vld::count_of(fields),
    .size = sizeof(clipinfo),
};

}  // namespace

const vld::Record &vld::vld_clipinfo_record()
{
    return record;
}

int ea_clipinfo(clipinfo **address)
{
    return vld::fam_alloc(address, record);
}
void ef_clipinfo(clipinfo *c)
{
    vld::rec_free(c, record);
}
int eg_clipinfo(clipinfo **address, const char *filename)
{
    return vld::fam_get(address, filename, record);
}
int eg_clipinfo_noalloc(clipinfo *c, const char *filename)
{
    return vld::rec_read(c, filename, record);
}
int ep_clipinfo(const clipinfo *c, const char *filename)
{
    return vld::rec_write(c, filename, record);
}
