# Counters and timers; below the device.
vq_add_library(device_stats
    SOURCES source/StatsCollector.cpp
    PRIVATE vq::protobuf)

vq_add_test(device_stats_test
    SOURCES tests/StatsCollectorTest.cpp
    LIBS vq::device_stats vq::protobuf)
