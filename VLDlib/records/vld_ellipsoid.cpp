/*
 * vld_ellipsoid.cpp: Ellipsoid, a reference ellipsoid by type or by its two
 * numbers. Old coordinate spaces hold one, which their reader drops.
 */
#include <cstddef>

#include "vld_docs.h"
#include "vld_record_internal.h"

namespace {

enum : uint32_t { ELLIPSOIDTYPE = 1, EQUATORIALRADIUS, ECCENTRICITYSQUARED };

const VLD_ENUM ev_ellipsoid_type[] = {
    {0, "None"},      {1, "UserDefined"},   {2, "GRS80"},      {3, "WGS72"},      {4, "ANS"},
    {5, "Krasovsky"}, {6, "International"}, {7, "Clarke1880"}, {8, "Clarke1866"}, {9, "Airy"},
    {10, "Bessel"},   {11, "Everest"},      {0, nullptr}};

const VLD_KEYWORD keywords[] = {{ELLIPSOIDTYPE, "EllipsoidType", VTYPE_ENUM, ev_ellipsoid_type},
                                {EQUATORIALRADIUS, "EquatorialRadius", VTYPE_FLOAT, nullptr},
                                {ECCENTRICITYSQUARED, "EccentricitySquared", VTYPE_FLOAT, nullptr},
                                {0, nullptr, 0, nullptr}};

using vld::Kind;
const vld::Field fields[] = {
    {.code = ELLIPSOIDTYPE, .kind = Kind::Enum, .offset = offsetof(ellipsoid, ellipsoid_type)},
    {.code = EQUATORIALRADIUS,
     .kind = Kind::Double,
     .offset = offsetof(ellipsoid, equatorial_radius)},
    {.code = ECCENTRICITYSQUARED,
     .kind = Kind::Double,
     .offset = offsetof(ellipsoid, eccentricity_squared)},
};

const vld::Record record = {
    .block = "Ellipsoid",
    .keywords = keywords,
    .fields = fields,
    .nfields = vld::count_of(fields),
    .size = sizeof(ellipsoid),
};

}  // namespace

const vld::Record &vld::vld_ellipsoid_record()
{
    return record;
}

int ea_ellipsoid(ellipsoid **address)
{
    return vld::fam_alloc(address, record);
}
int ee_ellipsoid(VLD_KEYWORD **array)
{
    return vld::rec_enumerate(array, record);
}
void ef_ellipsoid(ellipsoid *e)
{
    vld::rec_free(e, record);
}
int eg_ellipsoid(ellipsoid **address, const char *filename)
{
    return vld::fam_get(address, filename, record);
}
int eg_ellipsoid_noalloc(ellipsoid *e, const char *filename)
{
    return vld::rec_read(e, filename, record);
}
int ep_ellipsoid(const ellipsoid *e, const char *filename)
{
    return vld::rec_write(e, filename, record);
}
int ep_ellipsoid_spec(const ellipsoid *e, const char *filename, const char *block)
{
    return vld::rec_write(e, filename, record, nullptr, block);
}
int cp_ellipsoid(ellipsoid **address, const ellipsoid *source)
{
    return vld::fam_dup(address, source, record);
}
int cp_ellipsoid_noalloc(ellipsoid *copy, const ellipsoid *source)
{
    return vld::fam_copy(copy, source, record);
}
