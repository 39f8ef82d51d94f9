#pragma once

#include <string>

namespace vq::test {

/// A HOME and, where the kernel lets us, a /dev/shm of its own for this process and its children, and none of
/// the environment variables that the system reads: so that binaries run side by side without sharing the
/// registry table, its semaphore or an IPC endpoint. One a process, first thing in main. The directory goes
/// with the object.
class PrivateHome {
public:
    PrivateHome();
    ~PrivateHome();
    PrivateHome(PrivateHome const&) = delete;
    PrivateHome& operator=(PrivateHome const&) = delete;

private:
    bool m_owned = true;
};

}  // namespace vq::test
