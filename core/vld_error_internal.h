/* vld_error_internal.h: state of the error module shared with the block-text reader. */
#ifndef VORLAN_VLD_ERROR_INTERNAL_H
#define VORLAN_VLD_ERROR_INTERNAL_H

#define VLD_DIAGNOSTIC_SIZE 512

/* The block-text reader's last diagnostic, which append_parser_error_to_VLD_error
 * adds to the error text. Written by the reader under its own lock. */
extern char vld_last_diagnostic[VLD_DIAGNOSTIC_SIZE];

/* Sets up row `code` with a text the caller formatted, for rows whose %d can't
 * carry a 64-bit figure; returns `code`. */
int vld_setup_error_text(int code, const char *text);

#endif
