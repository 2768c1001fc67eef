// The preparsed data is a flat blob that callers copy around: it must work at
// any address and refuse, never crash on, damaged copies.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "host/hidparser/preparsed_layout.h"
#include "test_support.h"

namespace host::hid {
namespace {

using namespace test;

// The hot calls on hutrr39-accel3: every input value, every selector list.
std::vector<std::pair<NTSTATUS, ULONG>> HotCalls(PHIDP_PREPARSED_DATA pp)
{
    std::vector<std::pair<NTSTATUS, ULONG>> out;
    std::vector<CHAR> input = {0, 1, 3, 0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 1};
    std::vector<CHAR> feature(15, 0);
    for (USAGE usage : std::initializer_list<USAGE>{0x453, 0x454, 0x455, 0x451, 0x999}) {
        ULONG value = 0;
        const NTSTATUS status = HidP_GetUsageValue(HidP_Input, 0x20, 0, usage, &value, pp, input.data(), 10);
        out.emplace_back(status, value);
    }
    for (USHORT link = 0; link < 7; ++link) {
        for (auto [type, report] : {std::pair(HidP_Feature, &feature), std::pair(HidP_Input, &input)}) {
            USAGE usages[8] = {};
            ULONG length = 8;
            const NTSTATUS status = HidP_GetUsages(type, 0x20, link, usages, &length, pp, report->data(),
                                                   static_cast<ULONG>(report->size()));
            out.emplace_back(status, status == HIDP_STATUS_SUCCESS ? usages[0] + (length << 16) : 0);
        }
    }
    char array[4];
    const NTSTATUS notArray = HidP_GetUsageValueArray(HidP_Input, 0x20, 0, 0x453, array, 4, pp, input.data(), 10);
    out.emplace_back(notArray, 0);
    const NTSTATUS set = HidP_SetUsageValue(HidP_Feature, 0x20, 0, 0x30E, 0x12345678, pp, feature.data(), 15);
    ULONG written = 0;
    std::memcpy(&written, feature.data() + 5, 4);
    out.emplace_back(set, written);
    return out;
}

TEST(PreparsedBlob, WorksAtAnyAddress)
{
    PreparsedBlob blob = ParseSingle(LoadDescriptor("hutrr39-accel3"));
    const auto reference = HotCalls(Preparsed(blob));
    const std::vector<HIDP_VALUE_CAPS> values = ValueCaps(blob, HidP_Feature);
    for (std::size_t shift = 1; shift < 8; ++shift) {
        std::vector<std::uint8_t> moved(blob.size() + shift);
        std::memcpy(moved.data() + shift, blob.data(), blob.size());
        auto* pp = reinterpret_cast<PHIDP_PREPARSED_DATA>(moved.data() + shift);
        EXPECT_EQ(HotCalls(pp), reference) << "shift " << shift;
        HIDP_CAPS caps;
        ASSERT_EQ(HidP_GetCaps(pp, &caps), HIDP_STATUS_SUCCESS);
        std::vector<HIDP_VALUE_CAPS> copy(caps.NumberFeatureValueCaps);
        USHORT length = caps.NumberFeatureValueCaps;
        ASSERT_EQ(HidP_GetValueCaps(HidP_Feature, copy.data(), &length, pp), HIDP_STATUS_SUCCESS);
        EXPECT_EQ(std::memcmp(copy.data(), values.data(), values.size() * sizeof(HIDP_VALUE_CAPS)), 0);
    }
}

TEST(PreparsedBlob, TruncatedCopyIsRefusedByEveryCall)
{
    PreparsedBlob blob = ParseSingle(LoadDescriptor("hutrr39-accel3"));
    for (std::size_t kept : {blob.size() - 1, blob.size() - 8, blob.size() / 2, std::size_t{80}}) {
        PreparsedBlob cut = blob;
        std::fill(cut.begin() + static_cast<std::ptrdiff_t>(kept), cut.end(), 0);
        HIDP_CAPS caps;
        EXPECT_EQ(HidP_GetCaps(Preparsed(cut), &caps), HIDP_STATUS_INVALID_PREPARSED_DATA);
        for (const auto& [status, value] : HotCalls(Preparsed(cut)))
            EXPECT_EQ(status, HIDP_STATUS_INVALID_PREPARSED_DATA);
    }
}

// Flip every byte of the blob, three ways: the copying calls always refuse;
// the hot calls refuse or answer exactly as before.
TEST(PreparsedBlob, EveryFlippedByteIsCaughtOrHarmless)
{
    PreparsedBlob blob = ParseSingle(LoadDescriptor("hutrr39-accel3"));
    const auto reference = HotCalls(Preparsed(blob));
    std::size_t refusedHot = 0;
    for (std::size_t i = 0; i < blob.size(); ++i) {
        for (std::uint8_t flip : std::initializer_list<std::uint8_t>{0x01, 0x80, 0xFF}) {
            PreparsedBlob damaged = blob;
            damaged[i] = static_cast<std::uint8_t>(damaged[i] ^ flip);
            PHIDP_PREPARSED_DATA pp = Preparsed(damaged);
            HIDP_CAPS caps;
            ASSERT_EQ(HidP_GetCaps(pp, &caps), HIDP_STATUS_INVALID_PREPARSED_DATA) << "byte " << i;
            HIDP_BUTTON_CAPS buttons[32];
            USHORT length = 32;
            ASSERT_EQ(HidP_GetButtonCaps(HidP_Feature, buttons, &length, pp), HIDP_STATUS_INVALID_PREPARSED_DATA);
            HIDP_LINK_COLLECTION_NODE nodes[8];
            ULONG nodeCount = 8;
            ASSERT_EQ(HidP_GetLinkCollectionNodes(nodes, &nodeCount, pp), HIDP_STATUS_INVALID_PREPARSED_DATA);

            const auto answers = HotCalls(pp);
            for (std::size_t k = 0; k < answers.size(); ++k) {
                if (answers[k].first == HIDP_STATUS_INVALID_PREPARSED_DATA) {
                    ++refusedHot;
                    continue;
                }
                ASSERT_EQ(answers[k], reference[k]) << "byte " << i << " flip " << int(flip) << " call " << k;
            }
        }
    }
    EXPECT_GT(refusedHot, blob.size());  // most flips touch what some call reads
}

TEST(PreparsedBlob, RandomDamageNeverCrashes)
{
    PreparsedBlob blob = ParseSingle(LoadDescriptor("hutrr39-accel3"));
    std::mt19937 random(12345);
    for (int round = 0; round < 2000; ++round) {
        PreparsedBlob damaged = blob;
        const int changes = 1 + static_cast<int>(random() % 16);
        for (int c = 0; c < changes; ++c) damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
        (void)HotCalls(Preparsed(damaged));
    }
}

// A header rewritten with valid checks but counts that do not fit the blob:
// no call reads outside it; the hot calls refuse or answer as before (the
// value lookup may not depend on the changed count), all others refuse.
TEST(PreparsedBlob, HeaderWithValidChecksButImpossibleLayoutIsRefused)
{
    PreparsedBlob blob = ParseSingle(LoadDescriptor("hutrr39-accel3"));
    const auto reference = HotCalls(Preparsed(blob));
    void (*const changes[])(preparsed::Header&) = {
        [](preparsed::Header& h) { h.valueCapCount[HidP_Input] = 0xFFFF; },
        [](preparsed::Header& h) { h.buttonCapCount[HidP_Feature] = 0xFFFF; },
        [](preparsed::Header& h) { h.nodeCount = 0xFFFF; },
        [](preparsed::Header& h) { h.hashBits[HidP_Input] = 40; },
        [](preparsed::Header& h) { h.hashBits[HidP_Input] = 17; },
        [](preparsed::Header& h) { h.totalSize += 8; },
        [](preparsed::Header& h) { h.totalSize = 0xFFFFFFF0; },
    };
    for (auto change : changes) {
        PreparsedBlob bad = blob;
        preparsed::Header header;
        std::memcpy(&header, bad.data(), sizeof header);
        change(header);
        std::memcpy(bad.data(), &header, sizeof header);
        header.hotCheck = preparsed::HotCheckOf(bad.data());
        std::memcpy(bad.data(), &header, sizeof header);
        const preparsed::HeaderCheck check = preparsed::CheckHeader(bad.data());
        std::memcpy(bad.data() + preparsed::kHeaderCheckOffset, &check, sizeof check);

        HIDP_CAPS caps;
        EXPECT_EQ(HidP_GetCaps(Preparsed(bad), &caps), HIDP_STATUS_INVALID_PREPARSED_DATA);
        const auto answers = HotCalls(Preparsed(bad));
        for (std::size_t k = 0; k < answers.size(); ++k) {
            if (answers[k].first == HIDP_STATUS_INVALID_PREPARSED_DATA) continue;
            EXPECT_EQ(answers[k], reference[k]) << k;
        }
    }
}

}  // namespace
}  // namespace host::hid
