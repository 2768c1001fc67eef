// GUID text and generation shared by the COM functions, the list formatters and
// the command-line tool.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/basetypes.h"

namespace host::com {

// Restarts the CoCreateGuid sequence: the same seed gives the same GUIDs, so a
// run is reproducible. The generator starts as if seeded with 1, and every
// new DriverHost seeds it with 1 again.
void SeedGuidGenerator(std::uint64_t seed);

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}", upper-case hex.
std::string FormatGuid(const GUID& guid);

// Parses exactly the braced 38-character form; hex digits in either case.
// Nothing else (no missing braces, no spaces, no trailing text) is accepted.
std::optional<GUID> ParseGuid(std::u16string_view text);
std::optional<GUID> ParseGuid(std::string_view text);

}  // namespace host::com
