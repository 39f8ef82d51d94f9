// The main function of every test binary: a HOME and, where the kernel lets us, a /dev/shm of its own, so
// that tests run side by side without sharing the registry table, its semaphore or an IPC endpoint.

#include <gmock/gmock.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "TestSupport/TestHome.h"

#ifdef NDEBUG
#error "assertions are part of the behaviour: NDEBUG must not be defined"
#endif

namespace {

std::string g_home;
bool g_ownsHome = true;

void TakePrivateSharedMemory() {
    // Without the privilege the tests share /dev/shm: they still pass, unless two of them hurt the semaphore.
    if (::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0) {
        if (::mount("tmpfs", "/dev/shm", "tmpfs", 0, nullptr) != 0) {
            std::perror("mount of a private /dev/shm");
        }
    }
}

void TakePrivateHome() {
    // A death test starts this binary again: the child dies without cleaning up, so it shares our directory.
    if (char const* parent = ::getenv("VQ_TEST_PARENT_HOME"); parent != nullptr) {
        g_home = parent;
        g_ownsHome = false;
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
    for (char const* name :
         {"VQ_VDS_ADDRESS", "VQ_VDS_NAME", "VQ_SERIAL", "VQ_DEBUG_VDS", "VQ_REMOTE_LOGFILE", "VDS_TESTS_DIR",
          "VDS_TEST_DIR", "VQSDK", "VQ_VDS_DATA", "VQ_VDS_TEST"}) {
        ::unsetenv(name);
    }
    ::setenv("VQLOG_COLOR", "0", 1);
}

}  // namespace

namespace vq::test {
std::string const& HomeDirectory() {
    return g_home;
}
}  // namespace vq::test

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    TakePrivateSharedMemory();
    TakePrivateHome();
    int const result = RUN_ALL_TESTS();
    if (g_ownsHome) {
        std::error_code ignored;
        std::filesystem::remove_all(g_home, ignored);
    }
    return result;
}
