// Sits between the framework's I/O targets and the simulated collection: logs
// the buffer lengths of every IOCTL and lets a test replace the answer to one
// IOCTL code, for device behaviour the simulation does not offer.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <vector>

#include "host/common/hid_collection_endpoint.h"

namespace testdriver {

class EndpointShim final : public host::HidCollectionEndpoint {
public:
    struct Call {
        ULONG ioctlCode;
        ULONG inputLength;
        ULONG outputLength;
    };
    using Answer = std::function<IoctlResult(BYTE* output, ULONG outputLength)>;

    explicit EndpointShim(host::HidCollectionEndpoint& inner) : inner_(inner) {}

    void Override(ULONG ioctlCode, Answer answer)
    {
        std::lock_guard lock(mutex_);
        overrides_[ioctlCode] = std::move(answer);
    }
    std::vector<Call> Calls() const
    {
        std::lock_guard lock(mutex_);
        return calls_;
    }

    IoctlResult DeviceControl(ULONG ioctlCode, const BYTE* input, ULONG inputLength, BYTE* output,
                              ULONG outputLength) override
    {
        Answer answer;
        {
            std::lock_guard lock(mutex_);
            calls_.push_back({ioctlCode, inputLength, outputLength});
            auto it = overrides_.find(ioctlCode);
            if (it != overrides_.end())
                answer = it->second;
        }
        if (answer)
            return answer(output, outputLength);
        return inner_.DeviceControl(ioctlCode, input, inputLength, output, outputLength);
    }
    void SubmitRead(ReadCompletion* read, ULONG capacity) override { inner_.SubmitRead(read, capacity); }
    bool CancelRead(ReadCompletion* read) override { return inner_.CancelRead(read); }

private:
    host::HidCollectionEndpoint& inner_;
    mutable std::mutex mutex_;
    std::map<ULONG, Answer> overrides_;
    std::vector<Call> calls_;
};

}  // namespace testdriver
