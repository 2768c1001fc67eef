// Driver threads (CreateThread) are real std::threads in both clock modes;
// waits on them and on events use real time. The host reaps the finished
// ones; a thread still running when the host ends is detached (and shows in
// the leak report as a live thread before that).
#pragma once

namespace host::framework {

// Joins every finished driver thread; with `detachUnfinished`, lets the others go.
void ReapThreads(bool detachUnfinished);
// Waits for every driver thread to end and joins it (tests that closed the handle).
void JoinAllThreads();

}  // namespace host::framework
