// The sensor class extension (SensorsCx): list formats, the sensor callback table
// and the calls the driver makes into the class extension.
#pragma once

#include "platform/propsys.h"
#include "platform/wdf.h"

struct SENSOROBJECT__;
using SENSOROBJECT = SENSOROBJECT__*;

struct SENSOR_VALUE_PAIR {
    PROPERTYKEY Key;
    PROPVARIANT Value;
};
static_assert(sizeof(SENSOR_VALUE_PAIR) == 48);

struct SENSOR_COLLECTION_LIST {
    ULONG AllocatedSizeInBytes;
    ULONG Count;
    SENSOR_VALUE_PAIR List[1];
};
using PSENSOR_COLLECTION_LIST = SENSOR_COLLECTION_LIST*;
static_assert(offsetof(SENSOR_COLLECTION_LIST, List) == 8);

struct SENSOR_PROPERTY_LIST {
    ULONG AllocatedSizeInBytes;
    ULONG Count;
    PROPERTYKEY List[1];
};
using PSENSOR_PROPERTY_LIST = SENSOR_PROPERTY_LIST*;
static_assert(offsetof(SENSOR_PROPERTY_LIST, List) == 8);

// Bytes of a list holding n entries: 8 + 48 n and 8 + 20 n.
constexpr ULONG SENSOR_COLLECTION_LIST_SIZE(ULONG n)
{
    return static_cast<ULONG>(offsetof(SENSOR_COLLECTION_LIST, List) + n * sizeof(SENSOR_VALUE_PAIR));
}
constexpr ULONG SENSOR_PROPERTY_LIST_SIZE(ULONG n)
{
    return static_cast<ULONG>(offsetof(SENSOR_PROPERTY_LIST, List) + n * sizeof(PROPERTYKEY));
}
static_assert(SENSOR_COLLECTION_LIST_SIZE(2) == 8 + 96);
static_assert(SENSOR_PROPERTY_LIST_SIZE(3) == 8 + 60);

struct SENSOR_CONFIG {
    ULONG Size;
    PSENSOR_COLLECTION_LIST pEnumerationList;
};
using PSENSOR_CONFIG = SENSOR_CONFIG*;
static_assert(sizeof(SENSOR_CONFIG) == 16);

using PFN_SENSOR_DRIVER_START_SENSOR = NTSTATUS (*)(SENSOROBJECT Sensor);
using PFN_SENSOR_DRIVER_STOP_SENSOR = NTSTATUS (*)(SENSOROBJECT Sensor);
using PFN_SENSOR_DRIVER_GET_SUPPORTED_DATA_FIELDS = NTSTATUS (*)(SENSOROBJECT Sensor,
                                                                 PSENSOR_PROPERTY_LIST pFields,
                                                                 ULONG* pSize);
using PFN_SENSOR_DRIVER_GET_DATA_FIELD_PROPERTIES = NTSTATUS (*)(SENSOROBJECT Sensor,
                                                                 const PROPERTYKEY* DataField,
                                                                 PSENSOR_COLLECTION_LIST pProperties,
                                                                 ULONG* pSize);
using PFN_SENSOR_DRIVER_GET_DATA_INTERVAL = NTSTATUS (*)(SENSOROBJECT Sensor, ULONG* DataRateMs);
using PFN_SENSOR_DRIVER_SET_DATA_INTERVAL = NTSTATUS (*)(SENSOROBJECT Sensor, ULONG DataRateMs);
using PFN_SENSOR_DRIVER_GET_DATA_THRESHOLDS = NTSTATUS (*)(SENSOROBJECT Sensor,
                                                           PSENSOR_COLLECTION_LIST pThresholds,
                                                           ULONG* pSize);
using PFN_SENSOR_DRIVER_SET_DATA_THRESHOLDS = NTSTATUS (*)(SENSOROBJECT Sensor,
                                                           PSENSOR_COLLECTION_LIST pThresholds);
using PFN_SENSOR_DRIVER_GET_PROPERTIES = NTSTATUS (*)(SENSOROBJECT Sensor,
                                                      PSENSOR_COLLECTION_LIST pProperties,
                                                      ULONG* pSize);
using PFN_SENSOR_DRIVER_DEVICE_IO_CONTROL = NTSTATUS (*)(SENSOROBJECT Sensor, WDFREQUEST Request,
                                                         SIZE_T OutputBufferLength,
                                                         SIZE_T InputBufferLength,
                                                         ULONG IoControlCode);
using PFN_SENSOR_DRIVER_START_HISTORY = NTSTATUS (*)(SENSOROBJECT Sensor);
using PFN_SENSOR_DRIVER_STOP_HISTORY = NTSTATUS (*)(SENSOROBJECT Sensor);
using PFN_SENSOR_DRIVER_CLEAR_HISTORY = NTSTATUS (*)(SENSOROBJECT Sensor);
using PFN_SENSOR_DRIVER_START_HISTORY_RETRIEVAL = NTSTATUS (*)(SENSOROBJECT Sensor,
                                                               PSENSOR_COLLECTION_LIST pHistoryBuffer,
                                                               ULONG HistorySizeInBytes);
using PFN_SENSOR_DRIVER_CANCEL_HISTORY_RETRIEVAL = NTSTATUS (*)(SENSOROBJECT Sensor,
                                                                ULONG* pBytesWritten);
using PFN_SENSOR_DRIVER_SET_BATCH_LATENCY = NTSTATUS (*)(SENSOROBJECT Sensor, ULONG LatencyMs);

struct SENSOR_CONTROLLER_CONFIG {
    ULONG Size;
    WDF_TRI_STATE DriverIsPowerPolicyOwner;
    PFN_SENSOR_DRIVER_START_SENSOR EvtSensorStart;
    PFN_SENSOR_DRIVER_STOP_SENSOR EvtSensorStop;
    PFN_SENSOR_DRIVER_GET_SUPPORTED_DATA_FIELDS EvtSensorGetSupportedDataFields;
    PFN_SENSOR_DRIVER_GET_DATA_FIELD_PROPERTIES EvtSensorGetDataFieldProperties;
    PFN_SENSOR_DRIVER_GET_DATA_INTERVAL EvtSensorGetDataInterval;
    PFN_SENSOR_DRIVER_SET_DATA_INTERVAL EvtSensorSetDataInterval;
    PFN_SENSOR_DRIVER_GET_DATA_THRESHOLDS EvtSensorGetDataThresholds;
    PFN_SENSOR_DRIVER_SET_DATA_THRESHOLDS EvtSensorSetDataThresholds;
    PFN_SENSOR_DRIVER_GET_PROPERTIES EvtSensorGetProperties;
    PFN_SENSOR_DRIVER_DEVICE_IO_CONTROL EvtSensorDeviceIoControl;
    PFN_SENSOR_DRIVER_START_HISTORY EvtSensorStartHistory;
    PFN_SENSOR_DRIVER_STOP_HISTORY EvtSensorStopHistory;
    PFN_SENSOR_DRIVER_CLEAR_HISTORY EvtSensorClearHistory;
    PFN_SENSOR_DRIVER_START_HISTORY_RETRIEVAL EvtSensorStartHistoryRetrieval;
    PFN_SENSOR_DRIVER_CANCEL_HISTORY_RETRIEVAL EvtSensorCancelHistoryRetrieval;
    PFN_SENSOR_DRIVER_SET_BATCH_LATENCY EvtSensorSetBatchLatency;
};
using PSENSOR_CONTROLLER_CONFIG = SENSOR_CONTROLLER_CONFIG*;
static_assert(sizeof(SENSOR_CONTROLLER_CONFIG) == 136);

extern "C" {
NTSTATUS SensorsCxDeviceInitConfig(PWDFDEVICE_INIT DeviceInit, PWDF_OBJECT_ATTRIBUTES Attributes,
                                   ULONG Flags);
NTSTATUS SensorsCxDeviceInitialize(WDFDEVICE Device, PSENSOR_CONTROLLER_CONFIG pConfig);
NTSTATUS SensorsCxSensorCreate(WDFDEVICE Device, PWDF_OBJECT_ATTRIBUTES pAttributes,
                               SENSOROBJECT* pSensor);
NTSTATUS SensorsCxSensorInitialize(SENSOROBJECT Sensor, PSENSOR_CONFIG pConfig);
// Takes a copy of the first Count entries; the driver keeps and reuses its list.
NTSTATUS SensorsCxSensorDataReady(SENSOROBJECT Sensor, PSENSOR_COLLECTION_LIST pSensorData);
NTSTATUS SensorsCxSensorHistoryRetrievalComplete(SENSOROBJECT Sensor, ULONG DataSizeInBytes,
                                                 NTSTATUS Status);
}
