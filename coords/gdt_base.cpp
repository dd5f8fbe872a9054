/*
 * gdt_base.cpp: the table of base projections and its install calls.
 *
 * A member of the projection family enters the table once, at the engine's
 * start, through a fixed sequence: gdt_proj_create names it and gives a
 * prototype of its parameter block, gdt_proj_ins_par adds each attribute,
 * gdt_proj_ins_funcs its three functions, gdt_proj_ins_mode its mode bits,
 * and gdt_proj_end files the row.
 */
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "gdt_internal.h"
#include "gdt_proj_internal.h"

namespace {

gdt::Base bases[gdt::kMaxBases];
int count = 0;
gdt::Base pending;
bool installing = false;

}  // namespace

gdt::Base *gdt::base_at(int index)
{
    return index >= 0 && index < count ? &bases[index] : nullptr;
}

int gdt::base_count()
{
    return count;
}

int gdt::find_base(const char *name)
{
    for (int i = 0; i < count; i++)
        if (std::strcmp(bases[i].name, name) == 0) return i;
    return -1;
}

int gdt_proj_create(const char *name, void *block, int block_size)
{
    if (count >= gdt::kMaxBases) {
        gdt::report('P', 0, "Too many base projections");
        return -1;
    }
    pending = gdt::Base{};
    std::snprintf(pending.name, sizeof pending.name, "%s", name);
    pending.block_size = block_size;
    installing = true;
    return struct_begin(name, block);
}

int gdt_proj_ins_par(const char *name, void *address, const char *type)
{
    return installing ? struct_add(name, address, type) : -1;
}

int gdt_proj_ins_funcs(gdt_proj_init_fn init, gdt_proj_conv_fn forward, gdt_proj_conv_fn backward)
{
    if (!installing) return -1;
    pending.init = init;
    pending.forward = forward;
    pending.backward = backward;
    return 0;
}

int gdt_proj_ins_mode(int bits)
{
    if (!installing) return -1;
    pending.mode = bits;
    return 0;
}

int gdt_proj_end(void)
{
    if (!installing) return -1;
    installing = false;
    pending.description = struct_end();
    if (!pending.description) return -1;
    pending.radius_offset = struct_offset(pending.description, "spheroid.radius");
    pending.eccentricity_offset = struct_offset(pending.description, "spheroid.eccentricity");
    pending.long_cut_offset = struct_offset(pending.description, "long_cut");
    bases[count++] = pending;
    return 0;
}

int gdt_inq_next_base(char *name)
{
    static int cursor = 0;
    if (gdt::engine_start() != 0) return -1;
    if (!name) {
        cursor = 0;
        return 0;
    }
    if (cursor >= count) {
        name[0] = '\0';
        return 1;
    }
    std::strcpy(name, bases[cursor++].name);
    return 0;
}

int gdt_proj_install(const char *name, void *proto, int size, const gdt_proj_par *pars, int count,
                     gdt_proj_init_fn init, gdt_proj_conv_fn forward, gdt_proj_conv_fn backward,
                     int mode)
{
    int bad = gdt_proj_create(name, proto, size);
    for (int i = 0; i < count; i++)
        bad |= gdt_proj_ins_par(pars[i].name, pars[i].address, pars[i].type);
    bad |= gdt_proj_ins_funcs(init, forward, backward);
    bad |= gdt_proj_ins_mode(mode);
    bad |= gdt_proj_end();
    return bad ? -1 : 0;
}

/* ---------------------------------------------------------------- field wrappers */

namespace {

/* The block of a "field_" base: the affine constants, their inverse, the
 * real base's index, and then a copy of the real base's block. */
struct FieldHead {
    gdt::Affine affine;
    gdt::Affine inverse;
    int32_t real;
    int32_t pad;
};

void *real_block(void *block)
{
    return static_cast<char *>(block) + sizeof(FieldHead);
}

int field_init(void *block)
{
    auto *f = static_cast<FieldHead *>(block);
    const gdt::Affine &a = f->affine;
    const double det = a.map_x_xfact * a.map_y_yfact - a.map_x_yfact * a.map_y_xfact;
    if (det == 0) return -1;
    gdt::Affine &i = f->inverse;
    i.map_x_xfact = a.map_y_yfact / det;
    i.map_x_yfact = -a.map_x_yfact / det;
    i.map_y_xfact = -a.map_y_xfact / det;
    i.map_y_yfact = a.map_x_xfact / det;
    i.map_x_offset = -(i.map_x_xfact * a.map_x_offset + i.map_x_yfact * a.map_y_offset);
    i.map_y_offset = -(i.map_y_xfact * a.map_x_offset + i.map_y_yfact * a.map_y_offset);
    const gdt::Base *real = gdt::base_at(f->real);
    return real != nullptr ? real->init(real_block(block)) : -1;
}

void apply(const gdt::Affine &a, double x, double y, double *ox, double *oy)
{
    *ox = a.map_x_offset + a.map_x_xfact * x + a.map_x_yfact * y;
    *oy = a.map_y_offset + a.map_y_xfact * x + a.map_y_yfact * y;
}

int field_forward(void *block, double lon, double lat, double *x, double *y)
{
    auto *f = static_cast<FieldHead *>(block);
    const gdt::Base *real = gdt::base_at(f->real);
    if (real == nullptr) return -1;
    double px = 0, py = 0;
    if (int status = real->forward(real_block(block), lon, lat, &px, &py)) return status;
    apply(f->affine, px, py, x, y);
    return 0;
}

int field_backward(void *block, double x, double y, double *lon, double *lat)
{
    auto *f = static_cast<FieldHead *>(block);
    const gdt::Base *real = gdt::base_at(f->real);
    if (real == nullptr) return -1;
    double px = 0, py = 0;
    apply(f->inverse, x, y, &px, &py);
    return real->backward(real_block(block), px, py, lon, lat);
}

}  // namespace

int gdt::field_base(int real_index)
{
    const Base *real = base_at(real_index);
    if (real == nullptr) return -1;
    char name[sizeof(Base::name)];
    std::snprintf(name, sizeof name, "field_%s", real->name);
    if (int found = find_base(name); found >= 0) return found;
    if (count >= kMaxBases) {
        report('P', 0, "Too many base projections");
        return -1;
    }
    // The description: the affine attributes first, the real base's behind.
    const size_t size = sizeof(FieldHead) + static_cast<size_t>(real->block_size);
    auto *proto = static_cast<char *>(std::calloc(1, size));
    if (proto == nullptr) return -1;
    struct_begin(name, proto);
    struct_add_struct(affine_description(), proto + offsetof(FieldHead, affine));
    struct_add_struct(real->description, proto + sizeof(FieldHead));
    gdt_struct_desc *description = struct_end();
    std::free(proto);
    if (description == nullptr) return -1;
    Base b{};
    std::snprintf(b.name, sizeof b.name, "%s", name);
    b.description = description;
    b.init = field_init;
    b.forward = field_forward;
    b.backward = field_backward;
    b.mode = real->mode;
    b.block_size = static_cast<int>(size);
    const int head = static_cast<int>(sizeof(FieldHead));
    b.radius_offset = real->radius_offset >= 0 ? real->radius_offset + head : -1;
    b.eccentricity_offset = real->eccentricity_offset >= 0 ? real->eccentricity_offset + head : -1;
    b.long_cut_offset = real->long_cut_offset >= 0 ? real->long_cut_offset + head : -1;
    bases[count++] = b;
    return count - 1;
}

int gdt::field_fill(void *block, int real_index, const Affine &affine)
{
    auto *f = static_cast<FieldHead *>(block);
    f->affine = affine;
    f->real = real_index;
    return static_cast<int>(sizeof(FieldHead));
}

/* The members of the family, in their order of installation. */
int gdt::base_install()
{
    static int (*const installs[])() = {
        gdt_coniced_install,  gdt_lambert1_install, gdt_lambert2_install,   gdt_mollweid_install,
        gdt_mercator_install, gdt_tranmerc_install, gdt_stm_install,        gdt_utm_install,
        gdt_albersea_install, gdt_regpol_install,   gdt_modpol_install,     gdt_azimuted_install,
        gdt_obmerc_b_install, gdt_stereo_install,   gdt_grinten_install,    gdt_lambazea_install,
        gdt_sinusoid_install, gdt_eckertiv_install, gdt_eckertvi_install,   gdt_placaree_install,
        gdt_cassini_install,  gdt_bioconco_install, gdt_dutch_install,      gdt_borneo_install,
        gdt_swiss_install,    gdt_winktrip_install, gdt_nzmapgrd_install,   gdt_labordom_install,
        gdt_bonne_install,    gdt_orthog_install,   gdt_gnomonic_install,   gdt_modstero_install,
        gdt_robinson_install, gdt_lamcon1_install,  gdt_lamcon2_install,    gdt_obmerc_c_install,
        gdt_usgs_install,     gdt_millercy_install, gdt_danish_uts_install,
    };
    for (auto install : installs)
        if (install() != 0) return -1;
    return 0;
}

void gdt::base_reset()
{
    for (int i = 0; i < count; i++) std::free(bases[i].description);
    count = 0;
}
