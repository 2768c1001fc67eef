// The HID parser interface (HidP_*): capabilities of a top-level collection and
// reading and writing of fields in reports, over the collection's preparsed data.
#pragma once

#include "platform/basetypes.h"

using USAGE = USHORT;
using PUSAGE = USAGE*;

// Opaque: the bytes the HID class driver hands out with
// IOCTL_HID_GET_COLLECTION_DESCRIPTOR.
struct _HIDP_PREPARSED_DATA;
using PHIDP_PREPARSED_DATA = _HIDP_PREPARSED_DATA*;

enum HIDP_REPORT_TYPE : int {
    HidP_Input = 0,
    HidP_Output = 1,
    HidP_Feature = 2,
};

inline constexpr NTSTATUS HIDP_STATUS_SUCCESS = 0x00110000;
inline constexpr NTSTATUS HIDP_STATUS_NULL = static_cast<NTSTATUS>(0x80110001);
inline constexpr NTSTATUS HIDP_STATUS_INVALID_PREPARSED_DATA = static_cast<NTSTATUS>(0xC0110001);
inline constexpr NTSTATUS HIDP_STATUS_INVALID_REPORT_TYPE = static_cast<NTSTATUS>(0xC0110002);
inline constexpr NTSTATUS HIDP_STATUS_INVALID_REPORT_LENGTH = static_cast<NTSTATUS>(0xC0110003);
inline constexpr NTSTATUS HIDP_STATUS_USAGE_NOT_FOUND = static_cast<NTSTATUS>(0xC0110004);
inline constexpr NTSTATUS HIDP_STATUS_VALUE_OUT_OF_RANGE = static_cast<NTSTATUS>(0xC0110005);
inline constexpr NTSTATUS HIDP_STATUS_BAD_LOG_PHY_VALUES = static_cast<NTSTATUS>(0xC0110006);
inline constexpr NTSTATUS HIDP_STATUS_BUFFER_TOO_SMALL = static_cast<NTSTATUS>(0xC0110007);
inline constexpr NTSTATUS HIDP_STATUS_INTERNAL_ERROR = static_cast<NTSTATUS>(0xC0110008);
inline constexpr NTSTATUS HIDP_STATUS_INCOMPATIBLE_REPORT_ID = static_cast<NTSTATUS>(0xC011000A);
inline constexpr NTSTATUS HIDP_STATUS_NOT_VALUE_ARRAY = static_cast<NTSTATUS>(0xC011000B);
inline constexpr NTSTATUS HIDP_STATUS_IS_VALUE_ARRAY = static_cast<NTSTATUS>(0xC011000C);
inline constexpr NTSTATUS HIDP_STATUS_DATA_INDEX_NOT_FOUND = static_cast<NTSTATUS>(0xC011000D);
inline constexpr NTSTATUS HIDP_STATUS_DATA_INDEX_OUT_OF_RANGE = static_cast<NTSTATUS>(0xC011000E);
inline constexpr NTSTATUS HIDP_STATUS_BUTTON_NOT_PRESSED = static_cast<NTSTATUS>(0xC011000F);
inline constexpr NTSTATUS HIDP_STATUS_REPORT_DOES_NOT_EXIST = static_cast<NTSTATUS>(0xC0110010);
inline constexpr NTSTATUS HIDP_STATUS_NOT_IMPLEMENTED = static_cast<NTSTATUS>(0xC0110020);

// Link-collection CollectionType values (HID main item Collection data).
inline constexpr UCHAR HIDP_COLLECTION_PHYSICAL = 0x00;
inline constexpr UCHAR HIDP_COLLECTION_APPLICATION = 0x01;
inline constexpr UCHAR HIDP_COLLECTION_LOGICAL = 0x02;

struct HIDP_CAPS {
    USAGE Usage;
    USAGE UsagePage;
    USHORT InputReportByteLength;   // includes the report-ID byte
    USHORT OutputReportByteLength;
    USHORT FeatureReportByteLength;
    USHORT Reserved[17];
    USHORT NumberLinkCollectionNodes;
    USHORT NumberInputButtonCaps;
    USHORT NumberInputValueCaps;
    USHORT NumberInputDataIndices;
    USHORT NumberOutputButtonCaps;
    USHORT NumberOutputValueCaps;
    USHORT NumberOutputDataIndices;
    USHORT NumberFeatureButtonCaps;
    USHORT NumberFeatureValueCaps;
    USHORT NumberFeatureDataIndices;
};
using PHIDP_CAPS = HIDP_CAPS*;
static_assert(sizeof(HIDP_CAPS) == 64);

struct HIDP_RANGE {
    USAGE UsageMin, UsageMax;
    USHORT StringMin, StringMax;
    USHORT DesignatorMin, DesignatorMax;
    USHORT DataIndexMin, DataIndexMax;
};
struct HIDP_NOT_RANGE {
    USAGE Usage, Reserved1;
    USHORT StringIndex, Reserved2;
    USHORT DesignatorIndex, Reserved3;
    USHORT DataIndex, Reserved4;
};

struct HIDP_BUTTON_CAPS {
    USAGE UsagePage;
    UCHAR ReportID;
    BOOLEAN IsAlias;
    USHORT BitField;          // the main item's data bits (Data/Constant, Array/Variable, ...)
    USHORT LinkCollection;
    USAGE LinkUsage;
    USAGE LinkUsagePage;
    BOOLEAN IsRange;
    BOOLEAN IsStringRange;
    BOOLEAN IsDesignatorRange;
    BOOLEAN IsAbsolute;
    USHORT ReportCount;
    USHORT Reserved2;
    ULONG Reserved[9];
    union {
        HIDP_RANGE Range;
        HIDP_NOT_RANGE NotRange;
    };
};
using PHIDP_BUTTON_CAPS = HIDP_BUTTON_CAPS*;
static_assert(sizeof(HIDP_BUTTON_CAPS) == 72);

struct HIDP_VALUE_CAPS {
    USAGE UsagePage;
    UCHAR ReportID;
    BOOLEAN IsAlias;
    USHORT BitField;
    USHORT LinkCollection;
    USAGE LinkUsage;
    USAGE LinkUsagePage;
    BOOLEAN IsRange;
    BOOLEAN IsStringRange;
    BOOLEAN IsDesignatorRange;
    BOOLEAN IsAbsolute;
    BOOLEAN HasNull;
    UCHAR Reserved;
    USHORT BitSize;
    USHORT ReportCount;
    USHORT Reserved2[5];
    ULONG UnitsExp;
    ULONG Units;
    LONG LogicalMin, LogicalMax;
    LONG PhysicalMin, PhysicalMax;
    union {
        HIDP_RANGE Range;
        HIDP_NOT_RANGE NotRange;
    };
};
using PHIDP_VALUE_CAPS = HIDP_VALUE_CAPS*;
static_assert(sizeof(HIDP_VALUE_CAPS) == 72);

struct HIDP_LINK_COLLECTION_NODE {
    USAGE LinkUsage;
    USAGE LinkUsagePage;
    USHORT Parent;
    USHORT NumberOfChildren;
    USHORT NextSibling;
    USHORT FirstChild;
    ULONG CollectionType : 8;
    ULONG IsAlias : 1;
    ULONG Reserved : 23;
    PVOID UserContext;
};
using PHIDP_LINK_COLLECTION_NODE = HIDP_LINK_COLLECTION_NODE*;
static_assert(sizeof(HIDP_LINK_COLLECTION_NODE) == 24);

// LinkCollection argument meaning "any link collection" / "the top collection".
inline constexpr USHORT HIDP_LINK_COLLECTION_UNSPECIFIED = 0;
inline constexpr USHORT HIDP_LINK_COLLECTION_ROOT = static_cast<USHORT>(-1);

// Conventions of these functions on this host (host/hidparser documents them
// in full):
// - Byte 0 of a report buffer is its report ID (0 when the collection uses
//   none); ReportLength must be the collection's length for the report type,
//   else HIDP_STATUS_INVALID_REPORT_LENGTH.
// - A usage present only in another report than byte 0 names gives
//   HIDP_STATUS_INCOMPATIBLE_REPORT_ID. The Set functions accept byte 0 == 0
//   and then write the report ID of the field they use.
// - Null preparsed data gives HIDP_STATUS_INVALID_PREPARSED_DATA; any other
//   null pointer argument gives STATUS_INVALID_PARAMETER (0xC000000D).
// - A list shorter than needed is filled as far as it goes; the function then
//   returns HIDP_STATUS_BUFFER_TOO_SMALL with the length set to the number
//   needed.
extern "C" {
NTSTATUS HidP_GetCaps(PHIDP_PREPARSED_DATA PreparsedData, PHIDP_CAPS Capabilities);
NTSTATUS HidP_GetLinkCollectionNodes(PHIDP_LINK_COLLECTION_NODE LinkCollectionNodes,
                                     ULONG* LinkCollectionNodesLength,
                                     PHIDP_PREPARSED_DATA PreparsedData);
NTSTATUS HidP_GetButtonCaps(HIDP_REPORT_TYPE ReportType, PHIDP_BUTTON_CAPS ButtonCaps,
                            USHORT* ButtonCapsLength, PHIDP_PREPARSED_DATA PreparsedData);
NTSTATUS HidP_GetValueCaps(HIDP_REPORT_TYPE ReportType, PHIDP_VALUE_CAPS ValueCaps,
                           USHORT* ValueCapsLength, PHIDP_PREPARSED_DATA PreparsedData);
NTSTATUS HidP_GetUsageValue(HIDP_REPORT_TYPE ReportType, USAGE UsagePage, USHORT LinkCollection,
                            USAGE Usage, ULONG* UsageValue, PHIDP_PREPARSED_DATA PreparsedData,
                            CHAR* Report, ULONG ReportLength);
NTSTATUS HidP_GetUsageValueArray(HIDP_REPORT_TYPE ReportType, USAGE UsagePage,
                                 USHORT LinkCollection, USAGE Usage, CHAR* UsageValue,
                                 USHORT UsageValueByteLength, PHIDP_PREPARSED_DATA PreparsedData,
                                 CHAR* Report, ULONG ReportLength);
NTSTATUS HidP_GetUsages(HIDP_REPORT_TYPE ReportType, USAGE UsagePage, USHORT LinkCollection,
                        USAGE* UsageList, ULONG* UsageLength, PHIDP_PREPARSED_DATA PreparsedData,
                        CHAR* Report, ULONG ReportLength);
NTSTATUS HidP_SetUsageValue(HIDP_REPORT_TYPE ReportType, USAGE UsagePage, USHORT LinkCollection,
                            USAGE Usage, ULONG UsageValue, PHIDP_PREPARSED_DATA PreparsedData,
                            CHAR* Report, ULONG ReportLength);
NTSTATUS HidP_SetUsageValueArray(HIDP_REPORT_TYPE ReportType, USAGE UsagePage,
                                 USHORT LinkCollection, USAGE Usage, CHAR* UsageValue,
                                 USHORT UsageValueByteLength, PHIDP_PREPARSED_DATA PreparsedData,
                                 CHAR* Report, ULONG ReportLength);
NTSTATUS HidP_SetUsages(HIDP_REPORT_TYPE ReportType, USAGE UsagePage, USHORT LinkCollection,
                        USAGE* UsageList, ULONG* UsageLength, PHIDP_PREPARSED_DATA PreparsedData,
                        CHAR* Report, ULONG ReportLength);
NTSTATUS HidP_UnsetUsages(HIDP_REPORT_TYPE ReportType, USAGE UsagePage, USHORT LinkCollection,
                          USAGE* UsageList, ULONG* UsageLength, PHIDP_PREPARSED_DATA PreparsedData,
                          CHAR* Report, ULONG ReportLength);
}
