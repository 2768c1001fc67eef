// What a client of the class extension receives: published sensors, samples
// and history retrieval results, each a self-contained copy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "host/sensorscx/list_copy.h"
#include "platform/sensorscx.h"

namespace host::sensorscx {

struct SensorInfo {
    SENSOROBJECT handle = nullptr;
    std::size_t index = 0;           // position among the visible sensors, in initialization order
    CollectionListCopy enumeration;  // as given to SensorsCxSensorInitialize
};

struct Sample {
    std::uint64_t sequence = 0;  // per device, from 1, in the order of SensorsCxSensorDataReady calls
    SENSOROBJECT sensor = nullptr;
    std::size_t sensorIndex = 0;  // position among the visible sensors at delivery
    CollectionListCopy values;    // the first Count entries at the moment of the call
};

struct HistoryCompletion {
    NTSTATUS status = STATUS_SUCCESS;  // the retrieval's final status, as the driver reported it
    ULONG size = 0;                    // DataSizeInBytes, as the driver reported it
    CollectionListCopy list;           // the entries found in the client's buffer
};

using SampleCallback = std::function<void(const Sample&)>;
using SensorCallback = std::function<void(const SensorInfo&)>;

}  // namespace host::sensorscx
