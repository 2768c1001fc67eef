// Scenario files as `hidsensor run` reads them: parsing and every check must
// end in a scenario or one error line, never a crash or a hang.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "tools/hidsensor/scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string error;
    const std::optional<hidsensor::Scenario> scenario =
        hidsensor::ParseScenario(std::string_view(reinterpret_cast<const char*>(data), size), error);
    if (scenario.has_value() == !error.empty())
        std::abort();  // exactly one of the two
    if (error.find('\n') != std::string::npos)
        std::abort();  // the error is one line
    return 0;
}
