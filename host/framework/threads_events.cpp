// Threads, events, waits and CloseHandle, and the deterministic scheduler of
// driver threads (see threads.h).
//
// CreateThread supports only dwCreationFlags 0 (a suspended start is refused
// with a null handle). Event names are ignored: every event is private.
// WaitForSingleObjectEx ignores bAlertable; 0 polls; INFINITE waits forever,
// except that a thread waiting forever for itself is reported and fails.
//
// The scheduler passes one baton: a driver thread runs only while its `go`
// flag is set, and whoever set it waits until the thread clears it by
// parking. Everything the scheduler decides is guarded by its one mutex,
// which is never taken while an object's own mutex is held.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include "host/common/fault_injection.h"
#include "host/common/resource_ledger.h"
#include "host/framework/kernel_handles.h"
#include "host/framework/runtime.h"
#include "host/framework/threads.h"
#include "host/framework/violations.h"
#include "platform/system.h"

namespace host::framework {
namespace {

struct DriverThread {
    std::shared_ptr<ThreadObject> state;
    std::thread thread;
    HANDLE handle = nullptr;
    DWORD id = 0;
    bool scheduled = false;  // created in deterministic mode
    // Guarded by the scheduler's mutex.
    DriverThreadState sched = DriverThreadState::NotStarted;
    bool go = false;         // holds the baton
    bool abandoned = false;  // the host ended before it ran: exit without running
    std::function<bool()> canRun;  // Waiting: true once the wait can end
    std::optional<FaultPoint> heldAt;
    bool released = false;
};

struct Scheduler {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::shared_ptr<DriverThread>> threads;
    std::vector<FaultPoint> holds;

    // Detaches what cannot be joined; a thread that never ran is let go without running.
    void Forget()
    {
        std::vector<std::shared_ptr<DriverThread>> all;
        {
            std::lock_guard lock(mutex);
            all.swap(threads);
            holds.clear();
            for (auto& entry : all) {
                if (entry->sched == DriverThreadState::NotStarted) {
                    entry->abandoned = true;
                    entry->go = true;
                }
            }
        }
        changed.notify_all();
        for (auto& entry : all) {
            if (!entry->thread.joinable())
                continue;
            bool finished = false;
            {
                std::lock_guard stateLock(entry->state->mutex);
                finished = entry->state->finished;
            }
            if (finished || entry->abandoned)
                entry->thread.join();
            else
                entry->thread.detach();
        }
    }
};

// Never destroyed: a thread left parked by an ended host waits on it for good.
Scheduler& TheScheduler()
{
    static Scheduler& scheduler = *new Scheduler;
    return scheduler;
}

thread_local DriverThread* t_current = nullptr;

bool Runnable(DriverThread& entry)
{
    switch (entry.sched) {
    case DriverThreadState::NotStarted:
        return true;
    case DriverThreadState::Waiting:
        return entry.canRun && entry.canRun();
    case DriverThreadState::Held:
        return entry.released;
    case DriverThreadState::Running:
    case DriverThreadState::Finished:
        return false;
    }
    return false;
}

// Hands the baton to `entry` and waits until it parks.
void RunOne(Scheduler& s, std::unique_lock<std::mutex>& lock, DriverThread& entry)
{
    entry.go = true;
    entry.sched = DriverThreadState::Running;
    entry.canRun = nullptr;
    if (entry.heldAt) {
        entry.heldAt.reset();
        entry.released = false;
    }
    s.changed.notify_all();
    s.changed.wait(lock, [&] { return !entry.go; });
}

std::size_t RunAllLocked(Scheduler& s, std::unique_lock<std::mutex>& lock)
{
    std::size_t runs = 0;
    for (bool moved = true; moved;) {
        moved = false;
        for (std::size_t i = 0; i < s.threads.size(); ++i) {
            std::shared_ptr<DriverThread> entry = s.threads[i];
            if (!entry->scheduled || !Runnable(*entry))
                continue;
            RunOne(s, lock, *entry);
            ++runs;
            moved = true;
        }
    }
    return runs;
}

// On a driver thread: gives the baton back and waits for it again.
void Park(Scheduler& s, std::unique_lock<std::mutex>& lock, DriverThread& self, DriverThreadState why)
{
    self.sched = why;
    self.go = false;
    s.changed.notify_all();
    s.changed.wait(lock, [&] { return self.go; });
}

void HoldHook(FaultPoint point)
{
    DriverThread* self = t_current;
    if (self == nullptr || !self->scheduled)
        return;
    Scheduler& s = TheScheduler();
    std::unique_lock lock(s.mutex);
    auto it = std::find(s.holds.begin(), s.holds.end(), point);
    if (it == s.holds.end())
        return;
    s.holds.erase(it);
    self->heldAt = point;
    self->released = false;
    Park(s, lock, *self, DriverThreadState::Held);
}

std::shared_ptr<DriverThread> EntryOf(Scheduler& s, HANDLE handle)
{
    for (const auto& entry : s.threads) {
        if (entry->handle == handle)
            return entry;
    }
    return nullptr;
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

// Real time: waits on `object` until `ready` holds, then runs `satisfied`
// under the same lock (an auto-reset event consumes its signal there).
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

void ThreadMain(const std::shared_ptr<DriverThread>& entry, LPTHREAD_START_ROUTINE routine, void* parameter)
{
    Scheduler& s = TheScheduler();
    if (entry->scheduled) {
        std::unique_lock lock(s.mutex);
        s.changed.wait(lock, [&] { return entry->go; });
        if (entry->abandoned) {
            host::ResourceLedger::Instance().Release(host::ResourceKind::Thread);
            return;
        }
    }
    const std::shared_ptr<ThreadObject>& state = entry->state;
    {
        std::lock_guard stateLock(state->mutex);
        state->id = std::this_thread::get_id();
    }
    t_current = entry.get();
    const DWORD exitCode = routine(parameter);
    t_current = nullptr;
    {
        std::lock_guard stateLock(state->mutex);
        state->exitCode = exitCode;
        state->finished = true;
    }
    host::ResourceLedger::Instance().Release(host::ResourceKind::Thread);
    state->changed.notify_all();
    if (entry->scheduled) {
        std::lock_guard lock(s.mutex);
        entry->sched = DriverThreadState::Finished;
        entry->go = false;
        s.changed.notify_all();
    }
}

}  // namespace

const char* DriverThreadStateName(DriverThreadState state)
{
    switch (state) {
    case DriverThreadState::NotStarted: return "NotStarted";
    case DriverThreadState::Running: return "Running";
    case DriverThreadState::Waiting: return "Waiting";
    case DriverThreadState::Held: return "Held";
    case DriverThreadState::Finished: return "Finished";
    }
    return "?";
}

std::size_t RunDriverThreads()
{
    if (!scheduling::Scheduled())
        return 0;
    Scheduler& s = TheScheduler();
    std::unique_lock lock(s.mutex);
    return RunAllLocked(s, lock);
}

bool RunDriverThread(HANDLE thread)
{
    Scheduler& s = TheScheduler();
    std::unique_lock lock(s.mutex);
    std::shared_ptr<DriverThread> entry = EntryOf(s, thread);
    if (entry == nullptr)
        return false;
    if (entry->scheduled && Runnable(*entry))
        RunOne(s, lock, *entry);
    return true;
}

void HoldDriverThreadAt(FaultPoint point)
{
    Scheduler& s = TheScheduler();
    std::lock_guard lock(s.mutex);
    s.holds.push_back(point);
}

void ClearDriverThreadHolds()
{
    Scheduler& s = TheScheduler();
    std::lock_guard lock(s.mutex);
    s.holds.clear();
}

bool ReleaseDriverThread(HANDLE thread)
{
    Scheduler& s = TheScheduler();
    std::lock_guard lock(s.mutex);
    std::shared_ptr<DriverThread> entry = EntryOf(s, thread);
    if (entry == nullptr || entry->sched != DriverThreadState::Held)
        return false;
    entry->released = true;
    return true;
}

std::vector<DriverThreadInfo> DriverThreads()
{
    Scheduler& s = TheScheduler();
    std::vector<DriverThreadInfo> infos;
    std::lock_guard lock(s.mutex);
    for (const auto& entry : s.threads) {
        DriverThreadInfo info;
        info.handle = entry->handle;
        info.id = entry->id;
        info.state = entry->sched;
        info.heldAt = entry->heldAt;
        if (!entry->scheduled) {
            std::lock_guard stateLock(entry->state->mutex);
            info.state = entry->state->finished ? DriverThreadState::Finished : DriverThreadState::Running;
        }
        infos.push_back(info);
    }
    return infos;
}

bool OnDriverThread() { return t_current != nullptr; }

void ReapThreads(bool detachUnfinished)
{
    if (detachUnfinished) {
        TheScheduler().Forget();
        return;
    }
    // Finished threads are joined; their entries stay for DriverThreads().
    Scheduler& s = TheScheduler();
    std::vector<std::shared_ptr<DriverThread>> finished;
    {
        std::lock_guard lock(s.mutex);
        for (const auto& entry : s.threads) {
            if (!entry->thread.joinable() || entry->go)  // a scheduled thread first gives the baton back
                continue;
            std::lock_guard stateLock(entry->state->mutex);
            if (entry->state->finished)
                finished.push_back(entry);
        }
    }
    for (auto& entry : finished) {
        // Joined by one caller only: the list is taken again to claim it.
        std::thread thread;
        {
            std::lock_guard lock(s.mutex);
            thread.swap(entry->thread);
        }
        if (!thread.joinable())
            continue;
        if (thread.get_id() == std::this_thread::get_id())
            thread.detach();
        else
            thread.join();
    }
}

void JoinAllThreads()
{
    Scheduler& s = TheScheduler();
    if (scheduling::Scheduled()) {
        RunDriverThreads();
        bool stuck = false;
        {
            std::lock_guard lock(s.mutex);
            for (const auto& entry : s.threads)
                stuck = stuck || (entry->scheduled && entry->sched != DriverThreadState::Finished);
        }
        if (stuck)
            ReportViolation("JoinAllThreads: a driver thread cannot finish; left parked");
        ReapThreads(false);
        return;
    }
    std::vector<std::thread> threads;
    {
        std::lock_guard lock(s.mutex);
        for (const auto& entry : s.threads) {
            if (entry->thread.joinable())
                threads.push_back(std::move(entry->thread));
        }
    }
    for (std::thread& thread : threads)
        thread.join();
}

void ResetDriverThreads()
{
    TheScheduler().Forget();
    host::SetHoldHook(HoldHook);
}

namespace scheduling {

bool Scheduled() { return Runtime::Get().Clock().Mode() == ClockMode::Deterministic; }

WaitResult Wait(const std::function<bool()>& tryTake, const std::function<bool()>& ready, LONGLONG timeoutTicks)
{
    if (tryTake())
        return WaitResult::Satisfied;
    if (timeoutTicks == 0)
        return WaitResult::TimedOut;
    Scheduler& s = TheScheduler();
    DriverThread* self = t_current;
    if (self == nullptr || !self->scheduled) {
        RunDriverThreads();
        if (tryTake())
            return WaitResult::Satisfied;
        return timeoutTicks < 0 ? WaitResult::Deadlock : WaitResult::TimedOut;
    }
    HostClock& clock = Runtime::Get().Clock();
    const LONGLONG now = clock.Now();
    const LONGLONG deadline = timeoutTicks < 0 || timeoutTicks > std::numeric_limits<LONGLONG>::max() - now
                                  ? std::numeric_limits<LONGLONG>::max()
                                  : now + timeoutTicks;
    for (;;) {
        {
            std::unique_lock lock(s.mutex);
            self->canRun = [&ready, &clock, deadline] { return ready() || clock.Now() >= deadline; };
            Park(s, lock, *self, DriverThreadState::Waiting);
        }
        if (tryTake())
            return WaitResult::Satisfied;
        if (clock.Now() >= deadline)
            return WaitResult::TimedOut;
    }
}

}  // namespace scheduling
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
    host::DriverCall driverCall(host::FaultPoint::ThreadCreate);
    if (driverCall.Fails())
        return nullptr;
    ReapThreads(false);
    static std::atomic<DWORD> nextThreadId{1000};
    try {
        auto entry = std::make_shared<DriverThread>();
        entry->state = std::make_shared<ThreadObject>();
        entry->scheduled = scheduling::Scheduled();
        Scheduler& s = TheScheduler();
        std::lock_guard lock(s.mutex);
        s.threads.reserve(s.threads.size() + 1);
        HANDLE handle = InsertHandle(entry->state);
        if (handle == nullptr)
            return nullptr;
        entry->handle = handle;
        entry->id = nextThreadId.fetch_add(1, std::memory_order_relaxed);
        host::ResourceLedger::Instance().Acquire(host::ResourceKind::Thread);
        try {
            entry->thread = std::thread(ThreadMain, entry, lpStartAddress, lpParameter);
        } catch (const std::system_error&) {
            host::ResourceLedger::Instance().Release(host::ResourceKind::Thread);
            RemoveHandle(handle);
            return nullptr;
        }
        s.threads.push_back(entry);
        if (lpThreadId != nullptr)
            *lpThreadId = entry->id;
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
    host::DriverCall driverCall(host::FaultPoint::EventCreate);
    if (driverCall.Fails())
        return nullptr;
    try {
        return InsertHandle(std::make_shared<EventObject>(bManualReset != 0, bInitialState != 0));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

extern "C" BOOL SetEvent(HANDLE hEvent)
{
    host::DriverCall driverCall(host::FaultPoint::EventSet);
    auto event = Lookup<EventObject>(hEvent, KernelObject::Kind::Event, "SetEvent");
    if (event == nullptr || driverCall.Fails())
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
    host::DriverCall driverCall(host::FaultPoint::Wait);
    std::shared_ptr<KernelObject> object = LookupHandle(hHandle);
    if (object == nullptr) {
        ReportViolation("WaitForSingleObjectEx: dead or foreign handle");
        return WAIT_FAILED;
    }
    if (driverCall.Fails())
        return WAIT_FAILED;
    if (object->kind == KernelObject::Kind::Thread && dwMilliseconds == INFINITE) {
        auto& thread = static_cast<ThreadObject&>(*object);
        std::lock_guard lock(thread.mutex);
        if (!thread.finished && thread.id == std::this_thread::get_id()) {
            ReportViolation("WaitForSingleObjectEx: a thread waits forever for itself");
            return WAIT_FAILED;
        }
    }
    std::function<bool()> ready;
    std::function<void()> take;
    if (object->kind == KernelObject::Kind::Event) {
        auto& event = static_cast<EventObject&>(*object);
        ready = [&event] { return event.signaled; };
        take = [&event] {
            if (!event.manualReset)
                event.signaled = false;
        };
    } else {
        auto& thread = static_cast<ThreadObject&>(*object);
        ready = [&thread] { return thread.finished; };
        take = [] {};
    }
    if (!scheduling::Scheduled())
        return WaitOn(*object, dwMilliseconds, ready, take);
    const auto lockedReady = [&] {
        std::lock_guard lock(object->mutex);
        return ready();
    };
    const auto tryTake = [&] {
        std::lock_guard lock(object->mutex);
        if (!ready())
            return false;
        take();
        return true;
    };
    const LONGLONG ticks = dwMilliseconds == INFINITE ? -1 : static_cast<LONGLONG>(dwMilliseconds) * kTicksPerMillisecond;
    switch (scheduling::Wait(tryTake, lockedReady, ticks)) {
    case scheduling::WaitResult::Satisfied:
        return WAIT_OBJECT_0;
    case scheduling::WaitResult::TimedOut:
        return WAIT_TIMEOUT;
    case scheduling::WaitResult::Deadlock:
        break;
    }
    ReportViolation("WaitForSingleObjectEx: waits forever for what no driver thread can bring about (deadlock)");
    return WAIT_FAILED;
}

extern "C" BOOL CloseHandle(HANDLE hObject)
{
    if (!RemoveHandle(hObject)) {
        ReportViolation("CloseHandle: dead or foreign handle");
        return FALSE;
    }
    return TRUE;
}
