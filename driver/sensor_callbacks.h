// The fifteen sensor callbacks the class extension calls. Each is a trampoline
// to the matching operation of the sensor object bound to the SENSOROBJECT
// through its SENSOR_INSTANCE_EXTENSION context; a handle without that
// context, or whose context holds no object, gives STATUS_UNSUCCESSFUL and
// touches no output.
#pragma once

#include "platform/sensorscx.h"

NTSTATUS OnStart(SENSOROBJECT sensor);
NTSTATUS OnStop(SENSOROBJECT sensor);
NTSTATUS OnGetSupportedDataFields(SENSOROBJECT sensor, PSENSOR_PROPERTY_LIST fields, ULONG* size);
NTSTATUS OnGetDataFieldProperties(SENSOROBJECT sensor, const PROPERTYKEY* dataField,
                                  PSENSOR_COLLECTION_LIST properties, ULONG* size);
NTSTATUS OnGetDataInterval(SENSOROBJECT sensor, ULONG* dataRateMs);
NTSTATUS OnSetDataInterval(SENSOROBJECT sensor, ULONG dataRateMs);
NTSTATUS OnGetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds, ULONG* size);
NTSTATUS OnSetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds);
NTSTATUS OnGetProperties(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST properties, ULONG* size);
NTSTATUS OnDeviceIoControl(SENSOROBJECT sensor, WDFREQUEST request, SIZE_T outputBufferLength,
                           SIZE_T inputBufferLength, ULONG ioControlCode);
NTSTATUS OnStartHistory(SENSOROBJECT sensor);
NTSTATUS OnStopHistory(SENSOROBJECT sensor);
NTSTATUS OnClearHistory(SENSOROBJECT sensor);
NTSTATUS OnStartHistoryRetrieval(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST historyBuffer,
                                 ULONG historySizeInBytes);
NTSTATUS OnCancelHistoryRetrieval(SENSOROBJECT sensor, ULONG* bytesWritten);

// The configuration handed to SensorsCxDeviceInitialize: the driver owns power
// policy, the fifteen trampolines in field order, no batch latency.
SENSOR_CONTROLLER_CONFIG SensorControllerConfig() noexcept;
