/*
 * vln_linkprog.cpp: starting dynamic link programs, and splitting their
 * parameter texts.
 *
 * A link program draws vector overlays (or answers questions about them) for
 * an algorithm's view. It learns the view from a fixed argument list: what is
 * asked, the coordinate type, the rotation, the corners, two integers and two
 * doubles, and a file. Doubles are written with 17 significant digits, so
 * that the program reads back exactly the numbers we hold.
 */
#include "vln_process.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace {

// The coordinate type word that a link program expects: the names that the
// coordinate-system table writes for EN and LL, and RAW for everything else.
const char *type_word(int coordsystype)
{
    switch (coordsystype) {
        case 2:
            return "EN";
        case 3:
            return "LL";
        default:
            return "RAW";
    }
}

// The text between the n-th pair of double quotes (n from 0), or false.
bool quoted_part(const char *text, int n, const char **start, size_t *length)
{
    const char *p = text;
    for (int i = 0; i <= n; i++) {
        const char *open = strchr(p, '"');
        if (open == nullptr) return false;
        const char *close = strchr(open + 1, '"');
        if (close == nullptr) return false;
        *start = open + 1;
        *length = static_cast<size_t>(close - open - 1);
        p = close + 1;
    }
    return true;
}

char *copy_span(const char *start, size_t length)
{
    char *copy = strsaveplus("", static_cast<int>(length));
    memcpy(copy, start, length);
    copy[length] = '\0';
    return copy;
}

}  // namespace

int forkexec_linkprog(int *pid, char *errtext, int errsize, int *in_fd, int *out_fd, int *err_fd,
                      const char *program, const vln_linkprog_args *args)
{
    static const vln_linkprog_args none = {};
    if (args == nullptr) args = &none;
    // The numbers in the order of the list: rotation, the corners, the two
    // integers, the two doubles.
    const double geometry[] = {args->rotation, args->top_left_x, args->top_left_y,
                               args->bottom_right_x, args->bottom_right_y};
    char number[9][32];
    for (int i = 0; i < 5; i++) snprintf(number[i], sizeof number[i], "%.17G", geometry[i]);
    for (int i = 0; i < 2; i++) {
        snprintf(number[5 + i], sizeof number[5 + i], "%d", args->int_args[i]);
        snprintf(number[7 + i], sizeof number[7 + i], "%.17G", args->double_args[i]);
    }
    char *argv[] = {const_cast<char *>(program != nullptr ? program : ""),
                    const_cast<char *>(args->mode != nullptr ? args->mode : ""),
                    const_cast<char *>(type_word(args->coordsystype)),
                    number[0],
                    number[1],
                    number[2],
                    number[3],
                    number[4],
                    number[5],
                    number[6],
                    number[7],
                    number[8],
                    const_cast<char *>(args->file != nullptr ? args->file : ""),
                    nullptr};
    return vln_forkexecvp(pid, errtext, errsize, in_fd, out_fd, err_fd, program, argv);
}

int VLD_dlink_separate_arguments(const char *text, char **first, char **second)
{
    if (first != nullptr) *first = nullptr;
    if (second != nullptr) *second = nullptr;
    if (text == nullptr || first == nullptr || second == nullptr)
        return VLD_setup_error(VLD_ERR_COMMAND_ARGUMENTS, text != nullptr ? text : "");
    const char *a = nullptr;
    const char *b = nullptr;
    size_t a_len = 0;
    size_t b_len = 0;
    if (strchr(text, '"') != nullptr) {
        if (!quoted_part(text, 0, &a, &a_len) || !quoted_part(text, 1, &b, &b_len))
            return VLD_setup_error(VLD_ERR_COMMAND_ARGUMENTS, text);
    } else {
        // The plain form: the first word, then the rest without its outer blanks.
        a = text;
        while (isspace(static_cast<unsigned char>(*a))) a++;
        a_len = 0;
        while (a[a_len] != '\0' && !isspace(static_cast<unsigned char>(a[a_len]))) a_len++;
        b = a + a_len;
        while (isspace(static_cast<unsigned char>(*b))) b++;
        b_len = strlen(b);
        while (b_len > 0 && isspace(static_cast<unsigned char>(b[b_len - 1]))) b_len--;
        if (a_len == 0 || b_len == 0) return VLD_setup_error(VLD_ERR_COMMAND_ARGUMENTS, text);
    }
    *first = copy_span(a, a_len);
    *second = copy_span(b, b_len);
    return 0;
}
