/*
 * vld_maphints.cpp: MapHints, how a composed map would like to be laid out on
 * its page: preview, page-relative placement, a square frame, a size and four
 * margins.
 */
#include <cstddef>

#include "vld_docs.h"
#include "vld_record_internal.h"

namespace {

using vld::Kind;

enum : uint32_t {
    FASTPREVIEWHINT = 1,
    PAGERELATIVEHINT,
    SQUAREHINT,
    WIDTHHINT,
    HEIGHTHINT,
    LEFTMARGINHINT,
    RIGHTMARGINHINT,
    TOPMARGINHINT,
    BOTTOMMARGINHINT
};

const VLD_KEYWORD keywords[] = {{FASTPREVIEWHINT, "FastPreviewHint", VTYPE_YN, nullptr},
                                {PAGERELATIVEHINT, "PageRelativeHint", VTYPE_YN, nullptr},
                                {SQUAREHINT, "SquareHint", VTYPE_YN, nullptr},
                                {WIDTHHINT, "WidthHint", VTYPE_FLOAT, nullptr},
                                {HEIGHTHINT, "HeightHint", VTYPE_FLOAT, nullptr},
                                {LEFTMARGINHINT, "LeftMarginHint", VTYPE_FLOAT, nullptr},
                                {RIGHTMARGINHINT, "RightMarginHint", VTYPE_FLOAT, nullptr},
                                {TOPMARGINHINT, "TopMarginHint", VTYPE_FLOAT, nullptr},
                                {BOTTOMMARGINHINT, "BottomMarginHint", VTYPE_FLOAT, nullptr},
                                {0, nullptr, 0, nullptr}};

#define MH(m) offsetof(maphints, m)
const vld::Field fields[] = {
    {.code = FASTPREVIEWHINT, .kind = Kind::YesNo, .offset = MH(fast_preview_hint)},
    {.code = PAGERELATIVEHINT, .kind = Kind::YesNo, .offset = MH(page_relative_hint)},
    {.code = SQUAREHINT, .kind = Kind::YesNo, .offset = MH(square_hint)},
    {.code = WIDTHHINT, .kind = Kind::Double, .offset = MH(width_hint)},
    {.code = HEIGHTHINT, .kind = Kind::Double, .offset = MH(height_hint)},
    {.code = LEFTMARGINHINT, .kind = Kind::Double, .offset = MH(left_margin_hint)},
    {.code = RIGHTMARGINHINT, .kind = Kind::Double, .offset = MH(right_margin_hint)},
    {.code = TOPMARGINHINT, .kind = Kind::Double, .offset = MH(top_margin_hint)},
    {.code = BOTTOMMARGINHINT, .kind = Kind::Double, .offset = MH(bottom_margin_hint)},
};
#undef MH

/* No hints at all: every flag off and every size 0, which is also what a
 * zeroed record holds; kept as a function so that callers can reset one. */
void no_hints(void *r)
{
    *static_cast<maphints *>(r) = maphints{};
}

const vld::Record record = {
    .block = "MapHints",
    .keywords = keywords,
    .fields = fields,
    .nfields = vld::count_of(fields),
    .size = sizeof(maphints),
    .defaults = no_hints,
};

}  // namespace

const vld::Record &vld::vld_maphints_record()
{
    return record;
}

int ea_maphints(maphints **address)
{
    return vld::fam_alloc(address, record);
}
void ef_maphints(maphints *m)
{
    vld::rec_free(m, record);
}
int eg_maphints(maphints **address, const char *filename)
{
    return vld::fam_get(address, filename, record);
}
int eg_maphints_noalloc(maphints *m, const char *filename)
{
    return vld::rec_read(m, filename, record);
}
int ep_maphints(const maphints *m, const char *filename)
{
    return vld::rec_write(m, filename, record);
}
int cp_maphints_noalloc(maphints *copy, const maphints *source)
{
    return vld::fam_copy(copy, source, record);
}
int df_maphints(maphints **address)
{
    return vld::fam_new_defaults(address, record);
}
int df_maphints_noalloc(maphints *m)
{
    if (!m) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    vld::rec_defaults(m, record);
    return 0;
}
