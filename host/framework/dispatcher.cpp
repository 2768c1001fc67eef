#include "host/framework/dispatcher.h"
#include "host/common/fault_injection.h"

#include <limits>
#include <new>

#include "host/framework/violations.h"

namespace host::framework {

// Queued work is the host's (it completes requests); what it calls back in the
// driver opens its own DriverCodeScope.
static void RunHostWork(const Dispatcher::Work& work)
{
    HostCodeScope hostCode;
    work();
}
namespace {

// Depth of RunPending on this thread: a callback that reaches RunPending again
// must not run other callbacks inside itself.
thread_local int runPendingDepth = 0;

struct DepthGuard {
    DepthGuard() { ++runPendingDepth; }
    ~DepthGuard() { --runPendingDepth; }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;
};

}  // namespace

Dispatcher::~Dispatcher()
{
    Stop();
}

void Dispatcher::Start(HostClock& clock)
{
    Stop();
    std::lock_guard lock(mutex_);
    clock_ = &clock;
    mode_ = clock.Mode();
    if (mode_ == ClockMode::RealTime) {
        ioThread_ = std::thread([this] { IoThreadMain(); });
        ioThreadId_ = ioThread_.get_id();
        timerThread_ = std::thread([this] { TimerThreadMain(); });
    }
}

void Dispatcher::Stop()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (ioThread_.joinable())
        ioThread_.join();
    if (timerThread_.joinable())
        timerThread_.join();
    std::lock_guard lock(mutex_);
    for (auto& [key, timer] : timers_)
        timer->queued = false;
    timers_.clear();
    work_.clear();
    ioThreadId_ = {};
    stopping_ = false;
}

void Dispatcher::Post(const void* tag, Work work)
{
    {
        std::lock_guard lock(mutex_);
        try {
            work_.push_back(Item{tag, std::move(work)});
        } catch (const std::bad_alloc&) {
            ReportViolation("framework: out of memory queuing a completion; it is lost");
            return;
        }
    }
    changed_.notify_all();
}

bool Dispatcher::OnIoThread() const
{
    std::lock_guard lock(mutex_);
    return ioThreadId_ == std::this_thread::get_id();
}

void Dispatcher::RunPending()
{
    if (runPendingDepth > 0)
        return;
    if (mode_ == ClockMode::RealTime) {
        std::unique_lock lock(mutex_);
        if (ioThreadId_ == std::this_thread::get_id())
            return;
        changed_.wait(lock, [this] { return stopping_ || (work_.empty() && workRunning_ == 0); });
        return;
    }
    RunDue();
}

bool Dispatcher::RunDue()
{
    DepthGuard depth;
    // Time stands still in here: a timer that keeps re-arming itself for "now"
    // would never let go. Far more firings than any device has timers is that bug.
    constexpr int kMostFiringsAtOneInstant = 100'000;
    int firings = 0;
    std::unique_lock lock(mutex_);
    for (;;) {
        if (!work_.empty()) {
            Item item = std::move(work_.front());
            work_.pop_front();
            lock.unlock();
            RunHostWork(item.work);
            lock.lock();
            continue;
        }
        if (!timers_.empty() && timers_.begin()->first.first <= clock_->Now()) {
            if (++firings > kMostFiringsAtOneInstant) {
                ReportViolation("timers: a timer keeps re-arming itself without time passing; left queued");
                return false;
            }
            FireFirstTimer(lock);
            continue;
        }
        return true;
    }
}

void Dispatcher::RunPendingFor(const void* tag)
{
    DepthGuard depth;
    std::unique_lock lock(mutex_);
    for (;;) {
        auto it = work_.begin();
        while (it != work_.end() && it->tag != tag)
            ++it;
        if (it == work_.end())
            return;
        Item item = std::move(*it);
        work_.erase(it);
        lock.unlock();
        RunHostWork(item.work);
        lock.lock();
    }
}

void Dispatcher::DequeueLocked(TimerState& timer)
{
    if (!timer.queued)
        return;
    timers_.erase(TimerKey{timer.due, timer.sequence});
    timer.queued = false;
}

bool Dispatcher::StartTimer(const std::shared_ptr<TimerState>& timer, LONGLONG due)
{
    {
        std::lock_guard lock(mutex_);
        if (timer->retired)
            return false;
        const bool wasQueued = timer->queued;
        DequeueLocked(*timer);
        timer->due = due;
        timer->sequence = nextSequence_++;
        try {
            timers_.emplace(TimerKey{due, timer->sequence}, timer);
        } catch (const std::bad_alloc&) {
            ReportViolation("WdfTimerStart: out of memory; the timer is not queued");
            return wasQueued;
        }
        timer->queued = true;
        if (wasQueued)
            return true;
    }
    changed_.notify_all();
    return false;
}

bool Dispatcher::StopTimer(const std::shared_ptr<TimerState>& timer, bool wait)
{
    std::unique_lock lock(mutex_);
    const bool wasQueued = timer->queued;
    DequeueLocked(*timer);
    if (wait && timer->running && timer->runningThread != std::this_thread::get_id()) {
        changed_.wait(lock, [&] { return !timer->running; });
        DequeueLocked(*timer);
    }
    return wasQueued;
}

void Dispatcher::RetireTimer(const std::shared_ptr<TimerState>& timer)
{
    std::unique_lock lock(mutex_);
    timer->retired = true;
    DequeueLocked(*timer);
    if (timer->running && timer->runningThread != std::this_thread::get_id())
        changed_.wait(lock, [&] { return !timer->running; });
}

void Dispatcher::FireFirstTimer(std::unique_lock<std::mutex>& lock)
{
    auto first = timers_.begin();
    std::shared_ptr<TimerState> timer = std::move(first->second);
    timers_.erase(first);
    timer->queued = false;
    timer->running = true;
    timer->runningThread = std::this_thread::get_id();
    const LONGLONG firedDue = timer->due;
    lock.unlock();
    {
        DriverCodeScope driverCode;
        timer->callback(timer->handle);
    }
    lock.lock();
    timer->running = false;
    timer->runningThread = {};
    if (timer->periodTicks > 0 && !timer->queued && !timer->retired) {
        timer->due = firedDue + timer->periodTicks;
        timer->sequence = nextSequence_++;
        try {
            timers_.emplace(TimerKey{timer->due, timer->sequence}, timer);
            timer->queued = true;
        } catch (const std::bad_alloc&) {
            ReportViolation("framework: out of memory re-queuing a periodic timer");
        }
    }
    changed_.notify_all();
}

void Dispatcher::Advance(LONGLONG ticks)
{
    if (ticks <= 0)
        return;
    if (mode_ == ClockMode::RealTime) {
        constexpr LONGLONG kDay = 24LL * 3600 * 10'000'000;
        std::this_thread::sleep_for(std::chrono::microseconds((ticks < kDay ? ticks : kDay) / 10));
        return;
    }
    const LONGLONG now = clock_->Now();
    const LONGLONG target = ticks > std::numeric_limits<LONGLONG>::max() - now ? std::numeric_limits<LONGLONG>::max()
                                                                                : now + ticks;
    if (runPendingDepth > 0) {
        // Inside a callback: time moves, the due timers fire after it returns.
        clock_->AdvanceTo(target);
        return;
    }
    for (;;) {
        if (!RunDue())
            break;
        LONGLONG nextDue = 0;
        {
            std::lock_guard lock(mutex_);
            if (timers_.empty() || timers_.begin()->first.first > target)
                break;
            nextDue = timers_.begin()->first.first;
        }
        clock_->AdvanceTo(nextDue);
    }
    clock_->AdvanceTo(target);
    RunDue();
}

void Dispatcher::IoThreadMain()
{
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (work_.empty()) {
            changed_.wait(lock);
            continue;
        }
        Item item = std::move(work_.front());
        work_.pop_front();
        ++workRunning_;
        lock.unlock();
        RunHostWork(item.work);
        item.work = nullptr;  // release what the work holds before reporting idle
        lock.lock();
        --workRunning_;
        changed_.notify_all();
    }
}

void Dispatcher::TimerThreadMain()
{
    DepthGuard depth;  // RunPending from a timer callback must not wait for itself
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (timers_.empty()) {
            changed_.wait(lock);
            continue;
        }
        const LONGLONG due = timers_.begin()->first.first;
        if (due <= clock_->Now()) {
            FireFirstTimer(lock);
            continue;
        }
        changed_.wait_until(lock, clock_->SteadyAt(due));
    }
}

}  // namespace host::framework
