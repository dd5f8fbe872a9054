/* vln_guard_internal.h: the one way the library's C++ code holds a lock.
 *
 * Every lock of the library is a recursive vln_mutex; a Guard holds one for
 * the length of a scope, so that no return path can leave it taken. Before
 * vln_thread_init the locks do nothing, and neither does a Guard.
 */
#ifndef VORLAN_VLN_GUARD_INTERNAL_H
#define VORLAN_VLN_GUARD_INTERNAL_H

#include "vld_core.h"

namespace vln {

class Guard {
   public:
    explicit Guard(vln_mutex *mutex) : mutex_(mutex) { vln_mutex_begin(mutex_); }
    ~Guard() { vln_mutex_end(mutex_); }
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;

   private:
    vln_mutex *mutex_;
};

}  // namespace vln

#endif
