// Planning arrives with the next change; the frame links without it.
#include "vln_pe_plan.h"

void prepare_alg(algorithm *, pe_context *pe)
{
    alg_error_fatal(pe, "planning not built");
}
void build_trees(pe_context *) {}
void finish_setting_up_dsinputs(pe_context *) {}
void close_dsinputs(dsinput *) {}
void free_group_formulae(pe_context *) {}
