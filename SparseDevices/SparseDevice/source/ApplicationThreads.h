#pragma once

#include <atomic>
#include <mutex>

#include "SparseDevice/SparseDeviceApplication.h"

/// The flags that decide when a process ends. Shared, because the threads that read them are detached and may
/// outlive the application.
struct SparseDeviceApplication::ExitFlags {
    std::atomic<bool> requested{false};
    std::atomic<bool> stateChanged{true};
    std::atomic<bool> cleanExit{false};

    void Request() {
        requested = true;
        stateChanged = true;
    }
};

/// The input thread's way to its application. It may sit in a read of standard input for ever, so it is never
/// joined: the application closes the gate instead, and the thread then finds nobody.
struct SparseDeviceApplication::InputGate {
    std::mutex mutex;
    SparseDeviceApplication* application = nullptr;

    void Close() {
        std::lock_guard const lock(mutex);
        application = nullptr;
    }
};
