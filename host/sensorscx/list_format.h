// Stable text and JSON for lists, keys and values, as the scenario format's
// "Values" section fixes them. The command-line tool and the golden tests
// build their output from these, so a change here changes every golden file.
//
//   KEY    "{GUID} pid": upper-case braced GUID, a space, the pid in decimal.
//   VT     the type name without "VT_": EMPTY NULL I1 UI1 I2 UI2 I4 UI4 INT UINT I8
//          UI8 R4 R8 BOOL FILETIME CLSID LPWSTR BLOB; any other type as
//          "0x" and 4 upper-case hex digits.
//   value  integers in decimal (I8 signed, UI8 unsigned); FILETIME as one
//          unsigned 64-bit integer of 100-ns units; R4 and R8 as the shortest
//          decimal that reads back to the same float or double, non-finite
//          values as the strings "NaN", "Infinity", "-Infinity"; BOOL true for
//          VARIANT_TRUE, false for VARIANT_FALSE, any other value as its
//          unsigned 16-bit number; CLSID as "{GUID}"; LPWSTR as a JSON string
//          (UTF-8, with \" \\ \n \r \t \b \f and \u00XX for other controls;
//          unpaired surrogates as \uXXXX); BLOB as a string of upper-case hex
//          pairs separated by single spaces; a null CLSID, LPWSTR or BLOB
//          pointer as null; EMPTY, NULL and unknown types have no value.
//
// JSON: an entry is {"key":KEY,"vt":VT,"value":V} ("value" left out when there
// is none), a collection list an array of entries, a property list an array of
// KEY strings; no spaces. Text: an entry is "KEY VT V" (V as in JSON, left out
// when there is none), a list one entry per line.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/sensorscx/list_copy.h"
#include "platform/sensorscx.h"

namespace host::sensorscx {

std::string FormatStatus(NTSTATUS status);  // "0xC0000001"
std::string FormatPropertyKey(const PROPERTYKEY& key);
std::string VarTypeName(VARTYPE vt);
std::string FormatFloat(float value);
std::string FormatDouble(double value);
std::string JsonQuote(std::u16string_view text);
std::string JsonQuote(std::string_view utf8);

// The JSON value of a variant, or nothing for types without one.
std::optional<std::string> ValueJson(const PROPVARIANT& value);

std::string EntryJson(const PROPERTYKEY& key, const PROPVARIANT& value);
// The first Count entries; the caller vouches that they are readable.
std::string CollectionListJson(const SENSOR_COLLECTION_LIST& list);
std::string CollectionListJson(const CollectionListCopy& list);
std::string PropertyListJson(const PROPERTYKEY* keys, ULONG count);
std::string PropertyListJson(const SENSOR_PROPERTY_LIST& list);

std::string EntryText(const PROPERTYKEY& key, const PROPVARIANT& value);
std::string CollectionListText(const SENSOR_COLLECTION_LIST& list);
std::string CollectionListText(const CollectionListCopy& list);

}  // namespace host::sensorscx
