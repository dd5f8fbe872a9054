/*
 * vln_node_later.cpp: the node kinds whose computation isn't built yet.
 *
 * Kernels, transforms and shading pass their stream through unchanged: the
 * builders leave the slot alone, as a stage with nothing to do does.
 */
#include "vln_nodes.h"

void setup_kernelnode(funcnode **, pe_context *, pe_stream *, kernel *, int) {}

void setup_transformnode(funcnode **, pe_context *, pe_stream *, transform *, int, int) {}

void setup_shadenode(funcnode **, pe_context *, pe_stream *, int) {}

void setup_rtsnode(funcnode **, pe_context *, pe_stream *, int) {}

void setup_rts16node(funcnode **, pe_context *, pe_stream *, int) {}
