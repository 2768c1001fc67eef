// One I/O target on the HID collection's local target: synchronous IOCTLs, or
// a single self-re-arming read whose completions go to a callback.
#pragma once

#include <atomic>
#include <mutex>

#include "driver/heap.h"
#include "platform/wdf.h"

inline constexpr ULONG kMaxReadBytes = 4096;
// Synchronous IOCTLs give up after 5 seconds (relative, 100-ns units).
inline constexpr LONGLONG kIoctlTimeout = -50'000'000;

// Receives every completed read: the bytes (a copy the callback may modify),
// their length and the context given to Open.
using HidReadCallback = NTSTATUS (*)(BYTE* reports, ULONG length, void* context);

class HidIoTarget : public HeapObject {
public:
    HidIoTarget() noexcept = default;
    // Stops and closes the target; waits for an outstanding read to complete.
    virtual ~HidIoTarget();
    HidIoTarget(const HidIoTarget&) = delete;
    HidIoTarget& operator=(const HidIoTarget&) = delete;

    // Creates and opens the target. `callback` is null for the IOCTL target.
    NTSTATUS Open(WDFDEVICE device, HidReadCallback callback, void* context);
    // Posts the one read of up to 4096 bytes and (re)starts reading.
    NTSTATUS SubmitRead();
    // Stops re-arming and cancels the outstanding read. Always STATUS_SUCCESS.
    NTSTATUS Stop();
    // Closes and deletes the target. Always STATUS_SUCCESS.
    NTSTATUS Close();
    // Sends `ioctlCode` and waits at most 5 seconds. `inputBuffer`, when given,
    // is sent with the output buffer's length. Without an opened target this
    // succeeds without sending anything.
    NTSTATUS SendIoctlSynchronously(void* outputBuffer, ULONG outputLength, ULONG ioctlCode,
                                    void* inputBuffer);

    // Completion routine of the read; `context` is the HidIoTarget.
    static void OnReadComplete(WDFREQUEST request, WDFIOTARGET target,
                               PWDF_REQUEST_COMPLETION_PARAMS params, WDFCONTEXT context);

private:
    // A re-arm from the completion gives way to a Stop that came meanwhile;
    // SubmitRead starts reading again.
    NTSTATUS PostRead(bool rearm);
    // Clears the read-request field if it still names `request`, then deletes it.
    void DeleteReadRequest(WDFREQUEST request) noexcept;

    WDFDEVICE Device = nullptr;
    WDFIOTARGET Target = nullptr;
    // Stop cancels the read on its thread while the completion deletes it and
    // re-arms on another. The field and the writes of IsReading happen under
    // this lock, and a request is deleted only after it left the field, so a
    // Stop never cancels a deleted request and never misses a new one.
    std::mutex ReadRequestLock;
    WDFREQUEST ReadRequest = nullptr;
    BYTE ReadBuffer[kMaxReadBytes] = {};
    std::atomic<ULONG> BytesRead{0};
    std::atomic<ULONG> IsReading{0};  // a completed read is re-armed only while 1; written under the lock
    HidReadCallback Callback = nullptr;
    void* CallbackContext = nullptr;
};
