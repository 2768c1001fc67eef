// The device's feature reports, by report ID. Report IDs are device-wide, so
// every top-level collection of the device shares one store.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace host::hidsim {

using FeatureMap = std::map<std::uint8_t, std::vector<std::uint8_t>>;

class FeatureStore {
public:
    // Sets the listed reports; the others keep their contents.
    void Update(const FeatureMap& reports);
    void Set(std::uint8_t reportId, std::vector<std::uint8_t> report);
    std::optional<std::vector<std::uint8_t>> Get(std::uint8_t reportId) const;

    // What GET_FEATURE returns for `reportId`: the stored report as it is
    // (byte 0 included), or the ID alone when none is stored, padded with
    // zeros to `reportLength`. A stored report longer than that is kept whole.
    std::vector<std::uint8_t> Answer(std::uint8_t reportId, std::size_t reportLength) const;

private:
    FeatureMap reports_;
};

}  // namespace host::hidsim
