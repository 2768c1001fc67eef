// Descriptor bytes as `hidsensor inspect` shows them: the item listing, the
// report layout and warnings, text and JSON must each end in output or one
// error line, never a crash, a hang or a read out of bounds.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "tools/hidsensor/inspect_command.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::vector<std::uint8_t> descriptor(data, data + size);
    for (int mode = 0; mode < 3; ++mode) {
        hidsensor::InspectOptions options;
        options.items = mode == 1;
        options.json = mode == 2;
        std::string out, err;
        const int status = hidsensor::InspectDescriptor(descriptor, options, "fuzz", out, err);
        if (status != 0 && status != 2) std::abort();
        if (status == 2 && err.empty()) std::abort();
    }
    return 0;
}
