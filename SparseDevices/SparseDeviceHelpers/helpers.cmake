# What stands between a device and whoever runs it: the thread that owns it, bring-up, commands.
vq_add_library(sparse_device_helpers
    SOURCES source/DeviceEventHandlerTracker.cpp source/UpdateDevices.cpp
    PUBLIC vq::sparse_device vq::messaging vq::protobuf vq::platform vq::logging vq::device_stats)
vq_add_test(sparse_device_helpers_test
    SOURCES tests/RpcCommandTest.cpp tests/SparseDeviceMuleTest.cpp tests/UpdateDevicesTest.cpp
    LIBS vq::sparse_device_helpers vq::fake_server vq::raw_wire vq::log_capture)
