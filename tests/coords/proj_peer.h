/* proj_peer.h: the independent projection library as the peer of the
 * projection tests: one operation from a projection string, carried forward
 * (radians to metres) and backward. */
#ifndef VORLAN_TESTS_PROJ_PEER_H
#define VORLAN_TESTS_PROJ_PEER_H

#include <proj.h>

#include <cmath>
#include <cstdint>
#include <string>

namespace gdt_test {

class Peer {
   public:
    explicit Peer(const std::string &definition)
    {
        ctx_ = proj_context_create();
        op_ = proj_create(ctx_, definition.c_str());
    }
    ~Peer()
    {
        if (op_) proj_destroy(op_);
        proj_context_destroy(ctx_);
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    bool ok() const { return op_ != nullptr; }
    /* false where the peer has no answer. */
    bool forward(double lon, double lat, double &x, double &y) const
    {
        return run(PJ_FWD, lon, lat, x, y);
    }
    bool backward(double x, double y, double &lon, double &lat) const
    {
        return run(PJ_INV, x, y, lon, lat);
    }

   private:
    bool run(PJ_DIRECTION direction, double a, double b, double &oa, double &ob) const
    {
        PJ_COORD in = proj_coord(a, b, 0, 0);
        PJ_COORD out = proj_trans(op_, direction, in);
        oa = out.v[0];
        ob = out.v[1];
        return std::isfinite(oa) && std::isfinite(ob) && oa != HUGE_VAL;
    }
    PJ_CONTEXT *ctx_;
    PJ *op_;
};

/* Deterministic points: a small linear congruential generator, so that the
 * same points come on every run. */
class Points {
   public:
    explicit Points(uint64_t seed) : state_(seed) {}
    double uniform(double lo, double hi)
    {
        state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
        return lo + (hi - lo) * static_cast<double>(state_ >> 11) / 9007199254740992.0;
    }

   private:
    uint64_t state_;
};

}  // namespace gdt_test

#endif
