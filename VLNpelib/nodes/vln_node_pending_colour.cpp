/*
 * vln_node_pending_colour.cpp: the builders of the colour nodes and the image
 * chain, until their node kinds land; each fails the build of a tree that
 * needs it.
 */
#include "vln_nodes.h"

namespace {
[[noreturn]] void pending(pe_context *pe)
{
    alg_error_fatal(pe, "Colour output is not built yet");
}
}  // namespace

void setup_rgbitorgb_node(funcnode **, pe_context *pe, pe_streamgroup *) { pending(pe); }
void setup_rgbtorgb_node(funcnode **, pe_context *pe, pe_streamgroup *) { pending(pe); }
void setup_hsitorgb_node(funcnode **, pe_context *pe, pe_streamgroup *) { pending(pe); }
void setup_pseudotorgb_node(funcnode **, pe_context *pe, pe_streamgroup *) { pending(pe); }
void setup_height8_node(funcnode **, pe_context *pe, pe_streamgroup *) { pending(pe); }
void setup_rgb24final_node(funcnode **, pe_context *pe, pe_streamgroup *) { pending(pe); }
void setup_rgb24to8_node(funcnode **, pe_context *pe, pe_streamgroup *) { pending(pe); }
void setup_pito8_node(funcnode **, pe_context *pe, pe_streamgroup *) { pending(pe); }
void setup_transpnode(funcnode **, pe_context *pe, int, int, int) { pending(pe); }
