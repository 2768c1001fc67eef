// The host as a test bench: one ordered violation stream from every
// component, one reset by creating a host, and fault injection that counts
// only the driver's calls.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/framework/runtime.h"
#include "host/framework/violations.h"
#include "host/sensorscx/guid.h"
#include "host/sensorscx/tracing.h"
#include "platform/evntrace.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

using framework::ViolationRecord;
using framework::ViolationSource;

constexpr GUID kControl = {0x3B0C9E0A, 0x7D51, 0x4C8E, {0x9A, 0x11, 0x52, 0x0F, 0x6E, 0x2D, 0x41, 0x77}};

ULONG CountingControl(WMIDPREQUESTCODE, void* context, ULONG*, void*)
{
    ++*static_cast<int*>(context);
    return ERROR_SUCCESS;
}

ULONG Register(int& calls)
{
    TRACE_GUID_REGISTRATION registration{&kControl, nullptr};
    TRACEHANDLE handle = 0;
    return RegisterTraceGuidsW(CountingControl, &calls, &kControl, 1, &registration, nullptr, nullptr, &handle);
}

std::string NewGuid()
{
    GUID guid{};
    EXPECT_EQ(CoCreateGuid(&guid), S_OK);
    return com::FormatGuid(guid);
}

using HostBenchTest = StartedDriverTest;

TEST_F(HostBenchTest, EveryComponentReportsIntoOneOrderedStreamWithWhereAndWhen)
{
    std::vector<ViolationRecord> heard;
    auto subscription = framework::SubscribeViolations([&](const ViolationRecord& v) { heard.push_back(v); });
    const LONGLONG start = framework::Runtime::Get().Clock().Now();
    host_->Advance(5);
    WDFMEMORY memory = nullptr;
    ASSERT_EQ(WdfMemoryCreate(nullptr, PagedPool, 0, 8, &memory, nullptr), STATUS_SUCCESS);
    WdfObjectDelete(memory);
    WdfObjectDelete(memory);
    host_->Advance(5);
    EXPECT_EQ(SensorsCxSensorHistoryRetrievalComplete(Sensor(0).handle, 8, STATUS_SUCCESS),
              STATUS_INVALID_DEVICE_STATE);

    const std::vector<ViolationRecord> records = host_->ViolationRecords();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].sequence, 1u);
    EXPECT_EQ(records[0].source, ViolationSource::Framework);
    EXPECT_EQ(records[0].where, "WdfObjectDelete");
    EXPECT_EQ(records[0].ticks, start + 5 * framework::kTicksPerMillisecond);
    EXPECT_EQ(records[1].sequence, 2u);
    EXPECT_EQ(records[1].source, ViolationSource::ClassExtension);
    EXPECT_EQ(records[1].kind, static_cast<unsigned>(ViolationKind::NoAcceptedRetrieval));
    EXPECT_EQ(records[1].where, "SensorsCxSensorHistoryRetrievalComplete");
    EXPECT_EQ(records[1].ticks, start + 10 * framework::kTicksPerMillisecond);
    ASSERT_EQ(heard.size(), 2u);
    EXPECT_EQ(heard[0].what, records[0].what);
    EXPECT_EQ(heard[1].what, records[1].what);
    // The class extension's typed view holds its own records only.
    EXPECT_EQ(TakeViolations(), std::vector<ViolationKind>{ViolationKind::NoAcceptedRetrieval});
    EXPECT_TRUE(host_->Violations().empty());
}

// What a first host leaves behind is gone for the next: GUID sequence,
// violations, fault arms and counts, trace registrations.
TEST_F(LedgerTest, CreatingAHostStartsEveryRunFromTheSameState)
{
    std::string firstGuid;
    int forgottenCalls = 0;
    {
        framework::DriverHost host(framework::ClockMode::Deterministic, FILETIME{0, 0x01DC0000});
        firstGuid = NewGuid();
        com::SeedGuidGenerator(42);
        NewGuid();
        ASSERT_EQ(Register(forgottenCalls), ERROR_SUCCESS);  // never unregistered
        framework::ReportViolation("WdfObjectDelete: a test's own report");
        FaultInjector::Instance().FailNth(FaultPoint::GuidCreate, 2, STATUS_UNSUCCESSFUL);
        NewGuid();
    }
    framework::DriverHost host(framework::ClockMode::Deterministic, FILETIME{0, 0x01DC0000});
    EXPECT_TRUE(host.Violations().empty());
    EXPECT_EQ(FaultInjector::Instance().TotalCalls(), 0u);
    EXPECT_EQ(NewGuid(), firstGuid);
    EXPECT_NE(NewGuid(), firstGuid);  // the second GUID, which the old arm would have failed
    EXPECT_EQ(FaultInjector::Instance().Injected(), 0u);
    int calls = 0;
    ASSERT_EQ(Register(calls), ERROR_SUCCESS);
    {
        tracing::TraceSession session(std::make_shared<tracing::MemoryTraceSink>());
        session.Enable(kControl, 4, 1);
    }
    EXPECT_EQ(calls, 2) << "enabled, then disabled with the session";
    EXPECT_EQ(forgottenCalls, 0) << "a registration of the old host is forgotten";
    host.Unload();
    EXPECT_EQ(host.Leaks(), "trace registrations: 1");
}

TEST_F(HostBenchTest, GuidAndTraceRegistrationFailAsThePlatformDoesAndOnlyForTheDriver)
{
    FaultInjector::Instance().FailNth(FaultPoint::GuidCreate, 1, STATUS_UNSUCCESSFUL);
    GUID guid{};
    EXPECT_EQ(CoCreateGuid(&guid), E_OUTOFMEMORY);
    EXPECT_EQ(CoCreateGuid(&guid), S_OK);
    FaultInjector::Instance().FailNth(FaultPoint::TraceRegister, 1, STATUS_UNSUCCESSFUL);
    int calls = 0;
    EXPECT_EQ(Register(calls), 8u);  // ERROR_NOT_ENOUGH_MEMORY
    EXPECT_EQ(FaultInjector::Instance().LastInjected(), FaultPoint::TraceRegister);

    // The client's own request for DeviceIoControl is the host's: not counted.
    FaultInjector::Instance().FailNthCall(1, STATUS_INSUFFICIENT_RESOURCES);
    const CallResult ioctl = TheClient().DeviceIoControl(0, 0x00221000, 0, 0);
    EXPECT_EQ(ioctl.status, STATUS_NOT_SUPPORTED);
    EXPECT_EQ(FaultInjector::Instance().TotalCalls(), 0u);
    // A driver call inside a client call counts.
    EXPECT_EQ(Sensor(0).Deliver(1, 1.0f), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(FaultInjector::Instance().LastInjected(), FaultPoint::SensorsCxSensorDataReady);
}

// A child goes with its parent: deleting a history timer after its
// SENSOROBJECT is a dead handle, reported and ignored.
TEST_F(HostBenchTest, AChildDeletedAfterItsParentIsADeadHandle)
{
    WDF_TIMER_CONFIG config;
    WDF_TIMER_CONFIG_INIT(&config, [](WDFTIMER) {});
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = Sensor(0).handle;
    WDFTIMER timer = nullptr;
    ASSERT_EQ(WdfTimerCreate(&config, &attributes, &timer), STATUS_SUCCESS);
    WdfObjectDelete(Sensor(0).handle);
    EXPECT_TRUE(host_->Violations().empty());
    WdfObjectDelete(timer);
    const auto records = host_->ViolationRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].where, "WdfObjectDelete");
    EXPECT_NE(records[0].what.find("dead"), std::string::npos) << records[0].what;
    framework::ClearViolations();
}

}  // namespace
}  // namespace host::sensorscx::testing
