# The device, the application around it and the commands that every device serves.
vq_add_library(sparse_device
    SOURCES
        source/ASparseDevice.cpp
        source/ASparseDeviceCommandHandler.cpp
        source/ConfigurationCommands.cpp
        source/DevicePipes.cpp
        source/EventSender.cpp
        source/RecordingCommands.cpp
        source/SparseDevice.cpp
        source/SparseDeviceApplication.cpp
        source/SparseDeviceApplicationRun.cpp
        source/SparseDeviceApplicationThreads.cpp
        source/SparseDeviceChannels.cpp
        source/SparseDeviceCommandHandler.cpp
        source/SparseDeviceComms.cpp
        source/SparseDeviceMessages.cpp
        source/SparseDeviceQueries.cpp
        source/SparseDeviceRegistration.cpp
        source/SparseDeviceReports.cpp
        source/SparseDeviceUpdate.cpp
    PUBLIC vq::channels vq::device_data_types vq::device_stats vq::manifest vq::messaging vq::protobuf
           vq::sparse_device_mule_base
    PRIVATE vq::file_logging vq::logging vq::platform vq::registry Threads::Threads)

if(VQ_BUILD_TESTS)
    vq_add_test(sparse_device_test
        SOURCES tests/ApplicationTest.cpp tests/DeviceCommandTest.cpp tests/DeviceLifecycleTest.cpp
                tests/DeviceServerTest.cpp
        LIBS vq::sparse_device vq::fake_server vq::log_capture vq::raw_wire Threads::Threads)
endif()
