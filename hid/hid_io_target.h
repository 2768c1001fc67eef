// One I/O target on the HID collection's local target: synchronous IOCTLs, or
// a single self-re-arming read whose completions go to a callback.
#pragma once

#include <atomic>

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
    // Posts the read for the holder of the read slot. On failure the slot is
    // released and the status returned.
    NTSTATUS PostRead();
    // Called by the completion once its reports are dispatched: re-arms or
    // releases the read slot.
    void FinishDispatch(bool hadData);
    // Drops one claim on a read request; the last one deletes it.
    static void ReleaseClaim(WDFREQUEST request) noexcept;
    // Takes the request out of the read-request field if it is still there.
    bool TakeReadRequest(WDFREQUEST request) noexcept;

    // ReaderState bits. kReading is the reader's IsReading: a completed read
    // is re-armed only while it is set. kBusy is the read slot: set while a
    // read is being posted, is outstanding, or has its completion
    // dispatching; only its holder posts a read, so there is never a second.
    // kRestart: a SubmitRead found the slot held and left the re-arm to its
    // holder, even if that read completes without data.
    static constexpr ULONG kReading = 1;
    static constexpr ULONG kBusy = 2;
    static constexpr ULONG kRestart = 4;

    WDFDEVICE Device = nullptr;
    WDFIOTARGET Target = nullptr;
    // No lock: Stop runs on the power-callback thread while the completion
    // deletes the request and re-arms on a framework thread, and on some
    // platforms a cancel completes the request inside the cancel call. The
    // read request is shared by up to three claims, counted in its context:
    // its completion, the read-request field (taken by whoever empties the
    // field: the completion, or Stop to cancel it) and the poster until its
    // send has returned. The last claim released deletes it, so a cancel
    // never meets a deleted request, even when the next read is already out. Sequentially consistent: Stop clears kReading before it empties
    // the field and the poster checks kReading after it filled the field and
    // sent, so one of the two always cancels a read sent across a Stop.
    std::atomic<WDFREQUEST> ReadRequest{nullptr};
    std::atomic<ULONG> ReaderState{0};
    BYTE ReadBuffer[kMaxReadBytes] = {};
    std::atomic<ULONG> BytesRead{0};
    HidReadCallback Callback = nullptr;
    void* CallbackContext = nullptr;
};
