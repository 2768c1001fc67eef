// The provider table, the enable records behind logger handles, and the
// platform's tracing functions.
#include "host/sensorscx/tracing.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <map>

#include "host/common/fault_injection.h"
#include "host/common/host_state.h"
#include "host/common/resource_ledger.h"
#include "host/sensorscx/guid.h"
#include "host/sensorscx/list_format.h"
#include "platform/ntstatus.h"

namespace host::tracing {
namespace {

constexpr ULONG kErrorInvalidHandle = 6;  // ERROR_INVALID_HANDLE
constexpr TRACEHANDLE kInvalidTraceHandle = ~TRACEHANDLE{0};
constexpr std::size_t kMaxArguments = 64;
constexpr SIZE_T kMaxTextBytes = 64 * 1024;

// What the control callback's buffer holds: laid out like the platform's
// WNODE_HEADER, whose HistoricalContext carries the logger handle.
struct EnableNotification {
    ULONG BufferSize;
    ULONG ProviderId;
    ULONGLONG HistoricalContext;
    LONGLONG TimeStamp;
    GUID Guid;
    ULONG ClientContext;
    ULONG Flags;
};
static_assert(sizeof(EnableNotification) == 48);

struct Provider {
    WMIDPREQUEST callback;
    void* context;
    GUID control;
};

struct EnableRecord {
    GUID control;
    UCHAR level;
    ULONG flags;
    std::shared_ptr<TraceSink> sink;
};

struct Registry {
    std::mutex mutex;
    std::map<TRACEHANDLE, Provider> providers;   // by registration handle
    std::map<TRACEHANDLE, EnableRecord> enables;  // by logger handle
    TRACEHANDLE nextHandle = 1;
};

void ResetRegistry();

Registry& Table()
{
    static Registry registry;
    static const bool registered = (host::RegisterHostStateReset(ResetRegistry), true);
    (void)registered;
    return registry;
}

// A new host forgets registrations a driver left (the ledger counted them)
// and enables of sessions gone with the old host.
void ResetRegistry()
{
    Registry& registry = Table();
    std::lock_guard lock(registry.mutex);
    for (std::size_t i = 0; i < registry.providers.size(); ++i)
        host::ResourceLedger::Instance().Release(host::ResourceKind::TraceRegistration);
    registry.providers.clear();
    registry.enables.clear();
    registry.nextHandle = 1;
}

bool SameGuid(const GUID& a, const GUID& b) { return IsEqualGUID(a, b); }

// The notification being delivered on this thread; GetTraceLoggerHandle reads
// only that one, so a stale or foreign pointer is never dereferenced.
thread_local const EnableNotification* t_delivering = nullptr;

void Notify(const Provider& provider, WMIDPREQUESTCODE code, TRACEHANDLE logger)
{
    EnableNotification notification{};
    notification.BufferSize = sizeof(notification);
    notification.HistoricalContext = logger;
    notification.Guid = provider.control;
    ULONG size = sizeof(notification);
    const EnableNotification* outer = t_delivering;
    t_delivering = &notification;
    {
        host::DriverCodeScope driverCode;
        provider.callback(code, provider.context, &size, &notification);
    }
    t_delivering = outer;
}

std::vector<Provider> ProvidersOf(Registry& registry, const GUID& control)
{
    std::vector<Provider> matching;
    for (const auto& [handle, provider] : registry.providers) {
        if (SameGuid(provider.control, control))
            matching.push_back(provider);
    }
    return matching;
}

}  // namespace

TraceSession::TraceSession(std::shared_ptr<TraceSink> sink) : sink_(std::move(sink)) {}

TraceSession::~TraceSession()
{
    std::vector<GUID> controls;
    {
        std::lock_guard lock(mutex_);
        for (const auto& [control, handle] : enables_)
            controls.push_back(control);
    }
    for (const GUID& control : controls)
        Disable(control);
}

void TraceSession::Enable(const GUID& controlGuid, UCHAR level, ULONG flags)
{
    if (level == 0) {
        Disable(controlGuid);
        return;
    }
    Registry& registry = Table();
    TRACEHANDLE logger = 0;
    std::vector<Provider> providers;
    {
        std::lock_guard sessionLock(mutex_);
        std::lock_guard lock(registry.mutex);
        logger = registry.nextHandle++;
        registry.enables[logger] = EnableRecord{controlGuid, level, flags, sink_};
        bool replaced = false;
        for (auto& [control, handle] : enables_) {
            if (SameGuid(control, controlGuid)) {
                registry.enables.erase(handle);
                handle = logger;
                replaced = true;
            }
        }
        if (!replaced)
            enables_.emplace_back(controlGuid, logger);
        providers = ProvidersOf(registry, controlGuid);
    }
    for (const Provider& provider : providers)
        Notify(provider, WMI_ENABLE_EVENTS, logger);
}

void TraceSession::Disable(const GUID& controlGuid)
{
    Registry& registry = Table();
    TRACEHANDLE logger = 0;
    std::vector<Provider> providers;
    {
        std::lock_guard sessionLock(mutex_);
        auto it = std::find_if(enables_.begin(), enables_.end(),
                               [&](const auto& entry) { return SameGuid(entry.first, controlGuid); });
        if (it == enables_.end())
            return;
        logger = it->second;
        enables_.erase(it);
        std::lock_guard lock(registry.mutex);
        registry.enables.erase(logger);
        providers = ProvidersOf(registry, controlGuid);
    }
    for (const Provider& provider : providers)
        Notify(provider, WMI_DISABLE_EVENTS, logger);
}

TRACEHANDLE TraceSession::LoggerHandle(const GUID& controlGuid) const
{
    std::lock_guard lock(mutex_);
    for (const auto& [control, handle] : enables_) {
        if (SameGuid(control, controlGuid))
            return handle;
    }
    return 0;
}

std::string FormatTraceLine(LPCGUID messageGuid, USHORT messageNumber,
                            const std::vector<std::pair<const void*, SIZE_T>>& arguments)
{
    std::string line = messageGuid != nullptr ? host::com::FormatGuid(*messageGuid) : std::string("{null}");
    line += ' ';
    line += std::to_string(messageNumber);
    for (const auto& [data, size] : arguments) {
        line += ' ';
        if (size == 4) {
            std::uint32_t value = 0;
            std::memcpy(&value, data, sizeof(value));
            char text[11];
            std::snprintf(text, sizeof(text), "0x%08X", value);
            line += text;
        } else if (size == 8) {
            double value = 0;
            std::memcpy(&value, data, sizeof(value));
            line += host::sensorscx::FormatDouble(value);
        } else {
            std::u16string text;
            const std::size_t units = std::min(size, kMaxTextBytes) / sizeof(char16_t);
            for (std::size_t i = 0; i < units; ++i) {
                char16_t unit = 0;
                std::memcpy(&unit, static_cast<const std::byte*>(data) + i * sizeof(char16_t), sizeof(unit));
                if (unit == 0)
                    break;
                text += unit;
            }
            line += host::sensorscx::JsonQuote(std::u16string_view(text));
        }
    }
    return line;
}

}  // namespace host::tracing

using host::tracing::Table;

extern "C" ULONG RegisterTraceGuidsW(WMIDPREQUEST RequestAddress, void* RequestContext, LPCGUID ControlGuid,
                                     ULONG GuidCount, PTRACE_GUID_REGISTRATION TraceGuidReg,
                                     LPCWSTR /*MofImagePath*/, LPCWSTR /*MofResourceName*/,
                                     TRACEHANDLE* RegistrationHandle)
{
    if (RequestAddress == nullptr || ControlGuid == nullptr || RegistrationHandle == nullptr ||
        (GuidCount != 0 && TraceGuidReg == nullptr))
        return ERROR_INVALID_PARAMETER;
    host::DriverCall driverCall(host::FaultPoint::TraceRegister);
    if (driverCall.Fails())
        return 8;  // ERROR_NOT_ENOUGH_MEMORY
    auto& registry = Table();
    host::tracing::Provider provider{RequestAddress, RequestContext, *ControlGuid};
    TRACEHANDLE registration = 0;
    TRACEHANDLE logger = 0;
    try {
        std::lock_guard lock(registry.mutex);
        registration = registry.nextHandle++;
        registry.providers[registration] = provider;
        // A provider that registers while a session enables its GUID is enabled at once.
        for (const auto& [handle, record] : registry.enables) {
            if (host::tracing::SameGuid(record.control, *ControlGuid))
                logger = handle;
        }
    } catch (const std::bad_alloc&) {
        return 8;  // ERROR_NOT_ENOUGH_MEMORY
    }
    for (ULONG i = 0; i < GuidCount; ++i)
        TraceGuidReg[i].RegHandle = reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(registration));
    *RegistrationHandle = registration;
    host::ResourceLedger::Instance().Acquire(host::ResourceKind::TraceRegistration);
    if (logger != 0)
        host::tracing::Notify(provider, WMI_ENABLE_EVENTS, logger);
    return ERROR_SUCCESS;
}

extern "C" ULONG UnregisterTraceGuids(TRACEHANDLE RegistrationHandle)
{
    auto& registry = Table();
    {
        std::lock_guard lock(registry.mutex);
        if (registry.providers.erase(RegistrationHandle) == 0)
            return ERROR_INVALID_PARAMETER;
    }
    host::ResourceLedger::Instance().Release(host::ResourceKind::TraceRegistration);
    return ERROR_SUCCESS;
}

extern "C" TRACEHANDLE GetTraceLoggerHandle(void* Buffer)
{
    const auto* delivering = host::tracing::t_delivering;
    if (Buffer == nullptr || Buffer != delivering)
        return host::tracing::kInvalidTraceHandle;
    return delivering->HistoricalContext;
}

extern "C" UCHAR GetTraceEnableLevel(TRACEHANDLE TraceHandle)
{
    auto& registry = Table();
    std::lock_guard lock(registry.mutex);
    auto it = registry.enables.find(TraceHandle);
    return it == registry.enables.end() ? 0 : it->second.level;
}

extern "C" ULONG GetTraceEnableFlags(TRACEHANDLE TraceHandle)
{
    auto& registry = Table();
    std::lock_guard lock(registry.mutex);
    auto it = registry.enables.find(TraceHandle);
    return it == registry.enables.end() ? 0 : it->second.flags;
}

extern "C" ULONG TraceMessage(TRACEHANDLE LoggerHandle, ULONG /*MessageFlags*/, LPCGUID MessageGuid,
                              USHORT MessageNumber, ...)
{
    std::shared_ptr<host::tracing::TraceSink> sink;
    {
        auto& registry = Table();
        std::lock_guard lock(registry.mutex);
        auto it = registry.enables.find(LoggerHandle);
        if (it == registry.enables.end())
            return host::tracing::kErrorInvalidHandle;
        sink = it->second.sink;
    }
    // The pairs are read into a fixed array first, so va_end always runs once.
    std::pair<const void*, SIZE_T> pairs[host::tracing::kMaxArguments];
    std::size_t count = 0;
    std::va_list args;
    // The platform's signature puts a USHORT before the ellipsis; every ABI we
    // build for finds the variadic arguments after it all the same.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wvarargs"
#endif
    va_start(args, MessageNumber);
#if defined(__clang__)
#pragma clang diagnostic pop
#endif
    while (count < host::tracing::kMaxArguments) {
        const void* data = va_arg(args, const void*);
        if (data == nullptr)
            break;
        const SIZE_T size = va_arg(args, SIZE_T);
        pairs[count++] = {data, size};
    }
    va_end(args);
    try {
        const std::vector<std::pair<const void*, SIZE_T>> arguments(pairs, pairs + count);
        if (sink)
            sink->Write(host::tracing::FormatTraceLine(MessageGuid, MessageNumber, arguments));
    } catch (const std::bad_alloc&) {
        return 8;  // ERROR_NOT_ENOUGH_MEMORY
    }
    return ERROR_SUCCESS;
}
