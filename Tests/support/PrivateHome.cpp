#include "TestSupport/PrivateHome.h"

#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "TestSupport/TestHome.h"

namespace vq::test {

namespace {

std::string g_home;

void TakePrivateSharedMemory() {
    // Without the privilege the tests share /dev/shm: they still pass, unless two of them hurt the semaphore.
    if (::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0) {
        if (::mount("tmpfs", "/dev/shm", "tmpfs", 0, nullptr) != 0) {
            std::perror("mount of a private /dev/shm");
        }
    }
}

/// Nothing of the caller's surroundings reaches what runs here.
void ClearEnvironment() {
    for (char const* name :
         {"VQ_VDS_ADDRESS", "VQ_VDS_NAME", "VQ_SERIAL", "VQ_DEBUG_VDS", "VQ_REMOTE_LOGFILE", "VDS_TESTS_DIR",
          "VDS_TEST_DIR", "VQSDK", "VQ_VDS_DATA", "VQ_VDS_TEST"}) {
        ::unsetenv(name);
    }
    ::setenv("VQLOG_COLOR", "0", 1);
}

}  // namespace

std::string const& HomeDirectory() {
    return g_home;
}

PrivateHome::PrivateHome() {
    TakePrivateSharedMemory();
    // A death test starts its binary again: the child dies without cleaning up, so it shares our directory.
    if (char const* parent = ::getenv("VQ_TEST_PARENT_HOME"); parent != nullptr) {
        g_home = parent;
        m_owned = false;
        return;
    }
    char path[] = "/tmp/vqXXXXXX";
    if (::mkdtemp(path) == nullptr) {
        std::perror("mkdtemp");
        ::_exit(1);
    }
    g_home = std::string(path) + "/";
    ::setenv("HOME", path, 1);
    ::setenv("VQ_TEST_PARENT_HOME", g_home.c_str(), 1);
    ClearEnvironment();
}

PrivateHome::~PrivateHome() {
    if (m_owned) {
        std::error_code ignored;
        std::filesystem::remove_all(g_home, ignored);
    }
}

}  // namespace vq::test
