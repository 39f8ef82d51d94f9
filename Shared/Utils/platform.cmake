# Files, the process and its host, threads.
vq_add_library(platform
    SOURCES source/FileUtils.cpp source/ProcessUtils.cpp source/ThreadUtils.cpp
    PUBLIC vq::text vq::logging
    PRIVATE Threads::Threads)
