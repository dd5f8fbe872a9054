/*
 * proj_usgs.cpp: the bridge to the public GCTP library. A system named
 * "USGS <projection> <zone> <p1> ... <p15>" hands its points to GCTP's one
 * entry, with GCTP's own projection numbers and parameter array; numbers not
 * given are 0. GCTP's spheroid argument is fixed at 0 (Clarke 1866), so the
 * datum of the system does not reach GCTP. Geographic input and output are
 * radians, the projected side metres; GCTP prints nothing.
 */
#include <cstdio>
#include <cstdlib>
#include <cstring>

// GCTP's header declares its functions without C linkage for C++.
extern "C" {
#include <gctp/proj.h>
}

#include "gdt_proj_internal.h"

namespace {

constexpr int kTextSize = kGdtUsgsTextSize;

/* The block starts with the parameter text, which the engine stores there. */
struct Usgs {
    char text[kTextSize];
    int32_t system, zone;
    double parm[15];
};

Usgs proto;

/* Kept: the engine copies the system's parameter text into the block before
 * init, since init takes the block alone. */
int init(void *block)
{
    auto *p = static_cast<Usgs *>(block);
    char copy[kTextSize];
    std::snprintf(copy, sizeof copy, "%s", p->text);
    char *save = nullptr;
    char *word = strtok_r(copy, " \t", &save); /* "USGS" */
    word = strtok_r(nullptr, " \t", &save);
    if (!word) return -1;
    char *end;
    p->system = static_cast<int32_t>(std::strtol(word, &end, 10));
    if (*end || p->system <= 0 || p->system > 99) return -1;
    p->zone = 0;
    std::memset(p->parm, 0, sizeof p->parm);
    if ((word = strtok_r(nullptr, " \t", &save)))
        p->zone = static_cast<int32_t>(std::strtol(word, nullptr, 10));
    for (int i = 0; i < 15 && (word = strtok_r(nullptr, " \t", &save)); i++)
        p->parm[i] = std::strtod(word, nullptr);
    return 0;
}

int run(const Usgs *p, bool forward, double a, double b, double *oa, double *ob)
{
    double in[2] = {a, b}, out[2] = {0, 0};
    double geo_parm[15] = {0};
    double parm[15];
    std::memcpy(parm, p->parm, sizeof parm);
    long geo = 0, geo_zone = 0, radians = 0, metres = 2, spheroid = 0, quiet = 99;
    long system = p->system, zone = p->zone, status = 0;
    char no_file[] = "", fn27[] = "", fn83[] = "";
    if (forward)
        gctp(in, &geo, &geo_zone, geo_parm, &radians, &spheroid, &quiet, no_file, &quiet, no_file,
             out, &system, &zone, parm, &metres, &spheroid, fn27, fn83, &status);
    else
        gctp(in, &system, &zone, parm, &metres, &spheroid, &quiet, no_file, &quiet, no_file, out,
             &geo, &geo_zone, geo_parm, &radians, &spheroid, fn27, fn83, &status);
    *oa = out[0];
    *ob = out[1];
    return static_cast<int>(status);
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    return run(static_cast<const Usgs *>(block), true, lon, lat, x, y);
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    return run(static_cast<const Usgs *>(block), false, x, y, lon, lat);
}

}  // namespace

int gdt_usgs_install()
{
    Usgs &b = proto;
    const gdt_proj_par pars[] = {{".system", &b.system, "l"}, {".zone", &b.zone, "l"}};
    return gdt_proj_install("usgs", &proto, sizeof proto, pars, init, forward, backward, 1);
}
