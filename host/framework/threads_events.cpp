// Threads, events, waits and CloseHandle.
//
// CreateThread supports only dwCreationFlags 0 (a suspended start is refused
// with a null handle). Event names are ignored: every event is private.
// WaitForSingleObjectEx ignores bAlertable; 0 polls; INFINITE waits forever,
// except that a thread waiting forever for itself is reported and fails.
#include <atomic>
#include <chrono>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include "host/common/fault_injection.h"
#include "host/common/resource_ledger.h"
#include "host/framework/kernel_handles.h"
#include "host/framework/threads.h"
#include "host/framework/violations.h"
#include "platform/system.h"

namespace host::framework {
namespace {

struct DriverThread {
    std::shared_ptr<ThreadObject> state;
    std::thread thread;
};

struct ThreadList {
    std::mutex mutex;
    std::vector<DriverThread> threads;

    ~ThreadList() { Reap(true); }

    void Reap(bool detachUnfinished)
    {
        std::vector<DriverThread> finished;
        {
            std::lock_guard lock(mutex);
            for (auto it = threads.begin(); it != threads.end();) {
                bool done = false;
                {
                    std::lock_guard stateLock(it->state->mutex);
                    done = it->state->finished;
                }
                if (done || detachUnfinished) {
                    if (!done)
                        it->thread.detach();
                    finished.push_back(std::move(*it));
                    it = threads.erase(it);
                } else {
                    ++it;
                }
            }
        }
        for (DriverThread& entry : finished) {
            if (entry.thread.joinable())
                entry.thread.join();
        }
    }
};

ThreadList& Threads()
{
    static ThreadList list;
    return list;
}

template <class T>
std::shared_ptr<T> Lookup(HANDLE handle, KernelObject::Kind kind, const char* function)
{
    std::shared_ptr<KernelObject> object = LookupHandle(handle);
    if (object == nullptr || object->kind != kind) {
        ReportViolation(std::string(function) + (object == nullptr ? ": dead or foreign handle" : ": handle of the wrong type"));
        return nullptr;
    }
    return std::static_pointer_cast<T>(object);
}

// Waits on `object` until `ready` holds, then runs `satisfied` under the same
// lock (an auto-reset event consumes its signal there).
template <class Ready, class Satisfied>
DWORD WaitOn(KernelObject& object, DWORD milliseconds, Ready ready, Satisfied satisfied)
{
    std::unique_lock lock(object.mutex);
    if (milliseconds == INFINITE)
        object.changed.wait(lock, ready);
    else if (!object.changed.wait_for(lock, std::chrono::milliseconds(milliseconds), ready))
        return WAIT_TIMEOUT;
    satisfied();
    return WAIT_OBJECT_0;
}

}  // namespace

void ReapThreads(bool detachUnfinished)
{
    Threads().Reap(detachUnfinished);
}

void JoinAllThreads()
{
    std::vector<DriverThread> all;
    {
        ThreadList& list = Threads();
        std::lock_guard lock(list.mutex);
        all.swap(list.threads);
    }
    for (DriverThread& entry : all) {
        if (entry.thread.joinable())
            entry.thread.join();
    }
}

}  // namespace host::framework

using namespace host::framework;

extern "C" HANDLE CreateThread(LPSECURITY_ATTRIBUTES /*lpThreadAttributes*/, SIZE_T /*dwStackSize*/,
                               LPTHREAD_START_ROUTINE lpStartAddress, void* lpParameter, DWORD dwCreationFlags,
                               DWORD* lpThreadId)
{
    if (lpStartAddress == nullptr)
        return nullptr;
    if (dwCreationFlags != 0) {
        ReportViolation("CreateThread: creation flags are not supported");
        return nullptr;
    }
    if (host::FaultInjector::Instance().ShouldFail(host::FaultPoint::ThreadCreate))
        return nullptr;
    ReapThreads(false);
    static std::atomic<DWORD> nextThreadId{1000};
    try {
        auto state = std::make_shared<ThreadObject>();
        DriverThread entry{state, {}};
        ThreadList& list = Threads();
        std::lock_guard lock(list.mutex);
        list.threads.reserve(list.threads.size() + 1);
        HANDLE handle = InsertHandle(state);
        if (handle == nullptr)
            return nullptr;
        host::ResourceLedger::Instance().Acquire(host::ResourceKind::Thread);
        try {
            entry.thread = std::thread([state, lpStartAddress, lpParameter] {
                {
                    std::lock_guard stateLock(state->mutex);
                    state->id = std::this_thread::get_id();
                }
                const DWORD exitCode = lpStartAddress(lpParameter);
                {
                    std::lock_guard stateLock(state->mutex);
                    state->exitCode = exitCode;
                    state->finished = true;
                }
                host::ResourceLedger::Instance().Release(host::ResourceKind::Thread);
                state->changed.notify_all();
            });
        } catch (const std::system_error&) {
            host::ResourceLedger::Instance().Release(host::ResourceKind::Thread);
            RemoveHandle(handle);
            return nullptr;
        }
        list.threads.push_back(std::move(entry));
        if (lpThreadId != nullptr)
            *lpThreadId = nextThreadId.fetch_add(1, std::memory_order_relaxed);
        return handle;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

extern "C" BOOL GetExitCodeThread(HANDLE hThread, DWORD* lpExitCode)
{
    auto thread = Lookup<ThreadObject>(hThread, KernelObject::Kind::Thread, "GetExitCodeThread");
    if (thread == nullptr || lpExitCode == nullptr)
        return FALSE;
    std::lock_guard lock(thread->mutex);
    *lpExitCode = thread->finished ? thread->exitCode : STILL_ACTIVE;
    return TRUE;
}

extern "C" HANDLE CreateEventW(LPSECURITY_ATTRIBUTES /*lpEventAttributes*/, BOOL bManualReset, BOOL bInitialState,
                               LPCWSTR /*lpName*/)
{
    if (host::FaultInjector::Instance().ShouldFail(host::FaultPoint::EventCreate))
        return nullptr;
    try {
        return InsertHandle(std::make_shared<EventObject>(bManualReset != 0, bInitialState != 0));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

extern "C" BOOL SetEvent(HANDLE hEvent)
{
    auto event = Lookup<EventObject>(hEvent, KernelObject::Kind::Event, "SetEvent");
    if (event == nullptr)
        return FALSE;
    {
        std::lock_guard lock(event->mutex);
        event->signaled = true;
    }
    event->changed.notify_all();
    return TRUE;
}

extern "C" BOOL ResetEvent(HANDLE hEvent)
{
    auto event = Lookup<EventObject>(hEvent, KernelObject::Kind::Event, "ResetEvent");
    if (event == nullptr)
        return FALSE;
    std::lock_guard lock(event->mutex);
    event->signaled = false;
    return TRUE;
}

extern "C" DWORD WaitForSingleObjectEx(HANDLE hHandle, DWORD dwMilliseconds, BOOL /*bAlertable*/)
{
    std::shared_ptr<KernelObject> object = LookupHandle(hHandle);
    if (object == nullptr) {
        ReportViolation("WaitForSingleObjectEx: dead or foreign handle");
        return WAIT_FAILED;
    }
    if (object->kind == KernelObject::Kind::Event) {
        auto& event = static_cast<EventObject&>(*object);
        return WaitOn(event, dwMilliseconds, [&] { return event.signaled; }, [&] {
            if (!event.manualReset)
                event.signaled = false;
        });
    }
    auto& thread = static_cast<ThreadObject&>(*object);
    if (dwMilliseconds == INFINITE) {
        std::lock_guard lock(thread.mutex);
        if (!thread.finished && thread.id == std::this_thread::get_id()) {
            ReportViolation("WaitForSingleObjectEx: a thread waits forever for itself");
            return WAIT_FAILED;
        }
    }
    return WaitOn(thread, dwMilliseconds, [&] { return thread.finished; }, [] {});
}

extern "C" BOOL CloseHandle(HANDLE hObject)
{
    if (!RemoveHandle(hObject)) {
        ReportViolation("CloseHandle: dead or foreign handle");
        return FALSE;
    }
    return TRUE;
}
