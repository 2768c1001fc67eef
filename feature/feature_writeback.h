// The write-back half of ReadFeatureReport: every setting is a read-modify-
// write of the one report buffer (set one field, SET_FEATURE, GET_FEATURE into
// the same buffer, decode the field again), so the cache and the record follow
// what the device kept, not what was asked.
#pragma once

#include "feature/feature_report_context.h"

// Runs the writes in their fixed order: report interval, batch interval, the
// change sensitivity of every seen data field, the bounds of every seen data
// field, the vendor values (writeSettings 1 only), and last the reporting and
// power state, which runs only when the step before it succeeded. Each step is
// traced when it fails and the next one still runs. Returns the status carried
// to the end (the last step that ran).
NTSTATUS WriteBackSettings(FeatureReportContext& context);

// SET_FEATURE of the report, then GET_FEATURE into a second buffer, up to two
// attempts; the second is made when the device's answer is all zeros or does
// not match the report sent over its value bytes. On success the caller's
// report holds the device's answer. `verified` (optional) tells whether the
// answer matched (always 1 when verify is 0).
NTSTATUS SendFeatureReport(const FeatureReportContext& context, ULONG verify, ULONG* verified);

// Bytes of the report compared with the device's answer: the report ID, the
// whole bytes of every value field of the report, and one byte for each run of
// selector (button) fields of one named array.
ULONG FeatureCompareLength(const HidCollectionRecord& record, UCHAR reportId) noexcept;

NTSTATUS WriteReportInterval(FeatureReportContext& context);
NTSTATUS WriteBatchInterval(FeatureReportContext& context);
NTSTATUS WriteVendorProperty(FeatureReportContext& context, ULONG vendorIndex);
NTSTATUS WriteReportingAndPowerState(FeatureReportContext& context);

// Data field k (1..28): its change sensitivity, written from the threshold the
// platform set, and its bounds decoded again from the current report.
NTSTATUS WriteFieldSensitivity(FeatureReportContext& context, ULONG k);
NTSTATUS RefreshFieldMaximum(FeatureReportContext& context, ULONG k);
NTSTATUS RefreshFieldMinimum(FeatureReportContext& context, ULONG k);
NTSTATUS RefreshFieldAccuracy(FeatureReportContext& context, ULONG k);
NTSTATUS RefreshFieldResolution(FeatureReportContext& context, ULONG k);
