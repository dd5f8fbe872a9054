/*
 * vld_memory.cpp: the core allocator and the copying string helpers built on it.
 *
 * The allocator never returns a null pointer. When the system has no memory it
 * asks the registered last-resort functions to give some back, and when they
 * have nothing left the calling thread ends with a fatal message. So no caller
 * tests an allocation for null.
 */
#include "vld_core.h"
#include "vld_memory_internal.h"

#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

using free_func = int (*)(void);

free_func *free_funcs = nullptr;
int free_func_count = 0;

int clamp_int(size_t size)
{
    return size > INT_MAX ? INT_MAX : static_cast<int>(size);
}

// One allocation by the core rule: the system first, then each last-resort
// function for as long as it reports that it freed something.
void *allocate(size_t size, bool zeroed)
{
    if (size < 1) size = 1;
    void *block = zeroed ? calloc(1, size) : malloc(size);
    if (block != nullptr) return block;
    vln_mutex_begin(&csect);
    int count = free_func_count;
    vln_mutex_end(&csect);
    for (int i = 0; i < count; i++) {
        while (free_funcs[i]() != 0) {
            block = zeroed ? calloc(1, size) : malloc(size);
            if (block != nullptr) return block;
        }
    }
    vld_fatal_allocation("Could not allocate %d bytes", size);
}

}  // namespace

void vld_fatal_allocation(const char *format, size_t size)
{
    char text[64];
    snprintf(text, sizeof text, format, clamp_int(size));
    Fatal(text);
}

void *malloc_or_die(size_t size)
{
    return allocate(size, true);
}

void *realloc_or_die(void *pointer, size_t size)
{
    if (pointer == nullptr) return malloc_or_die(size);
    if (size < 1) size = 1;  // a zero size would free the block
    void *block = realloc(pointer, size);
    if (block == nullptr) vld_fatal_allocation("Could not reallocate %d bytes", size);
    return block;
}

int register_free_func(int (*function)(void))
{
    vln_mutex_begin(&csect);
    auto *grown = static_cast<free_func *>(
        realloc(free_funcs, sizeof(free_func) * static_cast<size_t>(free_func_count + 1)));
    if (grown != nullptr) {
        free_funcs = grown;
        free_funcs[free_func_count++] = function;
    }
    int count = free_func_count;
    vln_mutex_end(&csect);
    return count;
}

void safe_free(void *pointer)
{
    if (pointer != nullptr) free(pointer);
}

void VLDfree(void *address_of_pointer)
{
    auto **slot = static_cast<void **>(address_of_pointer);
    safe_free(*slot);
    *slot = nullptr;
}

void safe_VLDfree(void *address_of_pointer)
{
    if (address_of_pointer != nullptr) VLDfree(address_of_pointer);
}

char *strsave(const char *text)
{
    if (text == nullptr) text = "";
    size_t length = strlen(text);
    auto *copy = static_cast<char *>(allocate(length + 1, false));
    memcpy(copy, text, length + 1);
    return copy;
}

char *VLN_strsave(const char *text)
{
    return strsave(text);
}

char *strsaveplus(const char *text, int extra)
{
    if (text == nullptr) text = "";
    size_t length = strlen(text);
    size_t more = extra > 0 ? static_cast<size_t>(extra) : 0;
    auto *copy = static_cast<char *>(malloc_or_die(length + more + 1));
    memcpy(copy, text, length);
    return copy;
}

char *strsave_cat(const char *a, const char *b)
{
    if (a == nullptr) a = "";
    if (b == nullptr) b = "";
    size_t la = strlen(a), lb = strlen(b);
    auto *joined = static_cast<char *>(allocate(la + lb + 1, false));
    memcpy(joined, a, la);
    memcpy(joined + la, b, lb + 1);
    return joined;
}

char *strsave_concat(char **string, const char *text)
{
    if (string == nullptr) return nullptr;
    if (text == nullptr) return *string;
    if (*string == nullptr) return *string = strsave(text);
    size_t la = strlen(*string), lb = strlen(text);
    *string = static_cast<char *>(realloc_or_die(*string, la + lb + 1));
    memcpy(*string + la, text, lb + 1);
    return *string;
}

char *strsave_strip_ext(const char *text)
{
    char *copy = strsave(text);
    // Down to, not including, the first character: ".profile" stays whole.
    for (size_t i = strlen(copy); i > 1; i--) {
        if (copy[i - 1] == '.') {
            copy[i - 1] = '\0';
            break;
        }
    }
    return copy;
}

char *strsave_strip_cr(const char *text)
{
    char *copy = strsave(text);
    char *out = copy;
    for (const char *in = copy; *in != '\0'; in++)
        if (*in != '\r') *out++ = *in;
    *out = '\0';
    return copy;
}

char *strsave_backquote_chars(const char *text)
{
    if (text == nullptr) text = "";
    auto *out = static_cast<char *>(malloc_or_die(2 * strlen(text) + 1));
    char *p = out;
    for (; *text != '\0'; text++) {
        switch (*text) {
            case '\t':
                *p++ = '\\';
                *p++ = 't';
                break;
            case '\n':
                *p++ = '\\';
                *p++ = 'n';
                break;
            case '"':
                *p++ = '\\';
                *p++ = '"';
                break;
            case '\\':
                *p++ = '\\';
                *p++ = '\\';
                break;
            default:
                *p++ = *text;
        }
    }
    *p = '\0';
    return out;
}

int memory_allocated(void)
{
    return 0;
}

void dump_musage(const char *label)
{
    static int last = 0;
    int now = memory_allocated();
    int diff = now - last;
    last = now;
    FILE *out = vln_ReturnStdOut();
    fprintf(out, "%15.15s: memory allocated = %d (", label != nullptr ? label : "", now);
    fputc(diff < 0 ? '-' : '+', out);
    fprintf(out, "%d)\n", diff < 0 ? -diff : diff);
}
