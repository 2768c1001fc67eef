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

// Submits itself and waits; a failed read yields no bytes.
class BlockingRead final : public HidCollectionEndpoint::ReadCompletion {
public:
    void Complete(NTSTATUS status, const BYTE* data, ULONG length) override
    {
        std::lock_guard lock(mutex_);
        data_ = status == STATUS_SUCCESS ? Bytes(data, data + length) : Bytes{};
        done_ = true;
        completed_.notify_one();
    }
    Bytes Read(HidCollectionEndpoint& endpoint)
    {
        done_ = false;  // no completion can be outstanding here
        endpoint.SubmitRead(this, 4096);
        std::unique_lock lock(mutex_);
        completed_.wait(lock, [this] { return done_; });
        return data_;
    }

private:
    std::mutex mutex_;
    std::condition_variable completed_;
    bool done_ = false;
    Bytes data_;
};

using Concurrency = DeviceTest;

TEST_F(Concurrency, InputFedWhileTheReaderRunsIsDeliveredInOrderOrCountedAsDropped)
{
    constexpr int kInputs = 2000;
    const Bytes kLast{0x04, 0xFF, 0xFF};
    HidDeviceConfig config = On("amd-sfh-als").WithFeature(4, {0x04});
    config.trafficCapacity = 3 * kInputs + 100;
    Make(config);
    std::atomic<std::uint64_t> heard{0};
    device_->SetTrafficListener(
        [&](const host::hidsim::TrafficEvent&) { heard.fetch_add(1, std::memory_order_relaxed); });
    HidCollectionEndpoint& endpoint = Endpoint();

    int delivered = 0;
    bool inOrder = true;
    bool sawLast = false;
    std::thread reader([&] {
        BlockingRead read;
        int previous = -1;
        for (;;) {
            const Bytes data = read.Read(endpoint);
            sawLast = data == kLast;
            if (sawLast || data.size() != 3)
                return;
            const int sequence = data[1] | (data[2] << 8);
            inOrder = inOrder && sequence > previous;
            previous = sequence;
            ++delivered;
        }
    });
    std::thread feeder([&] {
        for (int i = 0; i < kInputs; ++i)
            device_->FeedInput(Bytes{0x04, static_cast<std::uint8_t>(i & 0xFF), static_cast<std::uint8_t>(i >> 8)});
    });
    std::thread features([&] {
        for (int i = 0; i < kInputs / 2; ++i) {
            SetFeature(endpoint, {0x04, static_cast<std::uint8_t>(i)});
            GetFeature(endpoint, 4, 15);
        }
    });
    feeder.join();
    features.join();
    device_->FeedInput(kLast);  // the newest input is never the one dropped
    reader.join();

    EXPECT_TRUE(sawLast) << "every read succeeded with one report";
    EXPECT_TRUE(inOrder);
    EXPECT_EQ(static_cast<std::uint64_t>(delivered) + Collection().DroppedInputs(),
              static_cast<std::uint64_t>(kInputs));
    EXPECT_FALSE(Collection().HasPendingRead());
    EXPECT_EQ(heard.load(std::memory_order_relaxed), device_->Traffic().size());
}

}  // namespace
}  // namespace hidsim_test
