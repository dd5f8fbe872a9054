/* alg_fixture.h: small algorithms built by hand for the walking and editing
 * suites.
 *
 * A layout names surfaces and their streams by short descriptions; the
 * fixture allocates the records with the library's allocator, zeroed, so that
 * the editing functions may free what they remove, and frees what is still
 * linked at the end. List orders are read back as strings of descriptions,
 * after a check that every prev link mirrors its next link.
 */
#ifndef VORLAN_TESTS_ALG_FIXTURE_H
#define VORLAN_TESTS_ALG_FIXTURE_H

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "vld_alg.h"

namespace algfix {

template <typename T>
T *zalloc()
{
    T *p = static_cast<T *>(malloc_or_die(sizeof(T)));
    std::memset(static_cast<void *>(p), 0, sizeof(T));
    return p;
}

struct StreamSpec {
    const char *name; /* the description */
    int type;
    bool off = false;
};

struct SurfaceSpec {
    const char *name;
    int mode;
    bool off;
    std::vector<StreamSpec> streams;
};

inline void free_stream_by_hand(stream *st)
{
    while (transform *t = st->transforms) {
        st->transforms = t->next;
        safe_free(t);
    }
    while (kernel *k = st->kernels) {
        st->kernels = k->next;
        safe_free(k);
    }
    while (streaminput *in = st->stream_inputs) {
        st->stream_inputs = in->next;
        safe_free(in);
    }
    safe_free(st->description);
    safe_free(st->dataset);
    safe_free(st);
}

inline void free_surface_by_hand(surface *s)
{
    while (stream *st = s->first_stream) {
        s->first_stream = st->next;
        free_stream_by_hand(st);
    }
    safe_free(s->name);
    safe_free(s);
}

/* An algorithm of the given layout; streams and surfaces are found by name. */
class Alg {
   public:
    algorithm *alg = nullptr;

    explicit Alg(const std::vector<SurfaceSpec> &layout)
    {
        alg = zalloc<algorithm>();
        surface *prev_s = nullptr;
        for (const SurfaceSpec &ss : layout) {
            surface *s = zalloc<surface>();
            s->name = strsave(ss.name);
            s->color_mode = ss.mode;
            s->turned_off = ss.off ? 1 : 0;
            link(&alg->surfaces, prev_s, s);
            prev_s = s;
            surfaces_[ss.name] = s;
            stream *prev_st = nullptr;
            for (const StreamSpec &sp : ss.streams) {
                stream *st = zalloc<stream>();
                st->description = strsave(sp.name);
                st->type = sp.type;
                st->turned_off = sp.off ? 1 : 0;
                link(&s->first_stream, prev_st, st);
                prev_st = st;
                streams_[sp.name] = st;
            }
        }
        alg->current_surface = alg->surfaces;
        alg->current_stream = first_stream_in_alg(alg);
    }
    ~Alg()
    {
        if (!alg) return;
        while (surface *s = alg->surfaces) {
            alg->surfaces = s->next;
            free_surface_by_hand(s);
        }
        safe_free(alg->name);
        safe_free(alg);
    }
    Alg(const Alg &) = delete;
    Alg &operator=(const Alg &) = delete;

    stream *st(const std::string &name) const { return streams_.at(name); }
    surface *sf(const std::string &name) const { return surfaces_.at(name); }

    /* Hangs `n` numbered records on a stream's list (ids 1 to n). */
    static void add_inputs(stream *st, int n)
    {
        streaminput *prev = nullptr;
        for (int i = 1; i <= n; i++) {
            streaminput *in = zalloc<streaminput>();
            in->id = i;
            link(&st->stream_inputs, prev, in);
            prev = in;
        }
    }
    static void add_transforms(stream *st, int n)
    {
        transform *prev = nullptr;
        for (int i = 1; i <= n; i++) {
            transform *t = zalloc<transform>();
            t->id = i;
            link(&st->transforms, prev, t);
            prev = t;
        }
    }
    static void add_kernels(kernel **head, int n)
    {
        kernel **slot = head;
        for (int i = 1; i <= n; i++) {
            kernel *k = zalloc<kernel>();
            k->rows = i;
            *slot = k;
            slot = &k->next;
        }
    }

   private:
    template <typename T>
    static void link(T **head, T *prev, T *node)
    {
        node->prev = prev;
        if (prev)
            prev->next = node;
        else
            *head = node;
    }
    std::map<std::string, surface *> surfaces_;
    std::map<std::string, stream *> streams_;
};

/* The descriptions of a stream list, space-separated, or "broken" when a prev
 * link doesn't mirror its next link. */
inline std::string order(const stream *head)
{
    std::string out;
    const stream *prev = nullptr;
    for (const stream *st = head; st; prev = st, st = st->next) {
        if (st->prev != prev) return "broken";
        out += (out.empty() ? "" : " ") + std::string(st->description ? st->description : "?");
    }
    return out;
}

inline std::string order(const surface *s)
{
    return s ? order(s->first_stream) : "null";
}

inline std::string surface_order(const algorithm *alg)
{
    std::string out;
    const surface *prev = nullptr;
    for (const surface *s = alg->surfaces; s; prev = s, s = s->next) {
        if (s->prev != prev) return "broken";
        out += (out.empty() ? "" : " ") + std::string(s->name ? s->name : "?");
    }
    return out;
}

/* A stream's description, or "null". */
inline std::string name_of(const stream *st)
{
    return st ? (st->description ? st->description : "?") : "null";
}

}  // namespace algfix

#endif
