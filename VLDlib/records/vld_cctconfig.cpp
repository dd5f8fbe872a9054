/*
 * vld_cctconfig.cpp: CctConfigInfo, which files of a satellite tape set an
 * importer reads, and in which format.
 */
#include <cstddef>

#include "vld_docs.h"
#include "vld_record_internal.h"

namespace {

using vld::Kind;

enum : uint32_t {
    FORMAT = 1,
    VOLUMEDIRECTORYFILE,
    LEADERFILE,
    IMAGEFILEONE,
    IMAGEFILETWO,
    TRAILERFILE
};

const VLD_ENUM ev_format[] = {{CCT_FORMAT_ers1, "ers1"},
                              {CCT_FORMAT_spot, "spot"},
                              {CCT_FORMAT_amira, "amira"},
                              {CCT_FORMAT_general, "general"},
                              {0, nullptr}};

const VLD_KEYWORD keywords[] = {{FORMAT, "Format", VTYPE_ENUM, ev_format},
                                {VOLUMEDIRECTORYFILE, "VolumeDirectoryFile", VTYPE_STRING, nullptr},
                                {LEADERFILE, "LeaderFile", VTYPE_STRING, nullptr},
                                {IMAGEFILEONE, "ImageFileOne", VTYPE_STRING, nullptr},
                                {IMAGEFILETWO, "ImageFileTwo", VTYPE_STRING, nullptr},
                                {TRAILERFILE, "TrailerFile", VTYPE_STRING, nullptr},
                                {0, nullptr, 0, nullptr}};

#define CC(m) offsetof(cctconfiginfo, m)
const vld::Field fields[] = {
    {.code = FORMAT, .kind = Kind::Enum, .offset = CC(format)},
    {.code = VOLUMEDIRECTORYFILE, .kind = Kind::String, .offset = CC(volume_directory_file)},
    {.code = LEADERFILE, .kind = Kind::String, .offset = CC(leader_file)},
    {.code = IMAGEFILEONE, .kind = Kind::String, .offset = CC(image_file_one)},
    {.code = IMAGEFILETWO, .kind = Kind::String, .offset = CC(image_file_two)},
    {.code = TRAILERFILE, .kind = Kind::String, .offset = CC(trailer_file)},
};
#undef CC

const vld::Record record = {
    .block = "CctConfigInfo",
    .keywords = keywords,
    .fields = fields,
    .nfields = vld::count_of(fields),
    .size = sizeof(cctconfiginfo),
};

}  // namespace

const vld::Record &vld::vld_cctconfiginfo_record()
{
    return record;
}

int ea_cctconfiginfo(cctconfiginfo **address)
{
    return vld::fam_alloc(address, record);
}
void ef_cctconfiginfo(cctconfiginfo *c)
{
    vld::rec_free(c, record);
}
int eg_cctconfiginfo(cctconfiginfo **address, const char *filename)
{
    return vld::fam_get(address, filename, record);
}
int eg_cctconfiginfo_noalloc(cctconfiginfo *c, const char *filename)
{
    return vld::rec_read(c, filename, record);
}
int ep_cctconfiginfo(const cctconfiginfo *c, const char *filename)
{
    return vld::rec_write(c, filename, record);
}
