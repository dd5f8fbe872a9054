/*
 * gdb_table.cpp: keyed access to the engine's text tables.
 *
 * A table T is the file T.dat in the table directory: a header line of comma
 * separated column names, then one row a line, keyed by its first field. Up
 * to six tables stay open at once; the sixth slot is the one that churns when
 * a seventh is asked for. One row at a time is chosen, its fields held as
 * pointers into one line buffer. Look-ups scan the file from the top: tables
 * are small, and the engine keeps what it reads in its coordinate systems.
 *
 * Nothing here locks: callers hold VLN_GLOBAL_GDT_MUTEX.
 */
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "gdt_internal.h"

namespace {

constexpr int kSlots = 6;
constexpr int kMaxColumns = 40;
constexpr int kLineSize = 512;
constexpr int kMaxTableName = 20;

struct Slot {
    std::string name;
    FILE *file = nullptr;
    int columns = 0;
    char header[kLineSize] = "";
    char *column_names[kMaxColumns] = {};
    bool rewound = false; /* the next gdb_next_name_key starts from the top */
};

enum KeyState { kNoTable = 0, kTableChosen = 1, kRowChosen = 2 };

struct State {
    Slot slots[kSlots];
    int current = -1;
    KeyState key_state = kNoTable;
    char line[kLineSize] = "";
    char *fields[kMaxColumns] = {};
    int field_count = 0;
    int column_cursor = 0;
    bool path_settled = false;
    std::string path;
    int db_type = -1;
};

State state;

void gdb_error(const char *text)
{
    gdt::report('S', 0, text);
}

/* Reads one line into `buf`: it ends at LF, CR or NUL; a longer line is cut at
 * kLineSize - 1 characters and its rest skipped. false at the end of the file. */
bool read_line(FILE *f, char *buf)
{
    int n = 0, c;
    bool any = false;
    while ((c = std::fgetc(f)) != EOF) {
        any = true;
        if (c == '\n' || c == '\r' || c == '\0') break;
        if (n < kLineSize - 1) buf[n++] = static_cast<char>(c);
    }
    buf[n] = '\0';
    return any;
}

/* Splits `buf` in place at commas: blanks and tabs before a field are skipped,
 * blanks and tabs at its end cut. Returns the number of fields. */
int split(char *buf, char **fields)
{
    int count = 0;
    char *p = buf;
    while (count < kMaxColumns) {
        while (*p == ' ' || *p == '\t') p++;
        char *start = p;
        while (*p && *p != ',') p++;
        bool more = *p == ',';
        char *end = p;
        while (end > start && (end[-1] == ' ' || end[-1] == '\t')) end--;
        *end = '\0';
        fields[count++] = start;
        if (!more) break;
        p++;
    }
    return count;
}

void close_slot(Slot &slot)
{
    if (slot.file) std::fclose(slot.file);
    slot = Slot{};
}

/* Rewinds the current table to its first row. */
bool rewind_table(Slot &slot)
{
    if (std::fseek(slot.file, 0, SEEK_SET) != 0) return false;
    char skip[kLineSize];
    return read_line(slot.file, skip);
}

/* Makes `line` the chosen row. */
void choose_row()
{
    state.field_count = split(state.line, state.fields);
    for (int i = state.field_count; i < kMaxColumns; i++) state.fields[i] = nullptr;
    state.key_state = kRowChosen;
}

int no_sybase()
{
    return std::printf("\n NO SYBASE ! ");
}

}  // namespace

const char *gdb_path(void)
{
    if (state.path_settled) return state.path.c_str();
    const char *env = std::getenv("GDT_DATA_PATH");
    if (env && *env) {
        if (std::strncmp(env, "SYBASE/", 7) == 0) {
            if (state.db_type < 0) state.db_type = 1;
            state.path = env + 7;
        } else {
            if (state.db_type < 0) state.db_type = 0;
            state.path = env;
            if (state.path.back() != '/') state.path += '/';
        }
    } else {
        const char *root = std::getenv("VORLAN");
        state.path = root ? std::string(root) + "/GDT_DATA/" : std::string("/GDT_DATA/");
        if (state.db_type < 0) state.db_type = 0;
    }
    state.path_settled = true;
    return state.path.c_str();
}

const char *gdb_grid_path(void)
{
    return gdb_path();
}

int gdb_set_db(int type)
{
    if (type != 0 && type != 1) {
        gdb_error("GDB:Bad database type");
        return -1;
    }
    if (state.db_type < 0) state.db_type = type;
    return 0;
}

int gdb_set_table(const char *name)
{
    gdb_path();
    if (state.db_type == 1) return no_sybase();
    if (state.key_state == kRowChosen) state.key_state = kTableChosen;
    if (!name || std::strlen(name) >= kMaxTableName) return -1;
    int chosen = -1;
    for (int i = 0; i < kSlots && chosen < 0; i++)
        if (state.slots[i].file && state.slots[i].name == name) chosen = i;
    if (chosen < 0) {
        for (int i = 0; i < kSlots && chosen < 0; i++)
            if (!state.slots[i].file) chosen = i;
        if (chosen < 0) {
            chosen = kSlots - 1;
            close_slot(state.slots[chosen]);
        }
        Slot &slot = state.slots[chosen];
        std::string file = state.path + name + ".dat";
        slot.file = std::fopen(file.c_str(), "rb");
        if (!slot.file) {
            gdb_error("GDB:opening the file");
            slot = Slot{};
            if (state.current == chosen) state.current = -1;
            return -1;
        }
        if (!read_line(slot.file, slot.header)) {
            gdb_error("GDB:reading the file");
            close_slot(slot);
            if (state.current == chosen) state.current = -1;
            return -1;
        }
        slot.name = name;
        slot.columns = split(slot.header, slot.column_names);
    }
    state.current = chosen;
    state.slots[chosen].rewound = false;
    state.key_state = kTableChosen;
    state.column_cursor = 0;
    return 0;
}

int gdb_set_name_key(const char *key)
{
    if (state.db_type == 1) return no_sybase();
    if (state.key_state == kNoTable || state.current < 0) {
        gdb_error("GDB:No table in gdb_set_key");
        return -1;
    }
    state.key_state = kTableChosen;
    if (!key) return -1;
    size_t length = std::strlen(key);
    if (length >= kMaxTableName) return -1;
    char folded[kMaxTableName];
    for (size_t i = 0; i <= length; i++)
        folded[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(key[i])));
    Slot &slot = state.slots[state.current];
    if (!rewind_table(slot)) {
        gdb_error("GDB:reading the file");
        return -2;
    }
    slot.rewound = true;
    while (read_line(slot.file, state.line)) {
        // The start of the line is folded for the length of the key, so that
        // the match is case-insensitive; a longer first field still differs.
        for (size_t i = 0; i < length && state.line[i]; i++)
            state.line[i] =
                static_cast<char>(std::toupper(static_cast<unsigned char>(state.line[i])));
        char *p = state.line;
        while (*p == ' ' || *p == '\t') p++;
        if (std::strncmp(p, folded, length) != 0) continue;
        choose_row();
        if (std::strcmp(state.fields[0], folded) == 0) return 0;
        state.key_state = kTableChosen;
    }
    if (std::ferror(slot.file)) {
        std::clearerr(slot.file);
        gdb_error("GDB:reading the file");
        return -2;
    }
    return -1;
}

int gdb_next_name_key(char *key)
{
    if (state.db_type == 1) return no_sybase();
    if (state.key_state == kNoTable || state.current < 0) {
        gdb_error("GDB:No table in gdb_next_name_key");
        return -1;
    }
    Slot &slot = state.slots[state.current];
    if (!key || !slot.rewound) {
        if (!rewind_table(slot)) {
            gdb_error("GDB:reading the file");
            return -1;
        }
        slot.rewound = true;
        if (!key) return 0;
    }
    while (read_line(slot.file, state.line)) {
        choose_row();
        if (state.fields[0][0] == '\0') continue; /* a blank line */
        std::snprintf(key, gdt::kNameSize, "%s", state.fields[0]);
        return 0;
    }
    state.key_state = kTableChosen;
    if (std::ferror(slot.file)) {
        std::clearerr(slot.file);
        gdb_error("GDB:reading the file");
        return -1;
    }
    return 1;
}

int gdb_load(const char *column, const char *type, void *out)
{
    if (state.db_type == 1) return no_sybase();
    if (state.key_state != kRowChosen || state.current < 0) {
        gdb_error("GDB:No key for gdb_load");
        return -1;
    }
    const Slot &slot = state.slots[state.current];
    int index = -1;
    for (int i = 0; column && i < slot.columns && index < 0; i++)
        if (std::strcmp(slot.column_names[i], column) == 0) index = i;
    if (index < 0) {
        gdb_error("GDB:Att name not found");
        return -1;
    }
    if (!type || !std::strchr("cdls", type[0]) || type[0] == '\0') {
        gdb_error("GDB:Bad data type");
        return -1;
    }
    const char *field = index < state.field_count ? state.fields[index] : "";
    if (field[0] == '\0') return 1;
    if (!out) return 0;
    switch (type[0]) {
        case 'c':
            *static_cast<char *>(out) = field[0];
            break;
        case 'd':
            *static_cast<double *>(out) = std::atof(field);
            break;
        case 'l':
            *static_cast<int32_t *>(out) = static_cast<int32_t>(std::atol(field));
            break;
        default:
            std::strcpy(static_cast<char *>(out), field);
            break;
    }
    return 0;
}

int gdb_next_column_name(char *name)
{
    if (state.db_type == 1) return no_sybase();
    if (state.key_state == kNoTable || state.current < 0) {
        gdb_error("GDB:No table in gdb_next_column_name");
        return -1;
    }
    if (!name) {
        state.column_cursor = 0;
        return 0;
    }
    const Slot &slot = state.slots[state.current];
    if (state.column_cursor >= slot.columns) return 1;
    std::strcpy(name, slot.column_names[state.column_cursor++]);
    return 0;
}

int gdb_struct_load(const gdt_struct_desc *description, void *block)
{
    char name[64] = "init-.";
    char type[4] = "*";
    int status = struct_inq(description, block, name, type, nullptr, 0);
    while (status == 0) {
        char value[kLineSize];
        if (gdb_load(name, "s", value) != 0) return -1;
        if (struct_mod(description, block, name, "s", value) != 0) return -1;
        std::strcpy(name, "next");
        std::strcpy(type, "*");
        status = struct_inq(description, block, name, type, nullptr, 0);
    }
    return status == 1 ? 0 : -1;
}

void gdt::gdb_reset()
{
    for (Slot &slot : state.slots) close_slot(slot);
    state.current = -1;
    state.key_state = kNoTable;
    state.path_settled = false;
    state.path.clear();
    state.db_type = -1;
}

int gdt::gdb_datum_radius(const char *datum, double *radius)
{
    if (gdb_set_table("datum_sp") != 0 || gdb_set_name_key(datum) != 0) return -1;
    double r = 0.0;
    if (gdb_load("radius", "d", &r) != 0) return -1;
    *radius = r;
    return 0;
}
