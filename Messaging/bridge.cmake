# The tool that reaches headsets, as a command line.
vq_add_library(device_bridge
    SOURCES source/VqdbAccessor.cpp source/VqdbOutput.cpp source/VqdbPorts.cpp
    PRIVATE vq::json vq::process vq::platform vq::logging Threads::Threads)
