// History retrieval on a real worker thread, on a deterministic host: a
// scenario that starts a retrieval, feeds input, cancels and restarts prints
// the same transcript on every run, and a worker held before its completion
// is reached by holding it, not by racing it. (A cancel that times out on a
// held worker is tested on the real driver, in tests/history.)
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <sstream>
#include <string>

#include "host/framework/violations.h"
#include "host/sensorscx/guid.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

using namespace std::chrono_literals;
constexpr ULONG kRecordBytes = 3 * 48;

std::string Hex(NTSTATUS status)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(status));
    return text;
}

// One line per thing a client can see, in the order it happened.
class Transcript {
public:
    explicit Transcript(Client& client)
        : client_(client), samples_(client),
          violations_(framework::SubscribeViolations(
              [this](const framework::ViolationRecord& v) { out_ << "violation " << v.where << "\n"; }))
    {
    }

    void Call(const char* name, const CallResult& result)
    {
        Samples();
        out_ << "call " << name << " " << Hex(result.status);
        if (result.bytesWritten)
            out_ << " bytesWritten " << *result.bytesWritten;
        out_ << "\n";
        while (auto completion = client_.TakeHistoryCompletion(0))
            Print(*completion);
    }
    void Wait()
    {
        while (auto completion = client_.WaitHistoryRetrieval(0, 1000ms))
            Print(*completion);
    }
    void Line(const std::string& text) { out_ << text << "\n"; }
    std::string Text()
    {
        Samples();
        return out_.str();
    }

private:
    void Samples()
    {
        for (const Sample& sample : samples_.Drain())
            out_ << "sample " << sample.values[1].Value.ulVal << "\n";
    }
    void Print(const HistoryCompletion& completion)
    {
        Samples();
        out_ << "historyComplete " << Hex(completion.status) << " size " << completion.size << " values";
        for (ULONG i = 1; i < completion.list.Count(); i += 3)
            out_ << " " << completion.list[i].Value.ulVal;
        out_ << "\n";
    }

    Client& client_;
    SampleQueue samples_;
    std::ostringstream out_;
    framework::ViolationSubscription violations_;
};

std::string Guid()
{
    GUID guid{};
    EXPECT_EQ(CoCreateGuid(&guid), S_OK);
    return com::FormatGuid(guid);
}

// Everything from a fresh host, as a scenario runner would.
std::string PlayRetrievalScenario()
{
    FakeDriver() = FakeDriverConfig{};
    FakeDriver().sensorCount = 1;
    FakeDriver().historyWorker = true;
    FakeSensors().clear();
    SilentEndpoint endpoint;
    framework::DriverHost host(framework::ClockMode::Deterministic, FILETIME{0, 0x01DC0000});
    EXPECT_EQ(host.LoadDriver(FakeDriverEntry), STATUS_SUCCESS);
    EXPECT_EQ(host.AddDevice(endpoint), STATUS_SUCCESS);
    std::string text;
    {
        Client client(host.Device());
        Transcript t(client);
        t.Line("guid " + Guid());
        FakeSensor& sensor = *FakeSensors().at(0);
        for (ULONG value : {11u, 12u, 13u})
            sensor.Deliver(value, 0.5f);
        t.Call("StartHistoryRetrieval", client.StartHistoryRetrieval(0, 8 + 2 * kRecordBytes));
        sensor.Deliver(14, 0.5f);  // input while the worker waits for its turn
        t.Call("StartHistoryRetrieval", client.StartHistoryRetrieval(0, 8 + 2 * kRecordBytes));
        t.Call("CancelHistoryRetrieval", client.CancelHistoryRetrieval(0));
        t.Call("StartHistoryRetrieval", client.StartHistoryRetrieval(0, 8 + 2 * kRecordBytes));
        host.Advance(100);
        sensor.Deliver(15, 0.5f);
        t.Wait();
        t.Call("StartHistoryRetrieval", client.StartHistoryRetrieval(0, 8 + 5 * kRecordBytes));
        t.Wait();
        t.Call("CancelHistoryRetrieval", client.CancelHistoryRetrieval(0));
        t.Line("guid " + Guid());
        text = t.Text();
    }
    host.Unload();
    FakeSensors().clear();
    EXPECT_EQ(host.Leaks(), "");
    return text;
}

constexpr const char* kExpected =
    "guid {910A2DEC-8902-4CC1-BEEB-8DA1658EEC67}\n"
    "sample 11\nsample 12\nsample 13\n"
    "call StartHistoryRetrieval 0x00000000\n"
    "sample 14\n"
    "call StartHistoryRetrieval 0x80000011\n"
    // The worker runs only inside the cancel's wait: it sees the cancel at its first poll.
    "call CancelHistoryRetrieval 0x00000000 bytesWritten 8\n"
    "call StartHistoryRetrieval 0x00000000\n"
    "sample 15\n"
    "historyComplete 0x00000000 size 296 values 11 12\n"
    "call StartHistoryRetrieval 0x00000000\n"
    "historyComplete 0x00000000 size 440 values 13 14 15\n"
    "call CancelHistoryRetrieval 0xC0000010 bytesWritten 0\n"
    "guid {F893A2EE-FB32-455E-B1C1-8690EE42C90B}\n";

TEST(HistoryWorker, RetrievalScenarioPrintsTheSameTranscriptOnEveryRun)
{
    const std::string first = PlayRetrievalScenario();
    EXPECT_EQ(first, kExpected);
    for (int run = 1; run < 100; ++run)
        ASSERT_EQ(PlayRetrievalScenario(), first) << "run " << run;
}

class HeldWorkerTest : public StartedDriverTest {
protected:
    void SetUp() override
    {
        LedgerTest::SetUp();
        FakeDriver() = FakeDriverConfig{};
        FakeDriver().sensorCount = 1;
        FakeDriver().historyWorker = true;
        FakeSensors().clear();
        host_ = std::make_unique<framework::DriverHost>(framework::ClockMode::Deterministic, FILETIME{0, 0x01DC0000});
        Start();
    }
};

TEST_F(HeldWorkerTest, WorkerHeldBeforeItsCompletionLetsTheRingGrowMeanwhile)
{
    Sensor(0).Deliver(1, 0);
    host_->HoldThreadAt(FaultPoint::SensorsCxHistoryRetrievalComplete);
    ASSERT_EQ(TheClient().StartHistoryRetrieval(0, 8 + 3 * kRecordBytes).status, STATUS_SUCCESS);
    EXPECT_FALSE(TheClient().WaitHistoryRetrieval(0, 0ms).has_value()) << "held before completing";
    Sensor(0).Deliver(2, 0);
    // It has already left the running state: a new start is accepted by the
    // driver only once the host has seen the completion.
    ASSERT_TRUE(host_->ReleaseThread(host_->Threads().back().handle));
    const auto completion = TheClient().WaitHistoryRetrieval(0, 0ms);
    ASSERT_TRUE(completion.has_value());
    EXPECT_EQ(completion->status, STATUS_SUCCESS);
    EXPECT_EQ(completion->list.Count(), 3u);
    EXPECT_EQ(Sensor(0).ring.size(), 1u);
}

}  // namespace
}  // namespace host::sensorscx::testing
