// The HID class driver's side of one top-level collection, as an I/O target
// sees it: synchronous device controls and reads of input reports. The
// simulated HID device implements it; the framework's I/O targets call it.
#pragma once

#include "platform/basetypes.h"
#include "platform/ntstatus.h"

namespace host {

class HidCollectionEndpoint {
public:
    virtual ~HidCollectionEndpoint() = default;

    struct IoctlResult {
        NTSTATUS status = STATUS_SUCCESS;
        ULONG information = 0;  // bytes written to the output buffer
        bool answered = true;   // false: the device never answers; the request stays pending
    };

    // Collection information, descriptor, strings, GET_FEATURE and SET_FEATURE.
    // `input` and `output` may be null when their length is 0. Never throws.
    virtual IoctlResult DeviceControl(ULONG ioctlCode, const BYTE* input, ULONG inputLength,
                                      BYTE* output, ULONG outputLength) = 0;

    // A read handed to the HID class driver. Completed exactly once, with the
    // bytes of one or more input reports, or a failure, or STATUS_CANCELLED and
    // no data. Complete() copies the data and may run on any thread, including
    // inside SubmitRead.
    class ReadCompletion {
    public:
        virtual void Complete(NTSTATUS status, const BYTE* data, ULONG length) = 0;

    protected:
        ~ReadCompletion() = default;
    };

    // Queues a read of up to `capacity` bytes.
    virtual void SubmitRead(ReadCompletion* read, ULONG capacity) = 0;
    // Completes a still-pending read with STATUS_CANCELLED and no data; false when
    // it is not pending (already completed).
    virtual bool CancelRead(ReadCompletion* read) = 0;
};

}  // namespace host
