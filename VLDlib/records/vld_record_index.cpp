/*
 * vld_record_index.cpp: the records of the module by the name of their own
 * block, for code that holds a record and knows only what it is called.
 */
#include "vld_record_internal.h"

namespace vld {

namespace {

struct Entry {
    const char *block;
    const Record &(*record)();
};

const Entry index_of_records[] = {
    {"AllowedValues", vld_allowed_record},
    {"CctConfigInfo", vld_cctconfiginfo_record},
    {"CellInfo", vld_cellinfo_record},
    {"ClipInfo", vld_clipinfo_record},
    {"DigConfigInfo", vld_digconfiginfo_record},
    {"DigSessionInfo", vld_digsessioninfo_record},
    {"DigTypeInfo", vld_digtypeinfo_record},
    {"DisplayDef", vld_displaydef_record},
    {"DisplayInfo", vld_displayinfo_record},
    {"DlinkParam", vld_dlinkparam_record},
    {"Ellipsoid", vld_ellipsoid_record},
    {"FontNode", vld_fontnode_record},
    {"Gamma", vld_gamma_record},
    {"Hardcopyinfo", vld_hardcopyinfo_record},
    {"LookUpTable", vld_lut_record},
    {"MapHints", vld_maphints_record},
    {"RegionInfo", vld_regioninfo_record},
    {"ScreenDef", vld_screendef_record},
    {"StatsFile", vld_statsfile_record},
    {"UserParameter", vld_userparam_record},
    {"VLNConfig", vld_config_record},
    {"WarpControl", vld_warp_control_record},
    {"Windef", vld_windef_record},
};

}  // namespace

const Record *rec_by_block(const char *block)
{
    if (!block) return nullptr;
    for (const Entry &e : index_of_records)
        if (VLD_strcasecmp(e.block, block) == 0) return &e.record();
    return nullptr;
}

}  // namespace vld

int VLD_record_equal(const char *block, const void *a, const void *b)
{
    const vld::Record *r = vld::rec_by_block(block);
    if (!r) return -1;
    return vld::rec_equal(a, b, *r) ? 1 : 0;
}
