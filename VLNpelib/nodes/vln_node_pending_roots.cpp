/*
 * vln_node_pending_roots.cpp: the reads of the packed-pixel and per-surface
 * roots, until those roots land: there is no such root to read.
 */
#include "vln_nodes.h"

int vreadtopp_read_lines(funcnode *, void **, uint32_t **)
{
    return -1;
}

int vreadtomsrgbh_read_lines(funcnode *, void **, void **, rlseg **)
{
    return -1;
}
