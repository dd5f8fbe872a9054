/*
 * vld_worldfile.cpp: reading, writing and finding world files, and the
 * registration of a header that they stand for.
 *
 * The transform of a header is built from its rotation and cell sizes, with
 * the map coordinate of the top-left cell's centre as translation; reading a
 * world file goes the other way and leaves the registration at that centre,
 * cell (0.5, 0.5). Names of world files follow the conventions of the image
 * formats: ".tfw" beside ".tif" and the like, tried in a fixed order.
 */
#include "vld_worldfile.h"

#include <fcntl.h>

#include <atomic>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "vld_blocktext.h"
#include "vld_coords.h"
#include "vln_fileio.h"
#include "vln_path.h"

namespace {

constexpr double kDegree = M_PI / 180.0;

/* Image types whose world file has a name of its own. */
struct Convention {
    const char *image;
    const char *world;
};
constexpr Convention kConventions[] = {
    {".hdr", ".blw"},  {".bil", ".blw"}, {".tif", ".tfw"}, {".tiff", ".tfw"}, {".jpg", ".jgw"},
    {".jpeg", ".jgw"}, {".png", ".pgw"}, {".gif", ".gfw"}, {".bmp", ".bpw"},  {".sid", ".sdw"},
};

std::string lower(std::string s)
{
    for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string upper(std::string s)
{
    for (char &c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

const char *conventional_world_ext(const std::string &image_ext)
{
    std::string ext = lower(image_ext);
    for (const Convention &c : kConventions)
        if (ext == c.image) return c.world;
    return nullptr;
}

/* The extensions of a translator's list, each with one leading dot:
 * "*.tif;.TIFF; jpg" gives ".tif", ".TIFF", ".jpg". */
std::vector<std::string> split_extensions(const char *list)
{
    std::vector<std::string> out;
    std::string item;
    for (const char *p = list ? list : "";; p++) {
        if (*p == ';' || *p == '\0') {
            size_t b = item.find_first_not_of(" \t*");
            size_t e = item.find_last_not_of(" \t");
            if (b != std::string::npos && e >= b) {
                std::string ext = item.substr(b, e - b + 1);
                if (ext[0] != '.') ext.insert(0, ".");
                if (ext.size() > 1) out.push_back(ext);
            }
            item.clear();
            if (!*p) break;
        } else {
            item += *p;
        }
    }
    return out;
}

bool list_holds(const std::vector<std::string> &list, const char *ext)
{
    for (const std::string &e : list)
        if (lower(e) == ext) return true;
    return false;
}

/* ".tif" gives ".tfw": a dot, the first and last letters, and "w". Only for
 * extensions of three letters or more. */
bool short_form(const std::string &ext, std::string &out)
{
    if (ext.size() < 4) return false;
    out = std::string(".") + ext[1] + ext.back() + "w";
    return true;
}

std::string ext_of(const char *path)
{
    char *e = VLN_get_ext(path);
    std::string ext = e ? e : "";
    safe_free(e);
    return ext;
}

std::string with_ext(const char *path, const std::string &ext)
{
    char *p = VLN_replace_ext(path, ext.c_str());
    std::string out = p ? p : "";
    safe_free(p);
    return out;
}

/* The names tried for the world file of `image`, in order. */
std::vector<std::string> candidates(const char *image, const char *extensions)
{
    std::vector<std::string> names;
    std::string own = ext_of(image), form;
    std::vector<std::string> list = split_extensions(extensions);
    if (const char *w = conventional_world_ext(own)) names.push_back(with_ext(image, w));
    if (short_form(own, form)) names.push_back(with_ext(image, form));
    for (const std::string &e : list)
        if (short_form(e, form)) names.push_back(with_ext(image, form));
    for (const std::string &e : list) names.push_back(with_ext(image, e + "w"));
    names.push_back(with_ext(image, ".wld"));
    names.push_back(std::string(image) + "w");
    if (list_holds(list, ".jpg")) {
        names.push_back(with_ext(image, ".jpw"));
        names.push_back(with_ext(image, ".jpegw"));
    }
    if (list_holds(list, ".hdr")) {
        names.push_back(with_ext(image, ".bilw"));
        names.push_back(with_ext(image, ".hdrw"));
    }
    if (list_holds(list, ".tif")) {
        names.push_back(with_ext(image, ".tiffw"));
        names.push_back(with_ext(image, ".tiw"));
    }
    return names;
}

/* A world file opened for reading; null for anything but a regular file,
 * which is refused without waiting on it (a FIFO would block the open). */
FILE *open_world_file(const char *path)
{
    int fd = vln_open_data(path, O_RDONLY, 0);
    if (fd < 0) return nullptr;
    FILE *f = fdopen(fd, "r");
    if (!f) vln_close(fd);
    return f;
}

bool opens(const std::string &path)
{
    FILE *f = open_world_file(path.c_str());
    if (!f) return false;
    std::fclose(f);
    return true;
}

/* A name as made, then with its extension in lower and in upper case: names
 * on this system are case sensitive, and images travel from systems where
 * they aren't. */
bool find_variant(const std::string &name, std::string &found)
{
    size_t dot = name.rfind('.');
    size_t sep = name.find_last_of('/');
    std::vector<std::string> tries = {name};
    if (dot != std::string::npos && (sep == std::string::npos || dot > sep)) {
        std::string stem = name.substr(0, dot), ext = name.substr(dot);
        tries.push_back(stem + lower(ext));
        tries.push_back(stem + upper(ext));
    }
    for (const std::string &t : tries) {
        if (opens(t)) {
            found = t;
            return true;
        }
    }
    return false;
}

void compose(double sx, double sy, double rotation, double e, double f, affine &t)
{
    double c = std::cos(rotation), s = std::sin(rotation);
    t = affine{};
    t.c = c * sx;
    t.d = -c * sy;
    t.a = -s * sy;
    t.b = -s * sx;
    t.e = e;
    t.f = f;
}

int invalid_error(int type)
{
    return VLD_setup_error(VLD_ERR_INTERNAL, type == AFFINE_INVALID
                                                 ? "Invalid Affine Transformation"
                                                 : "Affine Transformation contains shearing");
}

/* Rotation, cell sizes and translation of a usable transform: the inverse of
 * VLN_get_affine_transform. */
struct Parts {
    double rotation, sx, sy, tx, ty;
};

int decompose(const affine *t, Parts &p)
{
    if (!t) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    int type = VLN_get_transform_type(t);
    if (type != AFFINE_USABLE) return invalid_error(type);
    p.rotation = std::atan2(-t->b, t->c);
    p.sx = std::hypot(t->c, t->b);
    p.sy = std::hypot(t->a, t->d);
    p.tx = t->e;
    p.ty = t->f;
    return 0;
}

int get_term(double *value, const affine *t, double Parts::*term)
{
    Parts p{};
    if (int status = decompose(t, p)) return status;
    if (value) *value = p.*term;
    return 0;
}

/* Writes the six numbers through a temporary file beside the target. */
int write_numbers(const affine *t, const std::string &target)
{
    if (fileexists(target.c_str()) && !canwrite(target.c_str()))
        return VLD_setup_error(VLD_ERR_CANNOT_WRITE_FILE, target.c_str());
    std::string temp = target + ".tmp";
    FILE *f = std::fopen(temp.c_str(), "w");
    if (!f) return VLD_setup_error(VLD_ERR_CANNOT_WRITE_FILE, target.c_str());
    const double values[6] = {t->c, t->b, t->a, t->d, t->e, t->f};
    bool ok = true;
    for (int i = 0; i < 6; i++)
        ok = std::fprintf(f, i < 5 ? "%.17g\n" : "%.17g", values[i]) > 0 && ok;
    ok = std::fclose(f) == 0 && ok;
    if (!ok || vln_rename(temp.c_str(), target.c_str()) != 0) {
        std::remove(temp.c_str());
        return VLD_setup_error(VLD_ERR_CANNOT_WRITE_FILE, target.c_str());
    }
    return 0;
}

void replace(char *&slot, const char *text)
{
    char *copy = strsave(text);
    safe_free(slot);
    slot = copy;
}

std::atomic<int> world_file_pref{-1};
std::atomic<int> world_file_save_as_pref{-1};

}  // namespace

int VLN_get_transform_type(const affine *t)
{
    if (!t) return AFFINE_INVALID;
    if ((t->c == 0 && t->a == 0) || (t->d == 0 && t->b == 0)) return AFFINE_INVALID;
    if ((t->c == 0) != (t->d == 0) || (t->a == 0) != (t->b == 0)) return AFFINE_SHEARED;
    if (t->c == 0 || t->d == 0 || t->a == 0 || t->b == 0) return AFFINE_USABLE;
    double diff = std::fabs(std::fabs(t->c / t->d) - std::fabs(t->b / t->a));
    return diff < 1e-5 ? AFFINE_USABLE : AFFINE_SHEARED;
}

int VLN_get_affine_transform(double sx, double sy, double rotation, double e, double f, affine *t)
{
    if (!t) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    compose(sx, sy, rotation, e, f, *t);
    if (VLN_get_transform_type(t) == AFFINE_INVALID)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Invalid Affine Transformation");
    return 0;
}

int VLN_get_affine_transform_from_dshdr(const dshdr *d, affine *t)
{
    if (!d || !t) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    if (d->data_type != DT_Raster)
        return VLD_setup_error(VLD_ERR_INTERNAL, "World file for a non-raster dataset");
    dscoord centre{};
    if (int status = cvt_cell_to_coord(d, 0.5, 0.5, &centre)) return status;
    if (d->coordspace.coordsystype == CST_LL) {
        centre.x /= kDegree;
        centre.y /= kDegree;
    }
    const cellinfo &cells = d->info.r.cellinfo;
    compose(cells.x_dimension, cells.y_dimension, d->coordspace.rotation, centre.x, centre.y, *t);
    if (VLN_get_transform_type(t) == AFFINE_INVALID) {
        std::string text = "Invalid Affine Transformation in dataset ";
        text += d->name ? d->name : "";
        return VLD_setup_error(VLD_ERR_INTERNAL, text.c_str());
    }
    return 0;
}

int VLN_get_affine_transform_from_world_file(affine *t, const char *path)
{
    if (!t) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    if (!path || !*path) return VLD_setup_error(VLD_ERR_NULL_FILE_SPEC);
    FILE *f = open_world_file(path);
    if (!f) return VLD_setup_error(VLD_ERR_MESSAGE, path);
    double *const slots[6] = {&t->c, &t->b, &t->a, &t->d, &t->e, &t->f};
    int read = 0;
    while (read < 6 && std::fscanf(f, "%lf", slots[read]) == 1) read++;
    std::fclose(f);
    if (read < 6) {
        char text[1024];
        std::snprintf(text, sizeof text, "%s is not a valid world file.", path);
        return VLD_setup_error(VLD_ERR_INTERNAL, text);
    }
    return 0;
}

int VLN_check_for_world_file(char **path, const char *image, const char *extensions)
{
    if (!path || !image || !*image) return 1;
    for (const std::string &name : candidates(image, extensions)) {
        std::string found;
        if (find_variant(name, found)) {
            *path = strsave(found.c_str());
            return 0;
        }
    }
    return 1;
}

int VLN_translator_supports_world_files(const char *extensions)
{
    for (const std::string &e : split_extensions(extensions))
        if (conventional_world_ext(e)) return 1;
    return 0;
}

int VLN_add_world_file_params_to_dshdr(dshdr *d, const char *path)
{
    if (!d) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    if (d->data_type != DT_Raster)
        return VLD_setup_error(VLD_ERR_INTERNAL, "World file for a non-raster dataset");
    affine t{};
    Parts p{};
    if (int status = VLN_get_affine_transform_from_world_file(&t, path)) return status;
    if (int status = decompose(&t, p)) return status;
    coordspace &cs = d->coordspace;
    double factor = get_meter_factor_from_datum_proj(cs.datum, cs.projection, cs.units);
    rasterinfo &r = d->info.r;
    cs.rotation = p.rotation;
    r.cellinfo.x_dimension = p.sx * factor;
    r.cellinfo.y_dimension = p.sy * factor;
    r.registration_cell_x = 0.5;
    r.registration_cell_y = 0.5;
    if (cs.coordsystype == CST_None || cs.coordsystype == CST_RAW) {
        // Raw coordinates run down the page; a world file's run up it, so the
        // space becomes a local grid.
        cs.coordsystype = CST_EN;
        replace(cs.datum, "WGS84");
        replace(cs.projection, "LOCAL");
        cs.meter_factor = 1.0;
    }
    double scale = cs.coordsystype == CST_LL ? kDegree : 1.0;
    r.registration_coord.x = p.tx * scale;
    r.registration_coord.y = p.ty * scale;
    return 0;
}

int VLN_write_world_file(const affine *t, const char *image, const char *extensions)
{
    if (!t) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    if (!image || !*image) return VLD_setup_error(VLD_ERR_NULL_FILE_SPEC);
    int type = VLN_get_transform_type(t);
    if (type != AFFINE_USABLE) return invalid_error(type);
    char *existing = nullptr;
    std::string target;
    if (VLN_check_for_world_file(&existing, image, extensions) == 0) {
        target = existing;
        safe_free(existing);
    } else if (const char *w = conventional_world_ext(ext_of(image))) {
        target = with_ext(image, w);
    } else {
        return 0;
    }
    return write_numbers(t, target);
}

int VLN_write_world_file_for_dshdr(const dshdr *d)
{
    if (!d) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    if (d->dataset_type != DST_Translated || !d->data_file || !*d->data_file)
        return VLD_setup_error(VLD_ERR_INTERNAL, "\nThis is not a translated dataset.");
    affine t{};
    if (int status = VLN_get_affine_transform_from_dshdr(d, &t)) return status;
    // A relative data file lies beside the header.
    std::string image = d->data_file;
    char *dir = (!VLN_path_is_abs(d->data_file) && d->name) ? VLN_get_dirname(d->name) : nullptr;
    if (dir) image = std::string(dir) + "/" + image;
    safe_free(dir);
    return VLN_write_world_file(&t, image.c_str(), ext_of(image.c_str()).c_str());
}

int VLN_get_rotation(double *value, const affine *t)
{
    return get_term(value, t, &Parts::rotation);
}
int VLN_get_cellsize_x(double *value, const affine *t)
{
    return get_term(value, t, &Parts::sx);
}
int VLN_get_cellsize_y(double *value, const affine *t)
{
    return get_term(value, t, &Parts::sy);
}
int VLN_get_translation_x(double *value, const affine *t)
{
    return get_term(value, t, &Parts::tx);
}
int VLN_get_translation_y(double *value, const affine *t)
{
    return get_term(value, t, &Parts::ty);
}

int VLN_decompose_affine_transform(const affine *t, double *rotation, double *sx, double *sy,
                                   double *tx, double *ty)
{
    Parts p{};
    if (int status = decompose(t, p)) return status;
    if (rotation) *rotation = p.rotation;
    if (sx) *sx = p.sx;
    if (sy) *sy = p.sy;
    if (tx) *tx = p.tx;
    if (ty) *ty = p.ty;
    return 0;
}

int VLN_get_world_file_pref(int fallback)
{
    int v = world_file_pref.load();
    return v < 0 ? fallback : v;
}
void VLN_set_world_file_pref(int value)
{
    world_file_pref.store(value ? 1 : 0);
}
int VLN_get_world_file_save_as_pref(int fallback)
{
    int v = world_file_save_as_pref.load();
    return v < 0 ? fallback : v;
}
void VLN_set_world_file_save_as_pref(int value)
{
    world_file_save_as_pref.store(value ? 1 : 0);
}
