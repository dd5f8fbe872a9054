/* vln_mutex_internal.h: the lock switch, for the thread layer only. */
#ifndef VORLAN_VLN_MUTEX_INTERNAL_H
#define VORLAN_VLN_MUTEX_INTERNAL_H

/* Turns the library's locks on (nonzero) or off. */
void vln_set_locking(int on);

#endif
