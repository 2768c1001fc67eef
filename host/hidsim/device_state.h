// State shared by all top-level collections of one simulated device. Report IDs,
// rules and traffic belong to the device, not to a collection.
#pragma once

#include <mutex>

#include "host/hidsim/device_rules.h"
#include "host/hidsim/feature_store.h"
#include "host/hidsim/hid_device_config.h"
#include "host/hidsim/traffic_log.h"

namespace host::hidsim {

struct DeviceState {
    explicit DeviceState(const HidDeviceConfig& config)
        : information(config.information), strings(config.strings), traffic(config.trafficCapacity)
    {
        features.Update(config.features);
        rules.Replace(config.rules);
    }

    const CollectionInformation information;
    const DeviceStrings strings;

    // Guards features, rules and every collection's read queue. Completions
    // and the traffic listener are called without it.
    std::mutex mutex;
    FeatureStore features;
    RuleSet rules;

    TrafficLog traffic;  // has its own lock; recorded while `mutex` is held
};

}  // namespace host::hidsim
