// The activity-detection helpers of SensorsUtilsV2: which activities of a
// sample a client sees, in what order, and whether a sample is worth
// delivering compared with the last one delivered.
//
// Sample layout (the activity sensor's data list): entry 0 is the timestamp;
// then Count - 1 entries in pairs, activity state (key pid 130, one
// activity-state flag) followed by its confidence in percent (pid 131).
// Thresholds list: stream (pid 133, BOOL), subscribed activities (pid 132, a
// mask of activity-state flags) and confidence threshold (pid 134, percent),
// each optional and found by key; all keys share the activity data fmtid.
//
// CollectionsListSortSubscribedActivitiesByConfidence(Thresholds, Data):
//   - a pair is kept when its state flag is in the subscribed mask (no
//     subscribed-activities entry: every activity is subscribed);
//   - kept pairs come first, highest confidence first, equal confidences in
//     their original order; the dropped pairs follow in their original order,
//     beyond the new Count = 1 + 2 kept. Entries are permuted, never lost, so
//     the caller's slots keep every value they held;
//   - STATUS_INVALID_PARAMETER, with Data untouched, for a null list, a Count
//     that does not fit the list, a Count that is not 1 + 2n, a pair whose
//     keys are not state then confidence or whose values do not convert, and a
//     subscribed mask that does not convert.
//
// EvaluateActivityThresholds(NewSample, OldSample, Thresholds):
//   - the stream threshold set: TRUE, every sample goes;
//   - otherwise an activity counts in a sample when it is subscribed and its
//     confidence is at least the confidence threshold (none: 0). TRUE when the
//     most likely counted activity (highest confidence, first on ties; "none"
//     when nothing counts) differs between the two samples, or when the set of
//     counted activities differs, i.e. some subscribed activity crossed the
//     confidence threshold in either direction or appeared or vanished.
//     Confidence moving above the threshold without changing either gives FALSE;
//   - no usable old sample (null or malformed): TRUE, nothing to compare with;
//     no usable new sample or thresholds: FALSE.
#include <algorithm>
#include <new>
#include <vector>

#include "host/sensorscx/list_marshal.h"
#include "platform/sensorsutils.h"

namespace {

namespace marshal = host::sensorscx::marshal;

constexpr GUID kActivityFmtid = {0xC458F8A7, 0x4AE8, 0x4777, {0x96, 0x07, 0x2E, 0x9B, 0xDD, 0x65, 0x11, 0x0A}};
constexpr DWORD kPidActivityState = 130;
constexpr DWORD kPidConfidence = 131;
constexpr DWORD kPidSubscribedActivities = 132;
constexpr DWORD kPidStream = 133;
constexpr DWORD kPidConfidenceThreshold = 134;

bool IsKey(const PROPERTYKEY& key, DWORD pid) { return key.pid == pid && IsEqualGUID(key.fmtid, kActivityFmtid); }

struct Thresholds {
    bool stream = false;
    ULONG subscribed = 0xFFFFFFFF;
    USHORT confidence = 0;
};

bool ReadThresholds(const SENSOR_COLLECTION_LIST* list, const char* who, Thresholds* out)
{
    if (list == nullptr || !marshal::CheckCollectionFits(list, who))
        return false;
    for (ULONG i = 0; i < list->Count; ++i) {
        const SENSOR_VALUE_PAIR& entry = list->List[i];
        HRESULT hr = S_OK;
        if (IsKey(entry.Key, kPidStream)) {
            BOOL stream = 0;
            hr = PropVariantToBoolean(entry.Value, &stream);
            out->stream = stream != 0;
        } else if (IsKey(entry.Key, kPidSubscribedActivities)) {
            hr = PropVariantToUInt32(entry.Value, &out->subscribed);
        } else if (IsKey(entry.Key, kPidConfidenceThreshold)) {
            hr = PropVariantToUInt16(entry.Value, &out->confidence);
        }
        if (FAILED(hr))
            return false;
    }
    return true;
}

struct Activity {
    ULONG state = 0;
    USHORT confidence = 0;
};

// Reads pair p (0-based) of a sample whose shape has been checked.
bool ReadPair(const SENSOR_COLLECTION_LIST& data, ULONG p, Activity* out)
{
    const SENSOR_VALUE_PAIR& state = data.List[1 + 2 * p];
    const SENSOR_VALUE_PAIR& confidence = data.List[2 + 2 * p];
    if (!IsKey(state.Key, kPidActivityState) || !IsKey(confidence.Key, kPidConfidence))
        return false;
    return SUCCEEDED(PropVariantToUInt32(state.Value, &out->state)) &&
           SUCCEEDED(PropVariantToUInt16(confidence.Value, &out->confidence));
}

bool HasSampleShape(const SENSOR_COLLECTION_LIST* data, const char* who)
{
    return data != nullptr && marshal::CheckCollectionFits(data, who) && data->Count % 2 == 1;
}

// What a sample shows once thresholds apply: the most likely counted activity
// and the mask of every counted one.
struct Outlook {
    ULONG top = 0;  // 0: nothing counts
    ULONG counted = 0;
};

bool ReadOutlook(const SENSOR_COLLECTION_LIST* data, const char* who, const Thresholds& t, Outlook* out)
{
    if (!HasSampleShape(data, who))
        return false;
    int best = -1;
    for (ULONG p = 0; p < data->Count / 2; ++p) {
        Activity a;
        if (!ReadPair(*data, p, &a))
            return false;
        if ((a.state & t.subscribed) == 0 || a.confidence < t.confidence)
            continue;
        out->counted |= a.state;
        if (a.confidence > best) {
            best = a.confidence;
            out->top = a.state;
        }
    }
    return true;
}

}  // namespace

extern "C" NTSTATUS CollectionsListSortSubscribedActivitiesByConfidence(PSENSOR_COLLECTION_LIST Thresholds,
                                                                        PSENSOR_COLLECTION_LIST Data)
{
    constexpr const char* kWho = "CollectionsListSortSubscribedActivitiesByConfidence";
    ::Thresholds t;
    if (!ReadThresholds(Thresholds, kWho, &t) || !HasSampleShape(Data, kWho))
        return STATUS_INVALID_PARAMETER;
    const ULONG pairs = Data->Count / 2;
    struct Ranked {
        Activity activity;
        ULONG pair;
    };
    try {
        std::vector<Ranked> kept;
        std::vector<Ranked> dropped;
        for (ULONG p = 0; p < pairs; ++p) {
            Ranked r{{}, p};
            if (!ReadPair(*Data, p, &r.activity))
                return STATUS_INVALID_PARAMETER;
            ((r.activity.state & t.subscribed) != 0 ? kept : dropped).push_back(r);
        }
        std::stable_sort(kept.begin(), kept.end(), [](const Ranked& a, const Ranked& b) {
            return a.activity.confidence > b.activity.confidence;
        });
        std::vector<SENSOR_VALUE_PAIR> original(Data->List + 1, Data->List + Data->Count);
        ULONG slot = 1;
        for (const auto* group : {&kept, &dropped}) {
            for (const Ranked& r : *group) {
                Data->List[slot++] = original[2 * r.pair];
                Data->List[slot++] = original[2 * r.pair + 1];
            }
        }
        Data->Count = 1 + 2 * static_cast<ULONG>(kept.size());
    } catch (const std::bad_alloc&) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    return STATUS_SUCCESS;
}

extern "C" BOOLEAN EvaluateActivityThresholds(PSENSOR_COLLECTION_LIST NewSample, PSENSOR_COLLECTION_LIST OldSample,
                                              PSENSOR_COLLECTION_LIST Thresholds)
{
    constexpr const char* kWho = "EvaluateActivityThresholds";
    ::Thresholds t;
    if (!ReadThresholds(Thresholds, kWho, &t))
        return FALSE;
    Outlook now;
    if (!ReadOutlook(NewSample, kWho, t, &now))
        return FALSE;
    if (t.stream)
        return TRUE;
    Outlook before;
    if (OldSample == nullptr || !ReadOutlook(OldSample, kWho, t, &before))
        return TRUE;
    return now.top != before.top || now.counted != before.counted ? TRUE : FALSE;
}
