// Fuzz target of the dataset-header reader: any bytes, as a zero-ended text,
// read as a DatasetHeader document with every sub-block. What was read must
// also write out and read back without failing.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vld_blocktext.h"
#include "vld_dshdr.h"
#include "vld_dshdr_internal.h"

namespace {

int read_header(void *address_of_record, const char *filename)
{
    auto *record = *static_cast<dshdr **>(address_of_record);
    vld::DshdrReadState state;
    int status = vld::read_dshdr_document(record, filename, state);
    // As the header reader does: a header without a coordinate space gets the default one.
    if (status == 0 && !state.cs.seen) df_coordspace_noalloc(&record->coordspace);
    return status;
}

int write_header(void *record, const char *filename)
{
    return ep_dshdr(static_cast<dshdr *>(record), filename);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string text(reinterpret_cast<const char *>(data), size);
    dshdr *record = nullptr;
    ea_dshdr(&record);
    if (eg_from_buffer(text.c_str(), read_header, &record) == 0 && record->algorithm == nullptr) {
        char *written = nullptr;
        if (ep_to_buffer(record, write_header, &written) == 0 && written != nullptr) {
            dshdr *again = nullptr;
            ea_dshdr(&again);
            if (eg_from_buffer(written, read_header, &again) != 0) abort();
            ef_dshdr(again);
        }
        safe_free(written);
    }
    ef_dshdr(record);
    return 0;
}
