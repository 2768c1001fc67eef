#include "host/hidsim/simulated_hid_device.h"

#include <new>
#include <utility>

#include "host/hidparser/report_descriptor_parser.h"
#include "host/hidsim/traffic_log.h"
#include "platform/hidpi.h"

namespace host::hidsim {

namespace {

constexpr USAGE kSensorUsagePage = 0x20;

}  // namespace

SimulatedHidDevice::SimulatedHidDevice(const HidDeviceConfig& config)
    : state_(std::make_unique<DeviceState>(config))
{
}

SimulatedHidDevice::~SimulatedHidDevice() = default;

std::unique_ptr<SimulatedHidDevice> SimulatedHidDevice::Create(const HidDeviceConfig& config, DeviceError& error)
{
    error = {};
    try {
        std::string ruleProblem = ValidateRules(config.rules);
        if (!ruleProblem.empty()) {
            error.message = std::move(ruleProblem);
            return nullptr;
        }

        std::vector<hid::PreparsedBlob> blobs;
        hid::ParseError parseError;
        if (!hid::ParseReportDescriptor(config.descriptor, blobs, parseError)) {
            error.message = "report descriptor: " + hid::FormatParseError(parseError);
            error.descriptorOffset = parseError.offset;
            return nullptr;
        }
        if (blobs.empty()) {
            error.message = "report descriptor: no top-level collection";
            return nullptr;
        }
        if (config.driverCollection && *config.driverCollection >= blobs.size()) {
            error.message = "driver collection " + std::to_string(*config.driverCollection) +
                            " does not exist: the descriptor has " + std::to_string(blobs.size()) +
                            " top-level collections";
            return nullptr;
        }

        std::unique_ptr<SimulatedHidDevice> device(new SimulatedHidDevice(config));
        for (std::size_t index = 0; index < blobs.size(); ++index) {
            HIDP_CAPS caps{};
            const NTSTATUS status = HidP_GetCaps(reinterpret_cast<PHIDP_PREPARSED_DATA>(blobs[index].data()), &caps);
            if (status != HIDP_STATUS_SUCCESS) {
                error.message = "collection " + std::to_string(index) + ": HidP_GetCaps failed with " +
                                FormatStatus(status);
                return nullptr;
            }
            device->collections_.push_back(std::make_unique<SimulatedCollection>(
                *device->state_, index, std::move(blobs[index]), caps, config.readQueueCapacity));
        }
        const std::size_t firstSensorCollection = device->FindCollection(kSensorUsagePage).value_or(0);
        device->driverCollection_ = config.driverCollection.value_or(firstSensorCollection);
        return device;
    } catch (const std::bad_alloc&) {
        error.message = "out of memory while creating the device";
        error.descriptorOffset.reset();
        return nullptr;
    }
}

std::optional<std::size_t> SimulatedHidDevice::FindCollection(USAGE usagePage, std::optional<USAGE> usage) const
{
    for (std::size_t index = 0; index < collections_.size(); ++index) {
        const HIDP_CAPS& caps = collections_[index]->Caps();
        if (caps.UsagePage == usagePage && (!usage || caps.Usage == *usage))
            return index;
    }
    return std::nullopt;
}

bool SimulatedHidDevice::UpdateFeatures(const FeatureMap& reports)
{
    try {
        std::lock_guard lock(state_->mutex);
        state_->features.Update(reports);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool SimulatedHidDevice::SetFeature(std::uint8_t reportId, std::vector<std::uint8_t> report)
{
    try {
        std::lock_guard lock(state_->mutex);
        state_->features.Set(reportId, std::move(report));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

std::optional<std::vector<std::uint8_t>> SimulatedHidDevice::Feature(std::uint8_t reportId) const
{
    try {
        std::lock_guard lock(state_->mutex);
        return state_->features.Get(reportId);
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

bool SimulatedHidDevice::SetRules(std::vector<DeviceRule> rules, std::string& error)
{
    try {
        error = ValidateRules(rules);
        if (!error.empty())
            return false;
        std::lock_guard lock(state_->mutex);
        state_->rules.Replace(std::move(rules));
        return true;
    } catch (const std::bad_alloc&) {
        error = "out of memory while replacing the rules";
        return false;
    }
}

}  // namespace host::hidsim
