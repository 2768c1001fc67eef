// SensorsUtilsV2: the class extension's utility library for sensor lists.
#pragma once

#include "platform/sensorscx.h"

extern "C" {
// Bytes a marshalled copy of the list needs: entries plus the strings and GUIDs
// they point to, which travel after the entries.
ULONG CollectionsListGetMarshalledSize(const SENSOR_COLLECTION_LIST* Collection);
// Bytes of the entries alone: 8 + 48 Count.
ULONG CollectionsListGetMarshalledSizeWithoutSerialization(const SENSOR_COLLECTION_LIST* Collection);
// Copies Source into Target, whose AllocatedSizeInBytes must hold the marshalled size;
// pointers in Target point inside Target's own buffer.
NTSTATUS CollectionsListCopyAndMarshall(PSENSOR_COLLECTION_LIST Target,
                                        const SENSOR_COLLECTION_LIST* Source);
NTSTATUS PropertiesListCopy(PSENSOR_PROPERTY_LIST Target, const SENSOR_PROPERTY_LIST* Source);
NTSTATUS InitPropVariantFromFloat(float fltVal, PROPVARIANT* ppropvar);
// Orders the activity entries of Data by confidence, keeping only the activities
// that Thresholds subscribes to.
NTSTATUS CollectionsListSortSubscribedActivitiesByConfidence(PSENSOR_COLLECTION_LIST Thresholds,
                                                             PSENSOR_COLLECTION_LIST Data);
// TRUE when NewSample is to be delivered, judged against the last delivered sample.
BOOLEAN EvaluateActivityThresholds(PSENSOR_COLLECTION_LIST NewSample,
                                   PSENSOR_COLLECTION_LIST OldSample,
                                   PSENSOR_COLLECTION_LIST Thresholds);
}
