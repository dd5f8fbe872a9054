/*
 * vln_node_table.cpp: the table of node kinds.
 *
 * One row per FN_ value, in value order: the kind's name, and the hooks that
 * its file defines (null for the names that have no builder, or whose kind
 * comes later). A new node kind is one file in this folder and its row here.
 */
#include "vln_nodes.h"

namespace vln_pe {
extern const NodeOps addnull_ops;
extern const NodeOps adjustrlseg_ops;
extern const NodeOps appendnulls_ops;
extern const NodeOps bilinear_line_supersample_ops;
extern const NodeOps bilinear_supersample_ops;
extern const NodeOps clip_ops;
extern const NodeOps cmerge_ops;
extern const NodeOps dgroupstreams_ops;
extern const NodeOps formula_ops;
extern const NodeOps gennulls_ops;
extern const NodeOps getinput_ops;
extern const NodeOps height8_ops;
extern const NodeOps hsitorgb_ops;
extern const NodeOps input_ops;
extern const NodeOps kernel_ops;
extern const NodeOps inregion_ops;
extern const NodeOps lsubsample_ops;
extern const NodeOps lsupersample_ops;
extern const NodeOps mergestreams_ops;
extern const NodeOps nullcell_ops;
extern const NodeOps nullconv_ops;
extern const NodeOps nullline_ops;
extern const NodeOps optim_ops;
extern const NodeOps pito8_ops;
extern const NodeOps position_ops;
extern const NodeOps pseudotorgb_ops;
extern const NodeOps psmerge_ops;
extern const NodeOps read_ops;
extern const NodeOps rescolour_ops;
extern const NodeOps rgb24final_ops;
extern const NodeOps rgb24to8_ops;
extern const NodeOps rgbitorgb_ops;
extern const NodeOps rgbtorgb_ops;
extern const NodeOps rlseg_ops;
extern const NodeOps shade_ops;
extern const NodeOps ssync_ops;
extern const NodeOps subsample2_ops;
extern const NodeOps subsample_ops;
extern const NodeOps supersample_ops;
extern const NodeOps sync_ops;
extern const NodeOps tconv_ops;
extern const NodeOps tobuffers_ops;
extern const NodeOps tomsrgbh_ops;
extern const NodeOps toppbuffers_ops;
extern const NodeOps transform_ops;
extern const NodeOps transparency_ops;
extern const NodeOps vread_ops;
}  // namespace vln_pe

namespace {

using vln_pe::NodeKind;

constexpr NodeKind kinds[FN_NR_TYPES] = {
    {FN_ADDNULL, "FN_ADDNULL", &vln_pe::addnull_ops},
    {FN_ADJUSTRLSEG, "FN_ADJUSTRLSEG", &vln_pe::adjustrlseg_ops},
    {FN_APPENDNULLS, "FN_APPENDNULLS", &vln_pe::appendnulls_ops},
    {FN_BILINEAR_LINE_SUPERSAMPLE, "FN_BILINEAR_LINE_SUPERSAMPLE",
     &vln_pe::bilinear_line_supersample_ops},
    {FN_BILINEAR_SUPERSAMPLE, "FN_BILINEAR_SUPERSAMPLE", &vln_pe::bilinear_supersample_ops},
    {FN_CCOUNT, "FN_CCOUNT", nullptr},
    {FN_CDMERGE, "FN_CDMERGE", &vln_pe::cmerge_ops},
    {FN_CELLX, "FN_CELLX", &vln_pe::position_ops},
    {FN_CELLY, "FN_CELLY", &vln_pe::position_ops},
    {FN_CLIP, "FN_CLIP", &vln_pe::clip_ops},
    {FN_CMERGE, "FN_CMERGE", &vln_pe::cmerge_ops},
    {FN_DGROUPSTREAMS, "FN_DGROUPSTREAMS", &vln_pe::dgroupstreams_ops},
    {FN_FORMULA, "FN_FORMULA", &vln_pe::formula_ops},
    {FN_GENNULLS, "FN_GENNULLS", &vln_pe::gennulls_ops},
    {FN_GETINPUT, "FN_GETINPUT", &vln_pe::getinput_ops},
    {FN_HEIGHT8, "FN_HEIGHT8", &vln_pe::height8_ops},
    {FN_HSITORGB, "FN_HSITORGB", &vln_pe::hsitorgb_ops},
    {FN_INPUT, "FN_INPUT", &vln_pe::input_ops},
    {FN_INREGION, "FN_INREGION", &vln_pe::inregion_ops},
    {FN_KERNEL, "FN_KERNEL", &vln_pe::kernel_ops},
    {FN_LSUBSAMPLE, "FN_LSUBSAMPLE", &vln_pe::lsubsample_ops},
    {FN_LSUPERSAMPLE, "FN_LSUPERSAMPLE", &vln_pe::lsupersample_ops},
    {FN_MERGESTREAMS, "FN_MERGESTREAMS", &vln_pe::mergestreams_ops},
    {FN_NULLCONV, "FN_NULLCONV", &vln_pe::nullconv_ops},
    {FN_NULLCELL, "FN_NULLCELL", &vln_pe::nullcell_ops},
    {FN_NULLLINE, "FN_NULLLINE", &vln_pe::nullline_ops},
    {FN_OPTIM, "FN_OPTIM", &vln_pe::optim_ops},
    {FN_PITO8, "FN_PITO8", &vln_pe::pito8_ops},
    {FN_PIXELX, "FN_PIXELX", &vln_pe::position_ops},
    {FN_PIXELY, "FN_PIXELY", &vln_pe::position_ops},
    {FN_PSEUDOTORGB, "FN_PSEUDOTORGB", &vln_pe::pseudotorgb_ops},
    {FN_PSMERGE, "FN_PSMERGE", &vln_pe::psmerge_ops},
    {FN_RANODE, "FN_RANODE", nullptr},
    {FN_READ, "FN_READ", &vln_pe::read_ops},
    {FN_RESCOLOUR, "FN_RESCOLOUR", &vln_pe::rescolour_ops},
    {FN_RGB24TO8, "FN_RGB24TO8", &vln_pe::rgb24to8_ops},
    {FN_RGB24FINAL, "FN_RGB24FINAL", &vln_pe::rgb24final_ops},
    {FN_RGBITORGB, "FN_RGBITORGB", &vln_pe::rgbitorgb_ops},
    {FN_RGBTORGB, "FN_RGBTORGB", &vln_pe::rgbtorgb_ops},
    {FN_RLSEG, "FN_RLSEG", &vln_pe::rlseg_ops},
    {FN_RTSHADE, "FN_RTSHADE", &vln_pe::shade_ops},
    {FN_RTSHADE16, "FN_RTSHADE16", &vln_pe::shade_ops},
    {FN_SHADE, "FN_SHADE", &vln_pe::shade_ops},
    {FN_SSYNC, "FN_SSYNC", &vln_pe::ssync_ops},
    {FN_STIPPLE, "FN_STIPPLE", nullptr},
    {FN_SUBSAMPLE, "FN_SUBSAMPLE", &vln_pe::subsample_ops},
    {FN_SUBSAMPLE2, "FN_SUBSAMPLE2", &vln_pe::subsample2_ops},
    {FN_SUPERSAMPLE, "FN_SUPERSAMPLE", &vln_pe::supersample_ops},
    {FN_SYNC, "FN_SYNC", &vln_pe::sync_ops},
    {FN_TCONV, "FN_TCONV", &vln_pe::tconv_ops},
    {FN_OPTIM_TCONV, "FN_OPTIM_TCONV", nullptr},
    {FN_TOBUFFERS, "FN_TOBUFFERS", &vln_pe::tobuffers_ops},
    {FN_TOMSRGBH, "FN_TOMSRGBH", &vln_pe::tomsrgbh_ops},
    {FN_TOPPBUFFERS, "FN_TOPPBUFFERS", &vln_pe::toppbuffers_ops},
    {FN_TRANSFORM, "FN_TRANSFORM", &vln_pe::transform_ops},
    {FN_TRANSPARENCY, "FN_TRANSPARENCY", &vln_pe::transparency_ops},
    {FN_VREADTOPP, "FN_VREADTOPP", &vln_pe::vread_ops},
    {FN_VREADTOMSRGBH, "FN_VREADTOMSRGBH", &vln_pe::vread_ops},
    {FN_VREAD, "FN_VREAD", &vln_pe::vread_ops},
};

constexpr bool rows_in_value_order()
{
    for (int i = 0; i < FN_NR_TYPES; i++)
        if (kinds[i].type != i) return false;
    return true;
}
static_assert(rows_in_value_order(), "one row per node kind, in value order");

const NodeKind unknown_kind = {-1, "unknown function node type", nullptr};

}  // namespace

const vln_pe::NodeKind &vln_pe::node_kind(int type)
{
    if (type < 0 || type >= FN_NR_TYPES) return unknown_kind;
    return kinds[type];
}

const char *pe_fn_string(int type)
{
    return vln_pe::node_kind(type).name;
}
