// mock_identity_device: a stand-alone provider of the identity feature, for desktops and tests.

#include "DeviceProgram/DeviceProgram.h"
#include "MockIdentityDevice.h"

int main(int argc, char** argv) {
    return vq::DeviceProgramOf<vq::mock::MockIdentityDevice>("Sample provider of the identity feature",
                                                             "MockIdentityDevice.json")
        .Main(argc, argv);
}
