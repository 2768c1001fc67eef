// The device used from several threads at once: input fed on one thread, a
// reader re-arming on another, feature traffic on a third. Run under TSan.
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "hidsim_test_support.h"

namespace hidsim_test {
namespace {

class BlockingRead final : public HidCollectionEndpoint::ReadCompletion {
public:
    void Complete(NTSTATUS status, const BYTE* data, ULONG length) override
    {
        std::lock_guard lock(mutex_);
        status_ = status;
        data_.assign(data, data + length);
        done_ = true;
        completed_.notify_one();
    }
    // Submits itself and waits for its completion.
    Bytes Read(HidCollectionEndpoint& endpoint, NTSTATUS& status)
    {
        {
            std::lock_guard lock(mutex_);
            done_ = false;
        }
        endpoint.SubmitRead(this, 4096);
        std::unique_lock lock(mutex_);
        completed_.wait(lock, [this] { return done_; });
        status = status_;
        return data_;
    }

private:
    std::mutex mutex_;
    std::condition_variable completed_;
    bool done_ = false;
    NTSTATUS status_ = 0;
    Bytes data_;
};

TEST(Concurrency, InputFedWhileTheReaderRunsIsDeliveredInOrderOrCountedAsDropped)
{
    constexpr int kInputs = 2000;
    const Bytes kLast{0x04, 0xFF, 0xFF};
    HidDeviceConfig config = On("amd-sfh-als").WithFeature(4, {0x04});
    config.trafficCapacity = 3 * kInputs + 100;
    auto device = MakeDevice(config);
    ASSERT_TRUE(device);
    std::atomic<std::uint64_t> heard{0};
    device->SetTrafficListener(
        [&](const host::hidsim::TrafficEvent&) { heard.fetch_add(1, std::memory_order_relaxed); });
    HidCollectionEndpoint& endpoint = device->DriverEndpoint();

    int delivered = 0;
    bool inOrder = true;
    bool allSucceeded = true;
    std::thread reader([&] {
        BlockingRead read;
        int previous = -1;
        for (;;) {
            NTSTATUS status = 0;
            const Bytes data = read.Read(endpoint, status);
            allSucceeded = allSucceeded && status == STATUS_SUCCESS && data.size() == 3;
            if (data == kLast || data.size() != 3)
                return;
            const int sequence = data[1] | (data[2] << 8);
            inOrder = inOrder && sequence > previous;
            previous = sequence;
            ++delivered;
        }
    });
    std::thread feeder([&] {
        for (int i = 0; i < kInputs; ++i)
            device->FeedInput(Bytes{0x04, static_cast<std::uint8_t>(i & 0xFF), static_cast<std::uint8_t>(i >> 8)});
    });
    std::thread features([&] {
        for (int i = 0; i < kInputs / 2; ++i) {
            SetFeature(endpoint, {0x04, static_cast<std::uint8_t>(i)});
            GetFeature(endpoint, 4, 15);
        }
    });
    feeder.join();
    features.join();
    device->FeedInput(kLast);  // the newest input is never the one dropped
    reader.join();

    EXPECT_TRUE(allSucceeded);
    EXPECT_TRUE(inOrder);
    EXPECT_EQ(static_cast<std::uint64_t>(delivered) + device->DriverCollection().DroppedInputs(),
              static_cast<std::uint64_t>(kInputs));
    EXPECT_FALSE(device->DriverCollection().HasPendingRead());
    EXPECT_EQ(device->TrafficOverflowed(), 0u);
    EXPECT_EQ(heard.load(std::memory_order_relaxed), device->Traffic().size());
}

}  // namespace
}  // namespace hidsim_test
