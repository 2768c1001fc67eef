// The six calls the driver makes into the sensor class extension. Each checks
// the contract first, reports what is broken as a violation and refuses the
// call with a status instead of touching anything it cannot trust.
#include <algorithm>
#include <string>

#include "host/common/fault_injection.h"
#include "host/sensorscx/device_state.h"
#include "host/sensorscx/list_marshal.h"
#include "host/sensorscx/sensor_state.h"
#include "host/sensorscx/violations.h"

#include "host/framework/device.h"

namespace {

using host::DriverCall;
using host::FaultPoint;
using host::framework::Object;
using host::framework::ObjectKind;
using namespace host::sensorscx;

// The fifteen callbacks a driver must provide, with their names for messages.
struct CallbackSlot {
    const char* name;
    bool (*present)(const SENSOR_CONTROLLER_CONFIG&);
};

#define SENSORSCX_SLOT(field) {#field, [](const SENSOR_CONTROLLER_CONFIG& c) { return c.field != nullptr; }}
constexpr CallbackSlot kRequiredCallbacks[] = {
    SENSORSCX_SLOT(EvtSensorStart),
    SENSORSCX_SLOT(EvtSensorStop),
    SENSORSCX_SLOT(EvtSensorGetSupportedDataFields),
    SENSORSCX_SLOT(EvtSensorGetDataFieldProperties),
    SENSORSCX_SLOT(EvtSensorGetDataInterval),
    SENSORSCX_SLOT(EvtSensorSetDataInterval),
    SENSORSCX_SLOT(EvtSensorGetDataThresholds),
    SENSORSCX_SLOT(EvtSensorSetDataThresholds),
    SENSORSCX_SLOT(EvtSensorGetProperties),
    SENSORSCX_SLOT(EvtSensorDeviceIoControl),
    SENSORSCX_SLOT(EvtSensorStartHistory),
    SENSORSCX_SLOT(EvtSensorStopHistory),
    SENSORSCX_SLOT(EvtSensorClearHistory),
    SENSORSCX_SLOT(EvtSensorStartHistoryRetrieval),
    SENSORSCX_SLOT(EvtSensorCancelHistoryRetrieval),
};
#undef SENSORSCX_SLOT

// The state behind a SENSOROBJECT the driver passes, or null after reporting
// why there is none.
std::shared_ptr<SensorState> ResolveSensor(SENSOROBJECT sensor, const char* function)
{
    bool deleted = false;
    auto state = FindSensor(sensor, &deleted);
    if (state == nullptr) {
        const char* why = sensor == nullptr ? "a null SENSOROBJECT"
                          : deleted         ? "a deleted SENSOROBJECT"
                                            : "a handle that is no SENSOROBJECT";
        ReportViolation(ViolationKind::BadHandle, std::string(function) + " on " + why);
    }
    return state;
}

// The state behind a sensor that must be initialized for `function`.
std::shared_ptr<SensorState> ResolveInitializedSensor(SENSOROBJECT sensor, const char* function, NTSTATUS* status)
{
    auto state = ResolveSensor(sensor, function);
    if (state == nullptr) {
        *status = STATUS_INVALID_PARAMETER;
        return nullptr;
    }
    if (state->GetStage() != SensorState::Stage::Initialized) {
        ReportViolation(ViolationKind::SensorNotInitialized,
                        std::string(function) + " on " + state->Name() + ", which was never initialized");
        *status = STATUS_INVALID_DEVICE_STATE;
        return nullptr;
    }
    return state;
}

}  // namespace

extern "C" NTSTATUS SensorsCxDeviceInitConfig(PWDFDEVICE_INIT DeviceInit, PWDF_OBJECT_ATTRIBUTES Attributes,
                                              ULONG Flags)
{
    NTSTATUS status = STATUS_SUCCESS;
    DriverCall driverCall(FaultPoint::SensorsCxDeviceInitConfig);
    if (driverCall.Fails(&status))
        return status;
    if (DeviceInit == nullptr) {
        ReportViolation(ViolationKind::NullArgument, "SensorsCxDeviceInitConfig without a device-init");
        return STATUS_INVALID_PARAMETER;
    }
    if (Attributes != nullptr && Attributes->Size != sizeof(WDF_OBJECT_ATTRIBUTES)) {
        ReportViolation(ViolationKind::BadConfigSize, "SensorsCxDeviceInitConfig: object attributes of Size " +
                                                          std::to_string(Attributes->Size));
        return STATUS_INVALID_PARAMETER;
    }
    if (Flags != 0)
        return STATUS_INVALID_PARAMETER;
    DeviceInit->classExtensionConfigured = true;
    return STATUS_SUCCESS;
}

extern "C" NTSTATUS SensorsCxDeviceInitialize(WDFDEVICE Device, PSENSOR_CONTROLLER_CONFIG pConfig)
{
    NTSTATUS status = STATUS_SUCCESS;
    DriverCall driverCall(FaultPoint::SensorsCxDeviceInitialize);
    if (driverCall.Fails(&status))
        return status;
    Object* device = Object::FromHandle(Device);
    if (device == nullptr || device->Kind() != ObjectKind::Device) {
        ReportViolation(ViolationKind::BadHandle, "SensorsCxDeviceInitialize on a handle that is no WDFDEVICE");
        return STATUS_INVALID_PARAMETER;
    }
    if (!host::framework::DeviceClassExtensionConfigured(Device)) {
        ReportViolation(ViolationKind::OutOfOrder,
                        "SensorsCxDeviceInitialize on a device whose init skipped SensorsCxDeviceInitConfig");
        return STATUS_INVALID_DEVICE_STATE;
    }
    if (pConfig == nullptr) {
        ReportViolation(ViolationKind::NullArgument, "SensorsCxDeviceInitialize without a SENSOR_CONTROLLER_CONFIG");
        return STATUS_INVALID_PARAMETER;
    }
    if (pConfig->Size != sizeof(SENSOR_CONTROLLER_CONFIG)) {
        ReportViolation(ViolationKind::BadConfigSize, "SensorsCxDeviceInitialize: SENSOR_CONTROLLER_CONFIG Size " +
                                                          std::to_string(pConfig->Size) + ", expected " +
                                                          std::to_string(sizeof(SENSOR_CONTROLLER_CONFIG)));
        return STATUS_INVALID_PARAMETER;
    }
    // A missing callback is reported, not refused: a client calling it gets
    // STATUS_NOT_IMPLEMENTED, and everything else keeps working.
    for (const CallbackSlot& slot : kRequiredCallbacks) {
        if (!slot.present(*pConfig))
            ReportViolation(ViolationKind::MissingCallback,
                            std::string("SensorsCxDeviceInitialize: ") + slot.name + " is null");
    }
    try {
        status = AttachDeviceState(device, std::make_shared<DeviceState>(*pConfig));
    } catch (const std::bad_alloc&) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    if (status == STATUS_OBJECT_NAME_EXISTS) {
        ReportViolation(ViolationKind::InitializedTwice, "SensorsCxDeviceInitialize called twice on one device");
        return STATUS_INVALID_DEVICE_STATE;
    }
    return status;
}

extern "C" NTSTATUS SensorsCxSensorCreate(WDFDEVICE Device, PWDF_OBJECT_ATTRIBUTES pAttributes,
                                          SENSOROBJECT* pSensor)
{
    NTSTATUS status = STATUS_SUCCESS;
    DriverCall driverCall(FaultPoint::SensorsCxSensorCreate);
    if (driverCall.Fails(&status))
        return status;
    if (pSensor == nullptr) {
        ReportViolation(ViolationKind::NullArgument, "SensorsCxSensorCreate without an output pointer");
        return STATUS_INVALID_PARAMETER;
    }
    *pSensor = nullptr;
    Object* device = Object::FromHandle(Device);
    if (device == nullptr || device->Kind() != ObjectKind::Device) {
        ReportViolation(ViolationKind::BadHandle, "SensorsCxSensorCreate on a handle that is no WDFDEVICE");
        return STATUS_INVALID_PARAMETER;
    }
    std::shared_ptr<DeviceState> deviceState = DeviceStateOf(Device);
    if (deviceState == nullptr) {
        ReportViolation(ViolationKind::OutOfOrder, "SensorsCxSensorCreate before SensorsCxDeviceInitialize");
        return STATUS_INVALID_DEVICE_STATE;
    }
    if (pAttributes != nullptr && pAttributes->Size != sizeof(WDF_OBJECT_ATTRIBUTES)) {
        ReportViolation(ViolationKind::BadConfigSize,
                        "SensorsCxSensorCreate: object attributes of Size " + std::to_string(pAttributes->Size));
        return STATUS_INVALID_PARAMETER;
    }
    // A sensor always belongs to its device, whatever parent the attributes name.
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    if (pAttributes != nullptr) {
        attributes = *pAttributes;
        attributes.ParentObject = nullptr;
    }
    std::shared_ptr<SensorState> state;
    try {
        state = std::make_shared<SensorState>(deviceState,
                                              "sensor " + std::to_string(deviceState->NextSensorOrdinal()),
                                              attributes.ContextTypeInfo, attributes.ContextSizeOverride);
    } catch (const std::bad_alloc&) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    SensorObject* sensor = nullptr;
    status = Object::Create(device, &attributes, &sensor, state);
    if (!NT_SUCCESS(status))
        return status;
    auto handle = static_cast<SENSOROBJECT>(sensor->Handle());
    state->SetHandle(handle);
    try {
        RegisterSensor(handle, state);
    } catch (const std::bad_alloc&) {
        Object::Delete(sensor);
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    *pSensor = handle;
    return STATUS_SUCCESS;
}

extern "C" NTSTATUS SensorsCxSensorInitialize(SENSOROBJECT Sensor, PSENSOR_CONFIG pConfig)
{
    constexpr const char* kFunction = "SensorsCxSensorInitialize";
    NTSTATUS status = STATUS_SUCCESS;
    DriverCall driverCall(FaultPoint::SensorsCxSensorInitialize);
    if (driverCall.Fails(&status))
        return status;
    auto state = ResolveSensor(Sensor, kFunction);
    if (state == nullptr)
        return STATUS_INVALID_PARAMETER;
    if (pConfig == nullptr || pConfig->pEnumerationList == nullptr) {
        ReportViolation(ViolationKind::NullArgument, std::string(kFunction) + " on " + state->Name() + " without " +
                                                         (pConfig == nullptr ? "a SENSOR_CONFIG" : "an enumeration list"));
        return STATUS_INVALID_PARAMETER;
    }
    if (pConfig->Size != sizeof(SENSOR_CONFIG)) {
        ReportViolation(ViolationKind::BadConfigSize, std::string(kFunction) + " on " + state->Name() +
                                                          ": SENSOR_CONFIG Size " + std::to_string(pConfig->Size));
        return STATUS_INVALID_PARAMETER;
    }
    const std::string who = std::string(kFunction) + " enumeration list of " + state->Name();
    if (!marshal::CheckCollectionFits(pConfig->pEnumerationList, who))
        return STATUS_INVALID_PARAMETER;
    auto device = state->Device();
    if (device == nullptr)
        return STATUS_INVALID_DEVICE_STATE;
    SensorInfo info;
    try {
        info.enumeration = CollectionListCopy::FromList(*pConfig->pEnumerationList);
        if (!state->Initialize(info.enumeration)) {
            ReportViolation(ViolationKind::InitializedTwice, std::string(kFunction) + " called twice on " +
                                                                 state->Name());
            return STATUS_INVALID_DEVICE_STATE;
        }
        info.handle = Sensor;
        info.index = device->AddVisible(state);
    } catch (const std::bad_alloc&) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    device->Announce(info);
    return STATUS_SUCCESS;
}

extern "C" NTSTATUS SensorsCxSensorDataReady(SENSOROBJECT Sensor, PSENSOR_COLLECTION_LIST pSensorData)
{
    constexpr const char* kFunction = "SensorsCxSensorDataReady";
    NTSTATUS status = STATUS_SUCCESS;
    DriverCall driverCall(FaultPoint::SensorsCxSensorDataReady);
    if (driverCall.Fails(&status))
        return status;
    auto state = ResolveInitializedSensor(Sensor, kFunction, &status);
    if (state == nullptr)
        return status;
    // Called for every sample: the violation's text is built only when there is one.
    if (!marshal::CollectionFits(pSensorData)) {
        marshal::CheckCollectionFits(pSensorData, std::string(kFunction) + " on " + state->Name());
        return STATUS_INVALID_PARAMETER;
    }
    auto device = state->Device();
    if (device == nullptr)
        return STATUS_INVALID_DEVICE_STATE;
    std::shared_ptr<Sample> sample;
    try {
        // Built with its copy in place: a default Sample would allocate an empty list first.
        sample = std::make_shared<Sample>(
            Sample{.sensor = Sensor, .values = CollectionListCopy::FromList(*pSensorData)});
    } catch (const std::bad_alloc&) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    device->Publish(*sample, state.get());
    state->SetLastSample(std::move(sample));
    return STATUS_SUCCESS;
}

extern "C" NTSTATUS SensorsCxSensorHistoryRetrievalComplete(SENSOROBJECT Sensor, ULONG DataSizeInBytes,
                                                            NTSTATUS Status)
{
    NTSTATUS status = STATUS_SUCCESS;
    DriverCall driverCall(FaultPoint::SensorsCxHistoryRetrievalComplete);
    const bool injected = driverCall.Fails(&status);
    NTSTATUS resolveStatus = STATUS_SUCCESS;
    auto state = ResolveInitializedSensor(Sensor, "SensorsCxSensorHistoryRetrievalComplete", &resolveStatus);
    if (state == nullptr)
        return injected ? status : resolveStatus;
    // An injected failure still ends the retrieval on the host's side first,
    // so the driver's next start is not taken for an overlap.
    if (injected) {
        state->History().Complete(DataSizeInBytes, Status, HistoryRetrievals::Delivery::Dropped);
        return status;
    }
    return state->History().Complete(DataSizeInBytes, Status, HistoryRetrievals::Delivery::ToClient);
}
