/*
 * vln_node_later.cpp: the node kinds whose computation isn't built yet.
 *
 * Kernels and shading pass their stream through unchanged: the
 * builders leave the slot alone, as a stage with nothing to do does. A
 * formula other than one plain input can't be passed through, and fails
 * the open with a clear message.
 */
#include "vln_nodes.h"

void setup_kernelnode(funcnode **, pe_context *, pe_stream *, kernel *, int) {}

void setup_shadenode(funcnode **, pe_context *, pe_stream *, int) {}

void setup_rtsnode(funcnode **, pe_context *, pe_stream *, int) {}

void setup_rts16node(funcnode **, pe_context *, pe_stream *, int) {}

void setup_formulanode(funcnode **, pe_context *pe, pe_streamgroup *, pe_stream *ps)
{
    const char *text = ps->stream->formula.formula;
    alg_error_vprintf(pe, "Error in formula: %s: only a plain input can be computed by this build",
                      text != nullptr ? text : "");
}
