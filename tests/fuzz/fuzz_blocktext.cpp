// Fuzz target of the block-text reader: any bytes, as a zero-ended text, read
// by a record of every value type with nested blocks. A string that was read
// must also survive being written and read again.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vld_blocktext.h"
#include "vld_core.h"

namespace {

enum : uint32_t { kStr = 1, kInt, kFlt, kYn, kEnum, kDate, kList, kBand, kDms, kRgb, kFile, kSub };

const VLD_ENUM kEnums[] = {{1, "One"}, {2, "Two"}, {2, "Deux"}, {0, nullptr}};

const VLD_KEYWORD kTable[] = {
    {kStr, "Str", VTYPE_STRING, nullptr},   {kInt, "Int", VTYPE_INT, nullptr},
    {kFlt, "Flt", VTYPE_FLOAT, nullptr},    {kYn, "Yn", VTYPE_YN, nullptr},
    {kEnum, "Enum", VTYPE_ENUM, kEnums},    {kDate, "When", VTYPE_DATETIME, nullptr},
    {kList, "List", VTYPE_LIST, nullptr},   {kList, "Matrix", VTYPE_LIST, nullptr},
    {kBand, "Band", VTYPE_BANDID, nullptr}, {kDms, "Angle", VTYPE_DMS, nullptr},
    {kRgb, "Rgb", VTYPE_TRIPLE, nullptr},   {kFile, "File", VTYPE_FILENAME, nullptr},
    {kSub, "Sub", VTYPE_BLOCK, nullptr},    {0, nullptr, 0, nullptr}};

struct Record {
    std::vector<std::string> strings;
};

void callback(void *record, VLD_STATEMENT *st)
{
    auto *r = static_cast<Record *>(record);
    switch (st->type) {
        case VTYPE_BLOCK:
            eg_general(record, nullptr, "Sub", kTable, callback);
            break;
        case VTYPE_STRING:
            r->strings.emplace_back(st->value.s);
            safe_free(st->value.s);
            break;
        case VTYPE_FILENAME:
        case VTYPE_BANDID:
            safe_free(st->value.s);
            break;
        case VTYPE_LIST: {
            double **matrix = nullptr;
            double *values = nullptr;
            if (st->code == kList) {
                conv_list_to_array(&values, st->value.list, 3);
            } else {
                conv_list_to_2Darray(&matrix, st->value.list, 2, 2);
            }
            safe_free(values);
            safe_free(matrix);
            break;
        }
        default:
            break;
    }
}

int reader(void *address_of_record, const char *filename)
{
    return eg_general(*static_cast<Record **>(address_of_record), filename, "Doc", kTable,
                      callback);
}

const char *g_string;

int write_string(void *, const char *filename)
{
    return ep_general(&g_string, filename, "Doc", [](void *p) { ep_line(p, kStr, kTable); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string text(reinterpret_cast<const char *>(data), size);  // zero-ended copy
    Record record;
    Record *p = &record;
    eg_from_buffer(text.c_str(), reader, &p);

    for (const std::string &s : record.strings) {
        if (s.empty()) continue;  // an empty string is never written
        g_string = s.c_str();
        char *written = nullptr;
        if (ep_to_buffer(nullptr, write_string, &written) != 0) abort();
        Record back;
        Record *q = &back;
        int status = eg_from_buffer(written, reader, &q);
        safe_free(written);
        if (status != 0 || back.strings.size() != 1 || back.strings[0] != s) abort();
    }
    return 0;
}
