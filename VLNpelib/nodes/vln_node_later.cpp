/*
 * vln_node_later.cpp: the node kinds whose computation isn't built yet.
 *
 * Transforms pass their stream through unchanged: the builder leaves the
 * slot alone, as a stage with nothing to do does.
 */
#include "vln_nodes.h"

void setup_transformnode(funcnode **, pe_context *, pe_stream *, transform *, int, int) {}
