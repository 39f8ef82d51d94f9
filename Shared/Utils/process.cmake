# Child processes.
vq_add_library(process
    SOURCES source/Process.cpp source/ProcessFactory.cpp source/ProcessHost.cpp source/ProcessList.cpp
        source/ProcessRunState.cpp
    PRIVATE vq::logging vq::platform vq::text Threads::Threads)

vq_add_test(process_test
    SOURCES tests/ProcessTest.cpp
    LIBS vq::process vq::platform vq::log_capture)
