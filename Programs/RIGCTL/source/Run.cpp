#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <thread>

#include "Commands.h"
#include "ServerProgram.h"
#include "Utils/OSUtils.h"

// A program in surroundings of its own: home, server and identity provider, gone when it ends.

namespace vq::rigctl {

namespace {

constexpr std::chrono::seconds kStartLimit{15};
constexpr std::chrono::milliseconds kLook{20};

/// Signals that would end us come out of a descriptor as long as the object lives.
class Interrupts {
public:
    Interrupts() {
        sigset_t signals;
        ::sigemptyset(&signals);
        for (int const number : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
            ::sigaddset(&signals, number);
        }
        ::pthread_sigmask(SIG_BLOCK, &signals, &m_former);
        m_descriptor.Reset(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    }
    Interrupts(Interrupts const&) = delete;
    Interrupts& operator=(Interrupts const&) = delete;
    ~Interrupts() { ::pthread_sigmask(SIG_SETMASK, &m_former, nullptr); }

    int Descriptor() const { return m_descriptor.Get(); }
    /// What programs of ours begin with.
    sigset_t const& FormerMask() const { return m_former; }

    /// Passes on what came to us alone; what the terminal sends goes to its whole foreground.
    void PassOn(ChildProgram const& program) const {
        signalfd_siginfo info;
        while (::read(m_descriptor.Get(), &info, sizeof info) == sizeof info) {
            if (info.ssi_code != SI_KERNEL) {
                program.Signal(static_cast<int>(info.ssi_signo));
            }
        }
    }
    void ThrowIfAny() const {
        signalfd_siginfo info;
        if (::read(m_descriptor.Get(), &info, sizeof info) == sizeof info) {
            throw Failure(static_cast<Status>(128 + info.ssi_signo), "Interrupted before the program began.");
        }
    }

private:
    sigset_t m_former;
    FileDescriptor m_descriptor;
};

/// A directory that is this process's home, and goes with the object.
class PrivateHome {
public:
    PrivateHome() {
        char path[] = "/tmp/rigctl-XXXXXX";
        if (::mkdtemp(path) == nullptr) {
            throw Failure(Status::Refused, "Cannot make a directory in /tmp: " + GetOSErrorText(errno) + ".");
        }
        m_path = path;
        ::setenv("HOME", path, 1);
        ::setenv("VQ_VDS_ADDRESS", Address().c_str(), 1);
        ::unsetenv("VQ_VDS_NAME");
    }
    PrivateHome(PrivateHome const&) = delete;
    PrivateHome& operator=(PrivateHome const&) = delete;
    ~PrivateHome() {
        std::error_code error;
        std::filesystem::remove_all(m_path, error);
        if (error) {
            std::fprintf(stderr, "Cannot remove %s: %s\n", m_path.c_str(), error.message().c_str());
        }
    }
    std::string Address() const { return "IPC:" + m_path + "/vds"; }

private:
    std::string m_path;
};

void AwaitProvider(Session& session, ChildProgram& provider, Interrupts const& interrupts) {
    auto const serves = [&session] {
        Json::Value const mappings = session.Ask("vq.vds.GetChannelMappings")["mappings"];
        for (Json::Value const infos = session.Ask("vq.vds.GetDeviceInfos")["infos"];
             Json::Value const& info : infos) {
            if (!mappings.empty() && info["name"] == mappings[0]["device"] && info["flag_7"].asBool()) {
                return true;
            }
        }
        return false;
    };
    while (!serves()) {
        interrupts.ThrowIfAny();
        if (provider.Status() || Clock::now() > session.Deadline()) {
            throw Failure(Status::NoAnswer,
                          "The identity provider did not start: run 'mock_identity_device' to see why.");
        }
        std::this_thread::sleep_for(kLook);
    }
}

int Follow(ChildProgram& program, Interrupts const& interrupts) {
    while (!program.Status()) {
        pollfd waiting[] = {{.fd = program.Descriptor(), .events = POLLIN, .revents = 0},
                            {.fd = interrupts.Descriptor(), .events = POLLIN, .revents = 0}};
        ::poll(waiting, 2, program.Descriptor() < 0 ? static_cast<int>(kLook.count()) : -1);
        interrupts.PassOn(program);
    }
    return *program.Status();
}

}  // namespace

Status RunProgram(CommonOptions options, Texts const& command) {
    Interrupts const interrupts;
    PrivateHome const home;
    options.address = home.Address();
    options.name.clear();
    Session session(options);
    session.ExtendTimeLimit(kStartLimit);
    ChildProgram::Options helper;
    helper.bond = ChildProgram::Bond::Lifelong;
    helper.background = true;
    helper.mask = &interrupts.FormerMask();
    auto const server =
        StartServerProgram(home.Address(), "rigctl-run", helper, session.Deadline(), interrupts.Descriptor());
    ChildProgram provider({GetExecutableDirectory() + "mock_identity_device"}, helper);
    AwaitProvider(session, provider, interrupts);
    helper.background = false;
    ChildProgram program(command, helper);
    return static_cast<Status>(Follow(program, interrupts));
}

}  // namespace vq::rigctl
