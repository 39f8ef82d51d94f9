# Files, the process and its host, threads.
vq_add_library(platform
    SOURCES source/FileUtils.cpp source/ProcessUtils.cpp source/ThreadUtils.cpp
    PUBLIC vq::text vq::logging
    PRIVATE Threads::Threads)

vq_add_test(platform_test
    SOURCES tests/FileUtilsTest.cpp tests/ProcessUtilsTest.cpp tests/ThreadUtilsTest.cpp
    LIBS vq::platform vq::log_capture Threads::Threads)
