// Report descriptors of real devices, kept in tests/data as hex text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace testdata {

// The bytes of tests/data/<name>.hex; adds a test failure when unreadable.
std::vector<std::uint8_t> LoadDescriptor(const std::string& name);

}  // namespace testdata
