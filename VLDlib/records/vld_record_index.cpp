/*
 * vld_record_index.cpp: the one index of records by the name of their own
 * block, and the small documents' entries in it. Other parts register their
 * records beside them.
 */
#include <utility>
#include <vector>

#include "vld_record_internal.h"

namespace vld {

namespace {

const RecordEntry small_documents[] = {
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
    {"ScreenDef", vld_screendef_record},
    {"StatsFile", vld_statsfile_record},
    {"UserParameter", vld_userparam_record},
    {"VLNConfig", vld_config_record},
    {"Windef", vld_windef_record},
};

/* The tables registered so far; built on first use, so that registrations
 * from any file find it ready whatever the order of loading. */
std::vector<std::pair<const RecordEntry *, size_t>> &tables()
{
    static std::vector<std::pair<const RecordEntry *, size_t>> all;
    return all;
}

const RecordRegistration small_documents_registration(small_documents, count_of(small_documents));

}  // namespace

RecordRegistration::RecordRegistration(const RecordEntry *entries, size_t count)
{
    tables().emplace_back(entries, count);
}

const Record *rec_by_block(const char *block)
{
    if (!block) return nullptr;
    for (const auto &table : tables())
        for (size_t i = 0; i < table.second; i++)
            if (VLD_strcasecmp(table.first[i].block, block) == 0) return &table.first[i].record();
    return nullptr;
}

int rec_equal_by_block(const char *block, const void *a, const void *b)
{
    const Record *r = rec_by_block(block);
    if (!r) return -1;
    return rec_equal(a, b, *r) ? 1 : 0;
}

}  // namespace vld
