/* bt_fixture.h: a test record of every value type, its reader and its writer. */
#ifndef VORLAN_TESTS_BT_FIXTURE_H
#define VORLAN_TESTS_BT_FIXTURE_H

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "vld_blocktext.h"
#include "vld_core.h"
#include "vln_path.h"

namespace bt {

enum Code : uint32_t {
    kStr = 1,
    kInt,
    kFlt,
    kYn,
    kColour,
    kWhen,
    kList,
    kBand,
    kAngle,
    kRgb,
    kFile,
    kSub,
    kNone,
    kLength
};

inline const VLD_ENUM kColours[] = {{1, "Red"}, {2, "Green"}, {2, "Verde"}, {0, nullptr}};

inline const VLD_KEYWORD kTable[] = {
    {kStr, "Str", VTYPE_STRING, nullptr},      {kInt, "Int", VTYPE_INT, nullptr},
    {kFlt, "Flt", VTYPE_FLOAT, nullptr},       {kYn, "Yn", VTYPE_YN, nullptr},
    {kColour, "Colour", VTYPE_ENUM, kColours}, {kColour, "Color", VTYPE_ENUM, kColours},
    {kWhen, "When", VTYPE_DATETIME, nullptr},  {kList, "List", VTYPE_LIST, nullptr},
    {kBand, "Band", VTYPE_BANDID, nullptr},    {kAngle, "Angle", VTYPE_DMS, nullptr},
    {kRgb, "Rgb", VTYPE_TRIPLE, nullptr},      {kFile, "File", VTYPE_FILENAME, nullptr},
    {kSub, "Sub", VTYPE_BLOCK, nullptr},       {kNone, "None", VTYPE_NONE, nullptr},
    {kLength, "Len", VTYPE_LENGTH, nullptr},   {0, nullptr, 0, nullptr}};

/* A record of every written type, and its writer. */
struct Record {
    char *str = nullptr;
    int32_t i = 0;
    double f = 0;
    int32_t yn = 0;
    int32_t colour = 1;
    int32_t when = 0;
    double list[3] = {0, 0, 0};
    char *band = nullptr;
    double angle = 0;
    uint8_t rgb[3] = {0, 0, 0};
    char *file = nullptr;
    Record *sub = nullptr;
};

inline void write_record(void *p)
{
    auto *r = static_cast<Record *>(p);
    ep_line(&r->str, kStr, kTable);
    ep_line(&r->i, kInt, kTable);
    ep_line(&r->f, kFlt, kTable);
    ep_line(&r->yn, kYn, kTable);
    ep_line(&r->colour, kColour, kTable);
    ep_line(&r->when, kWhen, kTable);
    ep_line(r->list, kList, kTable);
    ep_array(r->list, 1, 3);
    ep_line(&r->band, kBand, kTable);
    ep_line(&r->angle, kAngle, kTable);
    ep_line(r->rgb, kRgb, kTable);
    ep_line(&r->file, kFile, kTable);
    ep_general(r->sub, nullptr, "Sub", write_record);
}

inline int write_doc(void *record, const char *filename)
{
    return ep_general(record, filename, "Doc", write_record);
}

/* The record behind tests/data/blocktext/every_type.vld. */
inline Record every_type(Record *sub)
{
    return Record{.str = const_cast<char *>("say \"hi\"\\n\tthen\nmore"),
                  .i = -42,
                  .f = 0.1,
                  .yn = 1,
                  .colour = 2,
                  .when = 1136214245,
                  .list = {1.5, -2, 1e-7},
                  .band = const_cast<char *>("1:2:3"),
                  .angle = -10.5,
                  .rgb = {255, 128, 0},
                  .sub = sub};
}

/* What the reader saw: one line per statement, "Keyword=value", blocks as
 * "Sub{" ... "}". */
struct Seen {
    std::vector<std::string> lines;
};

inline std::string render(const VLD_STATEMENT *st)
{
    char number[64];
    switch (st->type) {
        case VTYPE_STRING:
        case VTYPE_FILENAME:
        case VTYPE_BANDID: {
            std::string s = st->value.s;
            safe_free(st->value.s);
            return s;
        }
        case VTYPE_FLOAT:
        case VTYPE_DMS:
            snprintf(number, sizeof number, "%.17G", st->value.d);
            return number;
        case VTYPE_LIST: {
            std::string s;
            for (textnode *t = st->value.list; t != nullptr; t = t->next)
                s += (s.empty() ? "" : "|") + std::string(t->text);
            VLD_free_textnodes(st->value.list);
            return s;
        }
        case VTYPE_TRIPLE:
            snprintf(number, sizeof number, "%u,%u,%u", st->value.rgb[0], st->value.rgb[1],
                     st->value.rgb[2]);
            return number;
        default:
            return std::to_string(st->value.i);
    }
}

inline const char *name_of(int32_t code)
{
    for (const VLD_KEYWORD *k = kTable; k->name != nullptr; k++)
        if (k->code == static_cast<uint32_t>(code)) return k->name;
    return "?";
}

inline void callback(void *record, VLD_STATEMENT *st)
{
    auto *seen = static_cast<Seen *>(record);
    if (st->type == VTYPE_BLOCK) {
        seen->lines.push_back("Sub{");
        eg_general(record, nullptr, "Sub", kTable, callback);
        seen->lines.push_back("}");
        return;
    }
    seen->lines.push_back(std::string(name_of(st->code)) + "=" + render(st));
}

inline int reader(void *address_of_record, const char *filename)
{
    auto *seen = *static_cast<Seen **>(address_of_record);
    return eg_general(seen, filename, "Doc", kTable, callback);
}

/* The outcome of reading a document. */
struct Result {
    int status = 0;
    Seen seen;
    std::string error; /* VLD_error.text after a failure */
};

inline Result read_text(const std::string &text)
{
    Result r;
    Seen *p = &r.seen;
    r.status = eg_from_buffer(text.c_str(), reader, &p);
    if (r.status != 0 && VLD_error.text != nullptr) r.error = VLD_error.text;
    return r;
}

inline Result read_file(const std::string &path)
{
    Result r;
    r.status = eg_general(&r.seen, path.c_str(), "Doc", kTable, callback);
    if (r.status != 0 && VLD_error.text != nullptr) r.error = VLD_error.text;
    return r;
}

/* The diagnostic part of an error text: everything after its first line. */
inline std::string diagnostic(const std::string &error)
{
    size_t nl = error.find('\n');
    return nl == std::string::npos ? "" : error.substr(nl + 1);
}

/* A directory of its own under the temporary directory, removed at the end. */
class TempDir {
   public:
    TempDir()
    {
        char pattern[] = "/tmp/vld_bt_XXXXXX";
        path_ = mkdtemp(pattern);
    }
    ~TempDir() { vln_rmrfdir(path_.c_str()); }
    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }
    std::string write(const std::string &name, const std::string &content) const
    {
        std::ofstream(file(name), std::ios::binary) << content;
        return file(name);
    }
    /* The names of the regular files in it. */
    std::vector<std::string> names() const
    {
        std::vector<std::string> out;
        for (const auto &e : std::filesystem::directory_iterator(path_))
            if (e.is_regular_file()) out.push_back(e.path().filename().string());
        std::sort(out.begin(), out.end());
        return out;
    }

   private:
    std::string path_;
};

inline std::string slurp(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

}  // namespace bt

#endif
