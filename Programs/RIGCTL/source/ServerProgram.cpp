#include "ServerProgram.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "Failure.h"
#include "Utils/OSUtils.h"

namespace vq::rigctl {

namespace {

/// True when the server has said that it can be reached; false when it has ended or the wait is over.
bool AwaitReady(int descriptor, int interrupt, Clock::time_point deadline) {
    auto const rest = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd waiting[] = {{.fd = descriptor, .events = POLLIN, .revents = 0},
                        {.fd = interrupt, .events = POLLIN, .revents = 0}};
    char byte = 0;
    return rest.count() > 0 && ::poll(waiting, 2, static_cast<int>(rest.count())) > 0 &&
           waiting[0].revents != 0 && ::read(descriptor, &byte, 1) == 1;
}

}  // namespace

std::unique_ptr<ChildProgram> StartServerProgram(std::string const& address, std::string const& name,
                                                 ChildProgram::Options options, Clock::time_point deadline,
                                                 int interrupt) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw Failure(Status::Refused, "Cannot make a pipe: " + GetOSErrorText(errno) + ".");
    }
    FileDescriptor const reading(ends[0]);
    FileDescriptor writing(ends[1]);
    std::vector<std::string> arguments = {GetExecutableDirectory() + "vdserver", "--address", address,
                                          "--ready-fd", "3"};
    if (!name.empty()) {
        arguments.insert(arguments.end(), {"--name", name});
    }
    options.third = writing.Get();
    auto server = std::make_unique<ChildProgram>(arguments, options);
    writing.Reset();
    if (!AwaitReady(reading.Get(), interrupt, deadline)) {
        server->End(Clock::now());
        throw Failure(Status::NoServer, "The server did not start at " + address +
                                            ": run 'vdserver --address " + address + "' to see why.");
    }
    return server;
}

}  // namespace vq::rigctl
