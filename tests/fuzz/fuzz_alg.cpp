// Fuzz target of the algorithm reader: any bytes, as a zero-ended text, read
// as an Algorithm document and finished as an embedded one (no dataset is
// opened, no link program run). What was read must also write out and read
// back without failing: a write that fails is a finding too.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "vld_alg.h"
#include "vld_alg_internal.h"
#include "vld_blocktext.h"

namespace {

int read_alg(void *address_of_record, const char *filename)
{
    return vld::read_algorithm_document(*static_cast<algorithm **>(address_of_record), filename);
}

int write_alg(void *record, const char *filename)
{
    return ep_vds_algorithm(static_cast<algorithm *>(record), filename);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string text(reinterpret_cast<const char *>(data), size);
    algorithm *record = nullptr;
    ea_algorithm(&record);
    if (eg_from_buffer(text.c_str(), read_alg, &record) == 0) {
        algorithm *copy = nullptr;
        cp_algorithm_all(&copy, record);
        // Every document that reads writes back, and what it writes reads.
        char *written = nullptr;
        if (ep_to_buffer(copy, write_alg, &written) != 0 || written == nullptr) abort();
        algorithm *again = nullptr;
        ea_algorithm(&again);
        if (eg_from_buffer(written, read_alg, &again) != 0) abort();
        ef_algorithm(again);
        safe_free(written);
        ef_algorithm(copy);
    }
    ef_algorithm(record);
    return 0;
}
