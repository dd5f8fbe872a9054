/*
 * vld_fontnode.cpp: FontNode, a named text style: the item it applies to and
 * the text attributes of a vector text object (font, size, type, mode,
 * justification, pen, rotation in degrees, colour). Old vector headers hold
 * such blocks, which their reader drops.
 */
#include <cstddef>

#include "vld_docs.h"
#include "vld_record_internal.h"

namespace {

using vld::Kind;

enum : uint32_t {
    ITEM = 1,
    FONTNAME,
    FONTSIZE,
    FONTTYPE,
    TEXTMODE,
    JUSTIFY,
    PEN,
    ROTATION,
    RED,
    GREEN,
    BLUE
};

const VLD_KEYWORD keywords[] = {{ITEM, "Item", VTYPE_STRING, nullptr},
                                {FONTNAME, "FontName", VTYPE_STRING, nullptr},
                                {FONTSIZE, "FontSize", VTYPE_FLOAT, nullptr},
                                {FONTTYPE, "FontType", VTYPE_INT, nullptr},
                                {TEXTMODE, "TextMode", VTYPE_INT, nullptr},
                                {JUSTIFY, "Justify", VTYPE_INT, nullptr},
                                {PEN, "Pen", VTYPE_INT, nullptr},
                                {ROTATION, "Rotation", VTYPE_FLOAT, nullptr},
                                {RED, "Red", VTYPE_INT, nullptr},
                                {GREEN, "Green", VTYPE_INT, nullptr},
                                {BLUE, "Blue", VTYPE_INT, nullptr},
                                {0, nullptr, 0, nullptr}};

#define FN(m) offsetof(fontnode, m)
const vld::Field fields[] = {
    {.code = ITEM, .kind = Kind::String, .offset = FN(item)},
    {.code = FONTNAME, .kind = Kind::String, .offset = FN(font_name)},
    {.code = FONTSIZE, .kind = Kind::Double, .offset = FN(font_size)},
    {.code = FONTTYPE, .kind = Kind::Int32, .offset = FN(font_type)},
    {.code = TEXTMODE, .kind = Kind::Int32, .offset = FN(text_mode)},
    {.code = JUSTIFY, .kind = Kind::Int32, .offset = FN(justify)},
    {.code = PEN, .kind = Kind::Int32, .offset = FN(pen)},
    {.code = ROTATION, .kind = Kind::Double, .offset = FN(rotation)},
    {.code = RED, .kind = Kind::Int32, .offset = FN(red)},
    {.code = GREEN, .kind = Kind::Int32, .offset = FN(green)},
    {.code = BLUE, .kind = Kind::Int32, .offset = FN(blue)},
};
#undef FN

const vld::Record record = {
    .block = "FontNode",
    .keywords = keywords,
    .fields = fields,
    .nfields = vld::count_of(fields),
    .size = sizeof(fontnode),
};

}  // namespace

const vld::Record &vld::vld_fontnode_record()
{
    return record;
}

int ea_fontnode(fontnode **address)
{
    return vld::fam_alloc(address, record);
}
int ee_fontnode(VLD_KEYWORD **array)
{
    return vld::rec_enumerate(array, record);
}
void ef_fontnode(fontnode *f)
{
    vld::rec_free(f, record);
}
int eg_fontnode(fontnode **address, const char *filename)
{
    return vld::fam_get(address, filename, record);
}
int eg_fontnode_noalloc(fontnode *f, const char *filename)
{
    return vld::rec_read(f, filename, record);
}
int ep_fontnode(const fontnode *f, const char *filename)
{
    return vld::rec_write(f, filename, record);
}
