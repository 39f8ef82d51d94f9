#pragma once

#include <stdexcept>
#include <string>

namespace vq::rigctl {

/// Exit statuses of RIGCTL. They are part of its interface: scripts test them.
enum class Status : int {
    Done = 0,
    Refused = 1,      ///< the server or a device refused the request, or something else went wrong
    BadUsage = 2,     ///< the command line is wrong
    NoServer = 3,     ///< there is no server to speak to
    NoAnswer = 4,     ///< the server or a device did not answer within the time limit
    FoundTrouble = 5  ///< `doctor` found something that keeps programs from connecting
};

/// Ends a command with a sentence for the user and an exit status.
class Failure : public std::runtime_error {
public:
    Failure(Status status, std::string const& sentence) : std::runtime_error(sentence), m_status(status) {}
    Status GetStatus() const { return m_status; }

private:
    Status m_status;
};

}  // namespace vq::rigctl
