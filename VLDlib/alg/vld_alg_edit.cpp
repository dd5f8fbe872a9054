/*
 * vld_alg_edit.cpp: editing the lists of an algorithm.
 *
 * Surfaces and streams are doubly linked lists whose heads stand in the
 * algorithm and in each surface. The moves here are named for the display
 * stack, which runs the other way from the lists: "first" puts a member at
 * the tail of its list and "last" at the head. Streams and surfaces also
 * differ in "up" and "down" (kept: the applications' buttons rely on it):
 * a stream goes up by swapping with its next, a surface by swapping with its
 * previous.
 *
 * reverse_alg_stack brings an algorithm that came in through a dataset header
 * from the file's order into the order in which the engine makes its bands.
 */
#include <cstring>
#include <vector>

#include "vld_alg.h"

namespace {

/* ---------------------------------------------------------------- list surgery
 *
 * One set of operations for both list kinds: a node type with prev and next,
 * and the address of the list's head. */

template <typename T>
void unlink_node(T **head, T *node)
{
    if (node->prev)
        node->prev->next = node->next;
    else
        *head = node->next;
    if (node->next) node->next->prev = node->prev;
    node->prev = node->next = nullptr;
}

template <typename T>
void link_after(T **head, T *node, T *after)
{
    if (!after) {
        node->prev = nullptr;
        node->next = *head;
        if (*head) (*head)->prev = node;
        *head = node;
        return;
    }
    node->prev = after;
    node->next = after->next;
    if (after->next) after->next->prev = node;
    after->next = node;
}

template <typename T>
T *tail_of(T *node)
{
    while (node && node->next) node = node->next;
    return node;
}

/* Swaps a node with its next; nothing at the tail. */
template <typename T>
void swap_with_next(T **head, T *node)
{
    T *next = node->next;
    if (!next) return;
    unlink_node(head, node);
    link_after(head, node, next);
}

/* Swaps a node with its previous; nothing at the head. */
template <typename T>
void swap_with_prev(T **head, T *node)
{
    if (node->prev) swap_with_next(head, node->prev);
}

template <typename T>
void move_to_tail(T **head, T *node)
{
    T *tail = tail_of(*head);
    if (tail == node) return;
    unlink_node(head, node);
    link_after(head, node, tail);
}

template <typename T>
void move_to_head(T **head, T *node)
{
    if (*head == node) return;
    unlink_node(head, node);
    link_after(head, node, static_cast<T *>(nullptr));
}

template <typename T>
int reverse_list(T **head)
{
    if (!*head) return 0;
    T *node = *head, *last = nullptr;
    while (node) {
        T *next = node->next;
        node->next = node->prev;
        node->prev = next;
        last = node;
        node = next;
    }
    *head = last;
    return 1;
}

/* The head of the stream list that holds `st`, or null. */
stream **stream_head(algorithm *alg, const stream *st)
{
    surface *s = surface_of_stream(alg, st);
    return s ? &s->first_stream : nullptr;
}

/* The head of the surface list, when `s` is one of its members. */
surface **surface_head(algorithm *alg, const surface *s)
{
    return surface_index_in_alg(alg, s) >= 0 ? &alg->surfaces : nullptr;
}

template <typename T, typename Head, typename Op>
int edit(algorithm *alg, T *node, Head head_of, Op op)
{
    if (T **head = head_of(alg, node)) op(head, node);
    return 0;
}

/* Forgets selections that point into a surface about to go. */
void drop_selections_in(algorithm *alg, const surface *s)
{
    for (const stream *st = s->first_stream; st; st = st->next) {
        if (alg->current_stream == st) alg->current_stream = nullptr;
        if (alg->intensity_input == st) {
            alg->intensity_input = nullptr;
            alg->intensity_streaminput = nullptr;
        }
        if (alg->height_input == st) {
            alg->height_input = nullptr;
            alg->height_streaminput = nullptr;
        }
    }
}

/* ---------------------------------------------------------------- the stack's order */

/* Puts the streams of each band group on four lists, by type, last member
 * first, and joins them: ClassificationDisplay, the others, Classification,
 * DynamicLink. */
std::vector<stream *> file_to_stack_order(const surface *s)
{
    std::vector<stream *> classdisp, others, classes, links;
    msinfo *groups = nullptr;
    VLD_setup_msinfo_surface(&groups, s);
    for (const msinfo *g = groups; g; g = g->next)
        for (int i = g->nr_streams - 1; i >= 0; i--) {
            stream *st = g->streams[i];
            switch (st->type) {
                case ST_ClassificationDisplay:
                    classdisp.push_back(st);
                    break;
                case ST_Classification:
                    classes.push_back(st);
                    break;
                case ST_DynamicLink:
                    links.push_back(st);
                    break;
                default:
                    others.push_back(st);
            }
        }
    VLD_free_msinfos(groups);
    std::vector<stream *> order = std::move(classdisp);
    for (auto *part : {&others, &classes, &links})
        order.insert(order.end(), part->begin(), part->end());
    return order;
}

constexpr char kRealPrefix[] = "(Re) FFT - ";
constexpr char kImagPrefix[] = "(Im) FFT - ";
constexpr size_t kPrefixLength = sizeof kRealPrefix - 1;

bool starts_with(const char *text, const char *prefix)
{
    return text && strncmp(text, prefix, strlen(prefix)) == 0;
}

/* Each real part of a spectrum followed by its imaginary part, then every
 * other stream in the order found. */
std::vector<stream *> pair_fft_parts(const std::vector<stream *> &order)
{
    std::vector<stream *> paired;
    std::vector<bool> placed(order.size(), false);
    for (size_t i = 0; i < order.size(); i++) {
        const char *d = order[i]->description;
        if (!starts_with(d, kRealPrefix)) continue;
        paired.push_back(order[i]);
        placed[i] = true;
        for (size_t j = 0; j < order.size(); j++) {
            const char *e = order[j]->description;
            if (!placed[j] && starts_with(e, kImagPrefix) &&
                strcmp(e + kPrefixLength, d + kPrefixLength) == 0) {
                paired.push_back(order[j]);
                placed[j] = true;
                break;
            }
        }
    }
    for (size_t i = 0; i < order.size(); i++)
        if (!placed[i]) paired.push_back(order[i]);
    return paired;
}

void relink_streams(surface *s, const std::vector<stream *> &order)
{
    s->first_stream = nullptr;
    stream *tail = nullptr;
    for (stream *st : order) {
        st->prev = tail;
        st->next = nullptr;
        if (tail)
            tail->next = st;
        else
            s->first_stream = st;
        tail = st;
    }
}

}  // namespace

/* ---------------------------------------------------------------- surfaces */

int insert_surface_into_alg(algorithm *alg, surface *added, surface *before)
{
    if (!alg) return 0;
    if (!added) {
        int status = df_surface(&added);
        if (status) return status;
    }
    link_after(&alg->surfaces, added, before);
    return 0;
}

surface *cp_surface_in_alg(algorithm *alg, surface *s)
{
    if (!alg || !s) return nullptr;
    surface *copy = nullptr;
    if (cp_surface(&copy, s)) {
        ef_surface(copy);
        return nullptr;
    }
    copy->prev = copy->next = nullptr;
    copy->selected = 0;
    insert_surface_into_alg(alg, copy, s);
    return copy;
}

int delete_surface(algorithm *alg, surface *s)
{
    if (!s || !alg || nr_surfaces_in_alg(alg) < 2 || surface_index_in_alg(alg, s) < 0) return 1;
    surface *heir = s->next ? s->next : s->prev;
    drop_selections_in(alg, s);
    if (alg->current_surface == s) {
        alg->current_surface = heir;
        alg->current_stream = heir->first_stream;
        heir->selected = 1;
    }
    unlink_node(&alg->surfaces, s);
    ef_surface(s);
    return 0;
}

int move_surface_up(algorithm *alg, surface *s)
{
    return edit(alg, s, surface_head, swap_with_prev<surface>);
}

int move_surface_down(algorithm *alg, surface *s)
{
    return edit(alg, s, surface_head, swap_with_next<surface>);
}

int move_surface_first(algorithm *alg, surface *s)
{
    return edit(alg, s, surface_head, move_to_tail<surface>);
}

int move_surface_last(algorithm *alg, surface *s)
{
    return edit(alg, s, surface_head, move_to_head<surface>);
}

/* ---------------------------------------------------------------- streams */

int move_stream_up(algorithm *alg, stream *st)
{
    return edit(alg, st, stream_head, swap_with_next<stream>);
}

int move_stream_down(algorithm *alg, stream *st)
{
    return edit(alg, st, stream_head, swap_with_prev<stream>);
}

int move_stream_first(algorithm *alg, stream *st)
{
    return edit(alg, st, stream_head, move_to_tail<stream>);
}

int move_stream_last(algorithm *alg, stream *st)
{
    return edit(alg, st, stream_head, move_to_head<stream>);
}

int reverse_streams_in_surface(surface *s)
{
    return s ? reverse_list(&s->first_stream) : 0;
}

int reverse_streams_in_alg(algorithm *alg)
{
    if (!alg) return 0;
    for (surface *s = alg->surfaces; s; s = s->next) reverse_streams_in_surface(s);
    return 1;
}

int delete_output_transforms_in_alg(algorithm *alg)
{
    for (surface *s = alg ? alg->surfaces : nullptr; s; s = s->next)
        for (stream *st = s->first_stream; st; st = st->next)
            while (transform *t = tail_of(st->transforms)) {
                unlink_node(&st->transforms, t);
                ef_transform(t);
            }
    return 0;
}

int reverse_alg_stack(algorithm *alg)
{
    if (!alg) return 0;
    bool fft = alg_is_fft(alg) != 0;
    for (surface *s = alg->surfaces; s; s = s->next) {
        std::vector<stream *> order = file_to_stack_order(s);
        if (order.size() != static_cast<size_t>(nr_streams_in_surface(s))) continue;
        if (fft) order = pair_fft_parts(order);
        relink_streams(s, order);
    }
    return 0;
}
