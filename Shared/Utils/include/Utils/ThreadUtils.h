#pragma once

#include <signal.h>

#include <string>
#include <string_view>

/// Display name of the calling thread: the one given to it, or the system's, or its numeric identifier when
/// it only has the program's name.
std::string GetThreadName();

/// The name that the calling thread was given, empty when it has none yet; costs nothing, unlike the above.
std::string_view GetGivenThreadName();

/// Names the calling thread; 15 characters are kept. On the main thread this renames the process.
void SetThreadName(std::string_view name);

/// Scheduling of the calling thread.
/// @param policy  0: real-time round robin, one below the highest priority, where the user may do that;
///                threads started later inherit it.
///                Any other value changes nothing.
void SetThreadSchedulerPolicy(int policy);

/// Takes real-time scheduling from the calling thread, which it may have inherited: for threads that do not
/// serve the one that was given it.
void UseDefaultScheduling();
/// Would a thread or process started by this thread inherit real-time scheduling?
bool HasRealTimeScheduling();

/// The calling thread's stack, innermost first, a frame a line.
/// @param skip       frames to leave out; 0 starts with the caller of this function.
/// @param maxFrames  frames to collect before skipping; at most 256 are.
std::string GetStackTrace(int skip, int maxFrames);

/// Blocks every signal for the calling thread while it lives, and restores the mask that was. A thread
/// started meanwhile inherits the blocked mask: its polls and waits are then never interrupted, and the
/// program's own threads keep handling its signals. Destroy it on the thread that made it.
class BlockedSignals {
public:
    BlockedSignals();
    ~BlockedSignals();
    BlockedSignals(BlockedSignals const&) = delete;
    BlockedSignals& operator=(BlockedSignals const&) = delete;

private:
    sigset_t m_previous;
};
