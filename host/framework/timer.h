// Framework timers. The callback runs on the dispatcher (deterministic: on the
// thread that advances the clock; real time: on the timer thread).
//
// WdfTimerStart: negative due times are relative, positive ones absolute
// (FILETIME against the host clock), 0 means now; returns TRUE when the timer
// was already queued (the new due time replaces the old one). A Period other
// than 0 makes the timer periodic.
// WdfTimerStop with Wait TRUE waits for a running callback, except when called
// from that callback itself (that would deadlock; it then returns at once), and
// also cancels a re-arm that callback made meanwhile: the stop wins.
// Deleting a timer stops it and waits likewise. The parent must be given in the
// attributes (STATUS_INVALID_PARAMETER otherwise).
#pragma once

#include <memory>

#include "host/framework/dispatcher.h"
#include "host/framework/object.h"

namespace host::framework {

class TimerObject final : public Object {
public:
    static constexpr ObjectKind kKind = ObjectKind::Timer;

    explicit TimerObject(const WDF_TIMER_CONFIG& config);

    BOOLEAN Start(LONGLONG dueTime);
    BOOLEAN Stop(bool wait);

protected:
    void OnDeleting() override;

private:
    std::shared_ptr<TimerState> state_;
};

}  // namespace host::framework
