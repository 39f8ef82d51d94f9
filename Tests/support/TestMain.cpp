// The main function of every test binary: each runs in a HOME of its own.

#include <gmock/gmock.h>

#include "TestSupport/PrivateHome.h"

#ifdef NDEBUG
#error "assertions are part of the behaviour: NDEBUG must not be defined"
#endif

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    vq::test::PrivateHome const home;
    return RUN_ALL_TESTS();
}
