// The user-mode driver framework (UMDF 2) subset the driver calls: objects and
// contexts, driver and device creation, memory, I/O targets and requests, wait
// locks, timers and the registry.
#pragma once

#include "platform/basetypes.h"
#include "platform/ntstatus.h"

// Handles. Every framework handle converts to WDFOBJECT.
using WDFOBJECT = void*;
using WDFCONTEXT = void*;
struct WDFDRIVER__;
using WDFDRIVER = WDFDRIVER__*;
struct WDFDEVICE__;
using WDFDEVICE = WDFDEVICE__*;
struct WDFMEMORY__;
using WDFMEMORY = WDFMEMORY__*;
struct WDFIOTARGET__;
using WDFIOTARGET = WDFIOTARGET__*;
struct WDFREQUEST__;
using WDFREQUEST = WDFREQUEST__*;
struct WDFWAITLOCK__;
using WDFWAITLOCK = WDFWAITLOCK__*;
struct WDFTIMER__;
using WDFTIMER = WDFTIMER__*;
struct WDFKEY__;
using WDFKEY = WDFKEY__*;
struct WDFCMRESLIST__;
using WDFCMRESLIST = WDFCMRESLIST__*;

struct DRIVER_OBJECT;
using PDRIVER_OBJECT = DRIVER_OBJECT*;
struct WDFDEVICE_INIT;
using PWDFDEVICE_INIT = WDFDEVICE_INIT*;

using ACCESS_MASK = ULONG;
inline constexpr ACCESS_MASK KEY_READ = 0x20019;
inline constexpr ACCESS_MASK KEY_ALL_ACCESS = 0xF003F;
inline constexpr ULONG PLUGPLAY_REGKEY_DEVICE = 1;
inline constexpr ULONG PLUGPLAY_REGKEY_DRIVER = 2;
inline constexpr ULONG WDF_REGKEY_DEVICE_SUBKEY = 0x100;
inline constexpr ULONG WDF_REGKEY_DRIVER_SUBKEY = 0x100;
inline constexpr ULONG REG_OPTION_NON_VOLATILE = 0;
inline constexpr ULONG REG_CREATED_NEW_KEY = 1;
inline constexpr ULONG REG_OPENED_EXISTING_KEY = 2;

enum WDF_TRI_STATE : int { WdfFalse = 0, WdfTrue = 1, WdfUseDefault = 2 };

enum POOL_TYPE : int { NonPagedPool = 0, PagedPool = 1 };

enum WDF_EXECUTION_LEVEL : int {
    WdfExecutionLevelInvalid = 0,
    WdfExecutionLevelInheritFromParent,
    WdfExecutionLevelPassive,
    WdfExecutionLevelDispatch,
};

enum WDF_SYNCHRONIZATION_SCOPE : int {
    WdfSynchronizationScopeInvalid = 0,
    WdfSynchronizationScopeInheritFromParent,
    WdfSynchronizationScopeDevice,
    WdfSynchronizationScopeQueue,
    WdfSynchronizationScopeNone,
};

enum WDF_POWER_DEVICE_STATE : int {
    WdfPowerDeviceInvalid = 0,
    WdfPowerDeviceD0,
    WdfPowerDeviceD1,
    WdfPowerDeviceD2,
    WdfPowerDeviceD3,
    WdfPowerDeviceD3Final,
    WdfPowerDevicePrepareForHibernation,
};

// ---- Objects and contexts --------------------------------------------------

using PFN_WDF_OBJECT_CONTEXT_CLEANUP = void (*)(WDFOBJECT Object);
using PFN_WDF_OBJECT_CONTEXT_DESTROY = void (*)(WDFOBJECT Object);

struct WDF_OBJECT_CONTEXT_TYPE_INFO;
using PCWDF_OBJECT_CONTEXT_TYPE_INFO = const WDF_OBJECT_CONTEXT_TYPE_INFO*;
using PFN_GET_UNIQUE_CONTEXT_TYPE = PCWDF_OBJECT_CONTEXT_TYPE_INFO (*)();

struct WDF_OBJECT_CONTEXT_TYPE_INFO {
    ULONG Size;
    const CHAR* ContextName;
    SIZE_T ContextSize;
    PCWDF_OBJECT_CONTEXT_TYPE_INFO UniqueType;
    PFN_GET_UNIQUE_CONTEXT_TYPE EvtDriverGetUniqueContextType;
};

struct WDF_OBJECT_ATTRIBUTES {
    ULONG Size;
    PFN_WDF_OBJECT_CONTEXT_CLEANUP EvtCleanupCallback;
    PFN_WDF_OBJECT_CONTEXT_DESTROY EvtDestroyCallback;
    WDF_EXECUTION_LEVEL ExecutionLevel;
    WDF_SYNCHRONIZATION_SCOPE SynchronizationScope;
    WDFOBJECT ParentObject;
    SIZE_T ContextSizeOverride;
    PCWDF_OBJECT_CONTEXT_TYPE_INFO ContextTypeInfo;
};
using PWDF_OBJECT_ATTRIBUTES = WDF_OBJECT_ATTRIBUTES*;
static_assert(sizeof(WDF_OBJECT_ATTRIBUTES) == 56);

inline void WDF_OBJECT_ATTRIBUTES_INIT(PWDF_OBJECT_ATTRIBUTES attributes)
{
    *attributes = WDF_OBJECT_ATTRIBUTES{};
    attributes->Size = sizeof(WDF_OBJECT_ATTRIBUTES);
    attributes->ExecutionLevel = WdfExecutionLevelInheritFromParent;
    attributes->SynchronizationScope = WdfSynchronizationScopeInheritFromParent;
}

// Declares context type `type` with a registration record and an accessor
// `casting_function(handle)` that returns the typed context or null.
#define WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(type, casting_function)                          \
    inline const WDF_OBJECT_CONTEXT_TYPE_INFO WDF_##type##_TYPE_INFO = {                    \
        sizeof(WDF_OBJECT_CONTEXT_TYPE_INFO), #type, sizeof(type), nullptr, nullptr};       \
    inline type* casting_function(WDFOBJECT handle)                                         \
    {                                                                                       \
        return static_cast<type*>(WdfObjectGetTypedContextWorker(handle, &WDF_##type##_TYPE_INFO)); \
    }
#define WDF_GET_CONTEXT_TYPE_INFO(type) (&WDF_##type##_TYPE_INFO)

inline void WDF_OBJECT_ATTRIBUTES_SET_CONTEXT_TYPE(PWDF_OBJECT_ATTRIBUTES attributes,
                                                   PCWDF_OBJECT_CONTEXT_TYPE_INFO typeInfo)
{
    attributes->ContextTypeInfo = typeInfo;
}

// ---- Driver and device -----------------------------------------------------

using PFN_WDF_DRIVER_DEVICE_ADD = NTSTATUS (*)(WDFDRIVER Driver, PWDFDEVICE_INIT DeviceInit);
using PFN_WDF_DRIVER_UNLOAD = void (*)(WDFDRIVER Driver);

struct WDF_DRIVER_CONFIG {
    ULONG Size;
    PFN_WDF_DRIVER_DEVICE_ADD EvtDriverDeviceAdd;
    PFN_WDF_DRIVER_UNLOAD EvtDriverUnload;
    ULONG DriverInitFlags;
    ULONG DriverPoolTag;
};
using PWDF_DRIVER_CONFIG = WDF_DRIVER_CONFIG*;
static_assert(sizeof(WDF_DRIVER_CONFIG) == 32);

using PFN_WDF_DEVICE_D0_ENTRY = NTSTATUS (*)(WDFDEVICE Device, WDF_POWER_DEVICE_STATE PreviousState);
using PFN_WDF_DEVICE_D0_EXIT = NTSTATUS (*)(WDFDEVICE Device, WDF_POWER_DEVICE_STATE TargetState);
using PFN_WDF_DEVICE_PREPARE_HARDWARE = NTSTATUS (*)(WDFDEVICE Device, WDFCMRESLIST ResourcesRaw,
                                                     WDFCMRESLIST ResourcesTranslated);
using PFN_WDF_DEVICE_RELEASE_HARDWARE = NTSTATUS (*)(WDFDEVICE Device,
                                                     WDFCMRESLIST ResourcesTranslated);
using PFN_WDF_DEVICE_GENERIC = void (*)();  // callbacks the driver never sets

struct WDF_PNPPOWER_EVENT_CALLBACKS {
    ULONG Size;
    PFN_WDF_DEVICE_D0_ENTRY EvtDeviceD0Entry;
    PFN_WDF_DEVICE_GENERIC EvtDeviceD0EntryPostInterruptsEnabled;
    PFN_WDF_DEVICE_D0_EXIT EvtDeviceD0Exit;
    PFN_WDF_DEVICE_GENERIC EvtDeviceD0ExitPreInterruptsDisabled;
    PFN_WDF_DEVICE_PREPARE_HARDWARE EvtDevicePrepareHardware;
    PFN_WDF_DEVICE_RELEASE_HARDWARE EvtDeviceReleaseHardware;
    PFN_WDF_DEVICE_GENERIC EvtDeviceSelfManagedIoCleanup;
    PFN_WDF_DEVICE_GENERIC EvtDeviceSelfManagedIoFlush;
    PFN_WDF_DEVICE_GENERIC EvtDeviceSelfManagedIoInit;
    PFN_WDF_DEVICE_GENERIC EvtDeviceSelfManagedIoSuspend;
    PFN_WDF_DEVICE_GENERIC EvtDeviceSelfManagedIoRestart;
    PFN_WDF_DEVICE_GENERIC EvtDeviceSurpriseRemoval;
    PFN_WDF_DEVICE_GENERIC EvtDeviceQueryRemove;
    PFN_WDF_DEVICE_GENERIC EvtDeviceQueryStop;
    PFN_WDF_DEVICE_GENERIC EvtDeviceUsageNotification;
    PFN_WDF_DEVICE_GENERIC EvtDeviceRelationsQuery;
    PFN_WDF_DEVICE_GENERIC EvtDeviceUsageNotificationEx;
};
using PWDF_PNPPOWER_EVENT_CALLBACKS = WDF_PNPPOWER_EVENT_CALLBACKS*;
static_assert(sizeof(WDF_PNPPOWER_EVENT_CALLBACKS) == 144);

// ---- I/O targets and requests ----------------------------------------------

enum WDF_IO_TARGET_OPEN_TYPE : int {
    WdfIoTargetOpenUndefined = 0,
    WdfIoTargetOpenUseExistingDevice = 1,
    WdfIoTargetOpenByName = 2,
    WdfIoTargetOpenReopen = 3,
    WdfIoTargetOpenLocalTargetByFile = 4,
};

struct WDF_IO_TARGET_OPEN_PARAMS {
    ULONG Size;
    WDF_IO_TARGET_OPEN_TYPE Type;
    void* EvtIoTargetQueryRemove;
    void* EvtIoTargetRemoveCanceled;
    void* EvtIoTargetRemoveComplete;
    void* TargetDeviceObject;
    void* TargetFileObject;
    UNICODE_STRING TargetDeviceName;
    ACCESS_MASK DesiredAccess;
    ULONG ShareAccess;
    ULONG FileAttributes;
    ULONG CreateDisposition;
    ULONG CreateOptions;
    void* EaBuffer;
    ULONG EaBufferLength;
    LONGLONG* AllocationSize;
    ULONG FileInformation;
    UNICODE_STRING FileName;
};
using PWDF_IO_TARGET_OPEN_PARAMS = WDF_IO_TARGET_OPEN_PARAMS*;
static_assert(sizeof(WDF_IO_TARGET_OPEN_PARAMS) == 136);

struct WDFMEMORY_OFFSET {
    SIZE_T BufferOffset;
    SIZE_T BufferLength;
};
using PWDFMEMORY_OFFSET = WDFMEMORY_OFFSET*;

inline constexpr ULONG WDF_REQUEST_SEND_OPTION_TIMEOUT = 0x00000001;
inline constexpr ULONG WDF_REQUEST_SEND_OPTION_SYNCHRONOUS = 0x00000002;
inline constexpr ULONG WDF_REQUEST_SEND_OPTION_IGNORE_TARGET_STATE = 0x00000004;
inline constexpr ULONG WDF_REQUEST_SEND_OPTION_SEND_AND_FORGET = 0x00000008;

struct WDF_REQUEST_SEND_OPTIONS {
    ULONG Size;
    ULONG Flags;
    LONGLONG Timeout;  // 100-ns units; negative is relative
};
using PWDF_REQUEST_SEND_OPTIONS = WDF_REQUEST_SEND_OPTIONS*;
static_assert(sizeof(WDF_REQUEST_SEND_OPTIONS) == 16);

enum WDF_REQUEST_TYPE : int {
    WdfRequestTypeCreate = 0x0,
    WdfRequestTypeClose = 0x2,
    WdfRequestTypeRead = 0x3,
    WdfRequestTypeWrite = 0x4,
    WdfRequestTypeDeviceControl = 0xE,
    WdfRequestTypeDeviceControlInternal = 0xF,
    WdfRequestTypeOther = 0x1B,
};

struct IO_STATUS_BLOCK {
    union {
        NTSTATUS Status;
        void* Pointer;
    };
    ULONG_PTR Information;
};

struct WDF_REQUEST_COMPLETION_PARAMS {
    ULONG Size;
    WDF_REQUEST_TYPE Type;
    IO_STATUS_BLOCK IoStatus;
    union {
        struct {
            WDFMEMORY Buffer;
            SIZE_T Length;
            SIZE_T Offset;
        } Write;
        struct {
            WDFMEMORY Buffer;
            SIZE_T Length;
            SIZE_T Offset;
        } Read;
        struct {
            ULONG IoControlCode;
            struct {
                WDFMEMORY Buffer;
                SIZE_T Offset;
            } Input;
            struct {
                WDFMEMORY Buffer;
                SIZE_T Offset;
                SIZE_T Length;
            } Output;
        } Ioctl;
    } Parameters;
};
using PWDF_REQUEST_COMPLETION_PARAMS = WDF_REQUEST_COMPLETION_PARAMS*;

using PFN_WDF_REQUEST_COMPLETION_ROUTINE = void (*)(WDFREQUEST Request, WDFIOTARGET Target,
                                                    PWDF_REQUEST_COMPLETION_PARAMS Params,
                                                    WDFCONTEXT Context);

// ---- Timers ------------------------------------------------------------------

using PFN_WDF_TIMER = void (*)(WDFTIMER Timer);

struct WDF_TIMER_CONFIG {
    ULONG Size;
    PFN_WDF_TIMER EvtTimerFunc;
    ULONG Period;
    BOOLEAN AutomaticSerialization;
    ULONG TolerableDelay;
    BOOLEAN UseHighResolutionTimer;
};
using PWDF_TIMER_CONFIG = WDF_TIMER_CONFIG*;

inline void WDF_TIMER_CONFIG_INIT(PWDF_TIMER_CONFIG config, PFN_WDF_TIMER evtTimerFunc)
{
    *config = WDF_TIMER_CONFIG{};
    config->Size = sizeof(WDF_TIMER_CONFIG);
    config->EvtTimerFunc = evtTimerFunc;
    config->AutomaticSerialization = TRUE;
}

// Relative due time of `ms` milliseconds, in 100-ns units.
constexpr LONGLONG WDF_REL_TIMEOUT_IN_MS(ULONGLONG ms) { return -static_cast<LONGLONG>(ms * 10000); }

extern "C" {
// Objects and contexts.
void* WdfObjectGetTypedContextWorker(WDFOBJECT Handle, PCWDF_OBJECT_CONTEXT_TYPE_INFO TypeInfo);
NTSTATUS WdfObjectAllocateContext(WDFOBJECT Handle, PWDF_OBJECT_ATTRIBUTES ContextAttributes,
                                  void** Context);
void WdfObjectDelete(WDFOBJECT Object);

// Driver and device.
NTSTATUS WdfDriverCreate(PDRIVER_OBJECT DriverObject, PCUNICODE_STRING RegistryPath,
                         PWDF_OBJECT_ATTRIBUTES DriverAttributes, PWDF_DRIVER_CONFIG DriverConfig,
                         WDFDRIVER* Driver);
void WdfDeviceInitSetPowerPolicyOwnership(PWDFDEVICE_INIT DeviceInit, BOOLEAN IsPowerPolicyOwner);
void WdfDeviceInitSetPnpPowerEventCallbacks(PWDFDEVICE_INIT DeviceInit,
                                            PWDF_PNPPOWER_EVENT_CALLBACKS PnpPowerEventCallbacks);
NTSTATUS WdfDeviceCreate(PWDFDEVICE_INIT* DeviceInit, PWDF_OBJECT_ATTRIBUTES DeviceAttributes,
                         WDFDEVICE* Device);

// Memory.
NTSTATUS WdfMemoryCreate(PWDF_OBJECT_ATTRIBUTES Attributes, POOL_TYPE PoolType, ULONG PoolTag,
                         SIZE_T BufferSize, WDFMEMORY* Memory, void** Buffer);
NTSTATUS WdfMemoryCreatePreallocated(PWDF_OBJECT_ATTRIBUTES Attributes, void* Buffer,
                                     SIZE_T BufferSize, WDFMEMORY* Memory);
void* WdfMemoryGetBuffer(WDFMEMORY Memory, SIZE_T* BufferSize);

// I/O targets and requests.
NTSTATUS WdfIoTargetCreate(WDFDEVICE Device, PWDF_OBJECT_ATTRIBUTES IoTargetAttributes,
                           WDFIOTARGET* IoTarget);
NTSTATUS WdfIoTargetOpen(WDFIOTARGET IoTarget, PWDF_IO_TARGET_OPEN_PARAMS OpenParams);
// Waits for the completion of every request sent to the target.
void WdfIoTargetClose(WDFIOTARGET IoTarget);
NTSTATUS WdfIoTargetFormatRequestForIoctl(WDFIOTARGET IoTarget, WDFREQUEST Request,
                                          ULONG IoctlCode, WDFMEMORY InputBuffer,
                                          PWDFMEMORY_OFFSET InputBufferOffset,
                                          WDFMEMORY OutputBuffer,
                                          PWDFMEMORY_OFFSET OutputBufferOffset);
NTSTATUS WdfIoTargetFormatRequestForRead(WDFIOTARGET IoTarget, WDFREQUEST Request,
                                         WDFMEMORY OutputBuffer, PWDFMEMORY_OFFSET OutputBufferOffset,
                                         LONGLONG* DeviceOffset);
NTSTATUS WdfRequestCreate(PWDF_OBJECT_ATTRIBUTES RequestAttributes, WDFIOTARGET IoTarget,
                          WDFREQUEST* Request);
void WdfRequestSetCompletionRoutine(WDFREQUEST Request,
                                    PFN_WDF_REQUEST_COMPLETION_ROUTINE CompletionRoutine,
                                    WDFCONTEXT CompletionContext);
BOOLEAN WdfRequestSend(WDFREQUEST Request, WDFIOTARGET Target, PWDF_REQUEST_SEND_OPTIONS Options);
NTSTATUS WdfRequestGetStatus(WDFREQUEST Request);
BOOLEAN WdfRequestCancelSentRequest(WDFREQUEST Request);
void WdfRequestComplete(WDFREQUEST Request, NTSTATUS Status);
ULONG_PTR WdfRequestGetInformation(WDFREQUEST Request);

// Wait locks.
NTSTATUS WdfWaitLockCreate(PWDF_OBJECT_ATTRIBUTES LockAttributes, WDFWAITLOCK* Lock);
// Timeout null waits forever; otherwise 100-ns units, negative relative.
NTSTATUS WdfWaitLockAcquire(WDFWAITLOCK Lock, LONGLONG* Timeout);
void WdfWaitLockRelease(WDFWAITLOCK Lock);

// Timers.
NTSTATUS WdfTimerCreate(PWDF_TIMER_CONFIG Config, PWDF_OBJECT_ATTRIBUTES Attributes, WDFTIMER* Timer);
// DueTime in 100-ns units, negative relative. Returns TRUE when the timer was already queued.
BOOLEAN WdfTimerStart(WDFTIMER Timer, LONGLONG DueTime);
// Wait TRUE blocks until a running callback has returned. Returns TRUE when a queued
// due time was cancelled.
BOOLEAN WdfTimerStop(WDFTIMER Timer, BOOLEAN Wait);
WDFOBJECT WdfTimerGetParentObject(WDFTIMER Timer);

// Registry.
NTSTATUS WdfDeviceOpenRegistryKey(WDFDEVICE Device, ULONG DeviceInstanceKeyType,
                                  ACCESS_MASK DesiredAccess, PWDF_OBJECT_ATTRIBUTES KeyAttributes,
                                  WDFKEY* Key);
NTSTATUS WdfRegistryCreateKey(WDFKEY ParentKey, PCUNICODE_STRING KeyName, ACCESS_MASK DesiredAccess,
                              ULONG CreateOptions, ULONG* CreateDisposition,
                              PWDF_OBJECT_ATTRIBUTES KeyAttributes, WDFKEY* Key);
NTSTATUS WdfRegistryQueryULong(WDFKEY Key, PCUNICODE_STRING ValueName, ULONG* Value);
NTSTATUS WdfRegistryAssignULong(WDFKEY Key, PCUNICODE_STRING ValueName, ULONG Value);
void WdfRegistryClose(WDFKEY Key);

// The module's entry: the framework's stub, which binds the module and calls DriverEntry.
NTSTATUS FxDriverEntryUm(void* LoaderInterface, void* Context, PDRIVER_OBJECT DriverObject,
                         PUNICODE_STRING RegistryPath);
// Provided by the driver.
NTSTATUS DriverEntry(PDRIVER_OBJECT DriverObject, PUNICODE_STRING RegistryPath);
}
