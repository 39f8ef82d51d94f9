#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <future>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ApplicationThreads.h"
#include "Logging/Log.h"
#include "SparseDevice/SparseDeviceApplication.h"
#include "Utils/OSUtils.h"
#include "Utils/ThreadUtils.h"

// What ends the program: signals, the deadman thread and the commands on standard input; and the process-wide
// list of applications that these reach.

namespace {

struct ApplicationList {
    std::mutex mutex;
    std::vector<SparseDeviceApplication*> applications;
};

/// Never destroyed: a signal may come as late as it likes.
ApplicationList& List() {
    static ApplicationList* const list = new ApplicationList;
    return *list;
}

/// The signal handler takes the lock too: a thread that holds it must not be interrupted by one.
class ListLock {
public:
    ListLock() : m_lock(List().mutex) {}

private:
    BlockedSignals m_signals;
    std::lock_guard<std::mutex> m_lock;
};

/// The signal that ended the program, until it has been logged. The log allocates and locks: the handler
/// could have interrupted either, so the main loop logs.
std::atomic<int> s_signal{0};

constexpr std::chrono::milliseconds kTerminatorNap{100};
constexpr std::chrono::milliseconds kCleanExitNap{10};
constexpr std::chrono::seconds kCleanExitTime{1};
constexpr std::chrono::seconds kLastGrace{1};
constexpr std::chrono::seconds kLastWords{1};

/// Logs from a thread of its own and waits for it a moment only: what hangs may be the log itself, behind a
/// reader of our output who does not read.
void SayLast(std::string name) {
    auto said = std::make_shared<std::promise<void>>();
    std::future<void> const done = said->get_future();
    std::thread([said, name = std::move(name)] {
        LOG_W("%s: device application did not shut down cleanly!", name.c_str());
        said->set_value();
    }).detach();
    done.wait_for(kLastWords);
}

}  // namespace

void SparseDeviceApplication::EnterList() {
    ListLock const lock;
    List().applications.push_back(this);
}

void SparseDeviceApplication::LeaveList() {
    ListLock const lock;
    std::erase(List().applications, this);
}

void SparseDeviceApplication::RequestAllExit() {
    ListLock const lock;
    for (SparseDeviceApplication* const application : List().applications) {
        application->RequestExit();
    }
}

void SparseDeviceApplication::OnSignal(int number) {
    s_signal = number;  // before the main loop may look for it
    RequestAllExit();
    if (number == SIGABRT) {
        // Nobody gets to say it later.
        AnnounceSignal();
    }
}

void SparseDeviceApplication::AnnounceSignal() {
    if (int const number = s_signal.exchange(0); number != 0) {
        SetThreadName("Exitable thread");
        LOG_I("exiting from signal %d", number);
    }
}

void SparseDeviceApplication::HookSignals() {
    List();
    struct sigaction action = {};
    action.sa_handler = &SparseDeviceApplication::OnSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
    sigemptyset(&action.sa_mask);
    for (int const number : {SIGINT, SIGABRT, SIGTERM}) {
        sigaction(number, &action, nullptr);
    }
    if (m_useTerminator && !m_terminatorThread.joinable()) {
        BlockedSignals const blocked;
        m_terminatorThread = std::thread(&SparseDeviceApplication::Terminator, m_flags,
                                         m_manifestProcessor.GetAppData().applicationName);
    }
}

void SparseDeviceApplication::Terminator(std::shared_ptr<ExitFlags> const& flags, std::string const& name) {
    using std::chrono::steady_clock;
    while (!flags->requested) {
        std::this_thread::sleep_for(kTerminatorNap);
    }
    for (auto const end = steady_clock::now() + kCleanExitTime; steady_clock::now() < end;) {
        if (flags->cleanExit) {
            return;
        }
        std::this_thread::sleep_for(kCleanExitNap);
    }
    std::this_thread::sleep_for(kLastGrace);
    SayLast(name);
    std::_Exit(1);
}

void SparseDeviceApplication::StartInputThread() {
    if (!IsStdinAccessible()) {
        return;
    }
    m_inputGate->application = this;
    BlockedSignals const blocked;
    m_inputThread = std::thread(&SparseDeviceApplication::ProcessInputThread, m_inputGate, m_flags);
}

bool SparseDeviceApplication::OnInputThreadStart() {
    return true;
}

void SparseDeviceApplication::ProcessInputThread(std::shared_ptr<InputGate> const& gate,
                                                 std::shared_ptr<ExitFlags> const& flags) {
    auto const withApplication = [&gate](auto const& operation) {
        std::lock_guard const lock(gate->mutex);
        return gate->application == nullptr || operation(*gate->application);
    };
    if (!withApplication(
            [](SparseDeviceApplication& application) { return application.OnInputThreadStart(); })) {
        LOG_E("Failed to handle start of input thread");
        RequestAllExit();
    }
    while (!flags->requested && !std::cin.fail()) {
        std::cout << "Enter Command (type help for command list): " << std::flush;
        std::string line;
        std::getline(std::cin, line);
        if (!withApplication([&line](SparseDeviceApplication& application) {
                return application.ProcessInputCommand(line);
            })) {
            LOG_E("Failed to process input thread, invalid sparse device input command");
        }
    }
    LOG_V("Terminating process input thread");
}

bool SparseDeviceApplication::ProcessInputCommand(std::string const& line) {
    if (line.empty()) {
        std::cout << std::endl;
        return true;
    }
    if (line == "help" || line == "h") {
        PrintInputCommandsList();
        return true;
    }
    if (line == "quit" || line == "q") {
        RequestAllExit();
        return true;
    }
    return false;
}

void SparseDeviceApplication::PrintInputCommandsList() {
    std::cout << "\n"
                 "Sparse Device Input Commands:\n"
                 "h | help - this screen\n"
                 "q | quit - shuts the device down and unregisters it from the VDS\n"
              << std::flush;
}
