// The system handles the driver gets from CreateThread and CreateEventW. Each
// handle maps to a shared kernel object, so closing a handle never pulls the
// object from under a thread still running or waiting on it. Handle values are
// never reused, so a closed handle is always recognised as dead.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/basetypes.h"

namespace host::framework {

struct KernelObject {
    enum class Kind { Event, Thread };

    explicit KernelObject(Kind k) : kind(k) {}
    virtual ~KernelObject() = default;

    const Kind kind;
    std::mutex mutex;
    std::condition_variable changed;
};

struct EventObject final : KernelObject {
    EventObject(bool manual, bool initial) : KernelObject(Kind::Event), manualReset(manual), signaled(initial) {}

    const bool manualReset;
    bool signaled;  // guarded by mutex
};

struct ThreadObject final : KernelObject {
    ThreadObject() : KernelObject(Kind::Thread) {}

    bool finished = false;  // guarded by mutex
    DWORD exitCode = 0;
    std::thread::id id;
};

// Adds the object and counts a Handle in the ledger; null when memory runs out.
HANDLE InsertHandle(std::shared_ptr<KernelObject> object);
// The object behind a live handle, or null.
std::shared_ptr<KernelObject> LookupHandle(HANDLE handle);
// Removes the handle (and releases its ledger count); false for a dead one.
bool RemoveHandle(HANDLE handle);

}  // namespace host::framework
