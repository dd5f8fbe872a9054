/*
 * vld_hardcopy.cpp: Hardcopyinfo, the description of a printing device, with
 * its Gamma block and its BackGroundColour. Both blocks hold Red, Green and
 * Blue as real numbers, and both are left out while all three are 0.
 */
#include <cstddef>

#include "vld_docs.h"
#include "vld_record_internal.h"

namespace {

using vld::Kind;

/* ---------------------------------------------------------------- Gamma and colour */

enum : uint32_t { RED = 1, GREEN, BLUE };

const VLD_KEYWORD rgb_keywords[] = {{RED, "Red", VTYPE_FLOAT, nullptr},
                                    {GREEN, "Green", VTYPE_FLOAT, nullptr},
                                    {BLUE, "Blue", VTYPE_FLOAT, nullptr},
                                    {0, nullptr, 0, nullptr}};

static_assert(sizeof(gammainfo) == sizeof(hardcopycolour) &&
                  offsetof(gammainfo, blue) == offsetof(hardcopycolour, blue),
              "Gamma and BackGroundColour share one descriptor");

const vld::Field rgb_fields[] = {
    {.code = RED, .kind = Kind::Double, .offset = offsetof(gammainfo, red)},
    {.code = GREEN, .kind = Kind::Double, .offset = offsetof(gammainfo, green)},
    {.code = BLUE, .kind = Kind::Double, .offset = offsetof(gammainfo, blue)},
};

const vld::Record gamma_record = {
    .block = "Gamma",
    .keywords = rgb_keywords,
    .fields = rgb_fields,
    .nfields = vld::count_of(rgb_fields),
    .size = sizeof(gammainfo),
};

bool all_zero(const double *rgb)
{
    return rgb[0] == 0.0 && rgb[1] == 0.0 && rgb[2] == 0.0;
}

/* ---------------------------------------------------------------- Hardcopyinfo */

enum : uint32_t {
    NAME = 1,
    COMMENTS,
    DOTSPERINCHACROSS,
    DOTSPERINCHDOWN,
    MAXIMUMDOTSACROSS,
    MAXIMUMDOTSDOWN,
    FILTERPROGRAM,
    OUTPUTPROGRAM,
    GAMMALUT,
    GAMMA,
    BACKGROUNDCOLOUR
};

const VLD_KEYWORD keywords[] = {{NAME, "Name", VTYPE_STRING, nullptr},
                                {COMMENTS, "Comments", VTYPE_STRING, nullptr},
                                {DOTSPERINCHACROSS, "DotsPerInchAcross", VTYPE_FLOAT, nullptr},
                                {DOTSPERINCHDOWN, "DotsPerInchDown", VTYPE_FLOAT, nullptr},
                                {MAXIMUMDOTSACROSS, "MaximumDotsAcross", VTYPE_INT, nullptr},
                                {MAXIMUMDOTSDOWN, "MaximumDotsDown", VTYPE_INT, nullptr},
                                {FILTERPROGRAM, "FilterProgram", VTYPE_STRING, nullptr},
                                {OUTPUTPROGRAM, "OutputProgram", VTYPE_STRING, nullptr},
                                {GAMMALUT, "GammaLut", VTYPE_STRING, nullptr},
                                {GAMMA, "Gamma", VTYPE_BLOCK, nullptr},
                                {BACKGROUNDCOLOUR, "BackGroundColour", VTYPE_BLOCK, nullptr},
                                {0, nullptr, 0, nullptr}};

const hardcopyinfo &hc(const void *r)
{
    return *static_cast<const hardcopyinfo *>(r);
}
bool no_gamma(const void *r, const void *)
{
    return all_zero(&hc(r).gamma.red);
}
bool no_background(const void *r, const void *)
{
    return all_zero(&hc(r).background_colour.red);
}

#define HC(m) offsetof(hardcopyinfo, m)
const vld::Field fields[] = {
    {.code = NAME, .kind = Kind::String, .offset = HC(name)},
    {.code = COMMENTS, .kind = Kind::String, .offset = HC(comments)},
    {.code = DOTSPERINCHACROSS, .kind = Kind::Double, .offset = HC(dots_per_inch_across)},
    {.code = DOTSPERINCHDOWN, .kind = Kind::Double, .offset = HC(dots_per_inch_down)},
    {.code = MAXIMUMDOTSACROSS, .kind = Kind::Int32, .offset = HC(maximum_dots_across)},
    {.code = MAXIMUMDOTSDOWN, .kind = Kind::Int32, .offset = HC(maximum_dots_down)},
    {.code = FILTERPROGRAM, .kind = Kind::String, .offset = HC(filter_program)},
    {.code = OUTPUTPROGRAM, .kind = Kind::String, .offset = HC(output_program)},
    {.code = GAMMALUT, .kind = Kind::String, .offset = HC(gamma_lut)},
    {.code = GAMMA,
     .kind = Kind::Block,
     .offset = HC(gamma),
     .sub = vld::vld_gamma_record,
     .omit = no_gamma},
    {.code = BACKGROUNDCOLOUR,
     .kind = Kind::Block,
     .offset = HC(background_colour),
     .sub = vld::vld_gamma_record,
     .omit = no_background},
};
#undef HC

const vld::Record record = {
    .block = "Hardcopyinfo",
    .keywords = keywords,
    .fields = fields,
    .nfields = vld::count_of(fields),
    .size = sizeof(hardcopyinfo),
};

}  // namespace

const vld::Record &vld::vld_gamma_record()
{
    return gamma_record;
}
const vld::Record &vld::vld_hardcopyinfo_record()
{
    return record;
}

int ea_gamma(gammainfo **address)
{
    return vld::fam_alloc(address, gamma_record);
}
void ef_gamma(gammainfo *g)
{
    vld::rec_free(g, gamma_record);
}
int eg_gamma(gammainfo **address, const char *filename)
{
    return vld::fam_get(address, filename, gamma_record);
}
int eg_gamma_noalloc(gammainfo *g, const char *filename)
{
    return vld::rec_read(g, filename, gamma_record);
}
int ep_gamma(const gammainfo *g, const char *filename)
{
    return vld::rec_write(g, filename, gamma_record);
}
int ep_gamma_spec(const gammainfo *g, const char *filename, const char *block)
{
    return vld::rec_write(g, filename, gamma_record, nullptr, block);
}

int ea_hardcopyinfo(hardcopyinfo **address)
{
    return vld::fam_alloc(address, record);
}
void ef_hardcopyinfo(hardcopyinfo *h)
{
    vld::rec_free(h, record);
}
int eg_hardcopyinfo(hardcopyinfo **address, const char *filename)
{
    return vld::fam_get(address, filename, record);
}
int eg_hardcopyinfo_noalloc(hardcopyinfo *h, const char *filename)
{
    return vld::rec_read(h, filename, record);
}
int ep_hardcopyinfo(const hardcopyinfo *h, const char *filename)
{
    return vld::rec_write(h, filename, record);
}
