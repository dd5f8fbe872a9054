/*
 * vld_alg_input.cpp: the StreamInput block of a stream: one input of the
 * stream's formula, with the transforms and kernels applied to it before the
 * formula sees it.
 */
#include <cstddef>

#include "vld_alg_internal.h"

namespace {

using vld::as;
using vld::Field;
using vld::Kind;

enum : uint32_t { SI_ID = 1, SI_TRANSFORM, SI_KERNEL };

const VLD_KEYWORD si_keywords[] = {{SI_ID, "StreamInputID", VTYPE_INT, nullptr},
                                   {SI_TRANSFORM, "Transform", VTYPE_BLOCK, nullptr},
                                   {SI_KERNEL, "Kernel", VTYPE_BLOCK, nullptr},
                                   {0, nullptr, 0, nullptr}};

const Field si_fields[] = {
    {.code = SI_ID, .kind = Kind::Int32, .offset = offsetof(streaminput, id)},
    {.code = SI_TRANSFORM,
     .kind = Kind::BlockList,
     .offset = offsetof(streaminput, transforms),
     .sub = vld::vld_transform_record},
    {.code = SI_KERNEL,
     .kind = Kind::BlockList,
     .offset = offsetof(streaminput, kernels),
     .sub = vld::vld_kernel_record},
};

int si_after_read(void *r, const void *)
{
    vld::relink_transforms(as<streaminput>(r).transforms);
    return 0;
}
void si_copy_extra(void *dst, const void *)
{
    streaminput &in = as<streaminput>(dst);
    in.next = in.prev = nullptr;
    vld::relink_transforms(in.transforms);
}

const vld::Record si_record = {
    .block = "StreamInput",
    .keywords = si_keywords,
    .fields = si_fields,
    .nfields = vld::count_of(si_fields),
    .size = sizeof(streaminput),
    .after_read = si_after_read,
    .copy_extra = si_copy_extra,
};

/* A default stream input: id 1, with no transforms or kernels of its own. */
}  // namespace

void vld::relink_transforms(transform *t)
{
    for (transform *prev = nullptr; t; prev = t, t = t->next) t->prev = prev;
}

streaminput *vld::default_streaminput()
{
    auto *in = static_cast<streaminput *>(rec_alloc(si_record));
    in->id = 1;
    return in;
}

const vld::Record &vld::vld_streaminput_record()
{
    return si_record;
}

void vld::free_streaminputs(streaminput *chain)
{
    while (chain) {
        streaminput *next = chain->next;
        rec_free(chain, si_record);
        chain = next;
    }
}

streaminput *vld::copy_streaminputs(const streaminput *chain)
{
    streaminput *head = nullptr, **tail = &head, *prev = nullptr;
    for (; chain; chain = chain->next) {
        auto *copy = static_cast<streaminput *>(rec_dup(chain, si_record));
        copy->prev = prev;
        *tail = prev = copy;
        tail = &copy->next;
    }
    return head;
}

/* ---------------------------------------------------------------- the family */

int ea_streaminput(streaminput **record)
{
    return vld::fam_alloc(record, si_record);
}
void ef_streaminput(streaminput *record)
{
    vld::rec_free(record, si_record);
}
int cp_streaminput(streaminput **copy, const streaminput *source)
{
    return vld::fam_dup(copy, source, si_record);
}
