/*
 * vln_node_pending_merge.cpp: the builders of the class and vector merges,
 * until their node kinds land; each fails the build of a tree that needs it.
 */
#include "vln_nodes.h"

void setup_cmergenode(funcnode **, pe_context *pe, int, int, pe_streamgroup *, pe_streamgroup *,
                      pe_streamgroup *)
{
    alg_error_fatal(pe, "Classification layers are not built yet");
}

void setup_cdmergenode(funcnode **, pe_context *pe, int, int, pe_streamgroup *, pe_streamgroup *)
{
    alg_error_fatal(pe, "Classification display layers are not built yet");
}

void setup_psmergenode(funcnode **, pe_context *pe, int, int, int, pe_streamgroup *,
                       pe_streamgroup *, pe_streamgroup *, pe_streamgroup *)
{
    alg_error_fatal(pe, "Vector layers over a raster are not built yet");
}
