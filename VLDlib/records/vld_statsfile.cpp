/*
 * vld_statsfile.cpp: StatsFile, the side file of a raster's statistics: the
 * RegionInfo blocks of its header, each with its Stats, in file order.
 */
#include <cstddef>

#include "vld_docs.h"
#include "vld_record_internal.h"

namespace {

using vld::Kind;

enum : uint32_t { REGIONINFO = 1 };

const VLD_KEYWORD keywords[] = {{REGIONINFO, "RegionInfo", VTYPE_BLOCK, nullptr},
                                {0, nullptr, 0, nullptr}};

const vld::Field fields[] = {
    {.code = REGIONINFO,
     .kind = Kind::BlockList,
     .offset = offsetof(statsfile, regions),
     .sub = vld::vld_regioninfo_record},
};

const vld::Record record = {
    .block = "StatsFile",
    .keywords = keywords,
    .fields = fields,
    .nfields = vld::count_of(fields),
    .size = sizeof(statsfile),
};

}  // namespace

const vld::Record &vld::vld_statsfile_record()
{
    return record;
}

int ea_statsfile(statsfile **address)
{
    return vld::fam_alloc(address, record);
}
void ef_statsfile(statsfile *s)
{
    vld::rec_free(s, record);
}
int eg_statsfile(statsfile **address, const char *filename)
{
    return vld::fam_get(address, filename, record);
}
int ep_statsfile(const statsfile *s, const char *filename)
{
    return vld::rec_write(s, filename, record);
}
int cp_statsfile(statsfile **address, const statsfile *source)
{
    return vld::fam_dup(address, source, record);
}
