# What processes share by name: blocks of memory and mutexes.
vq_add_library(primitives
    SOURCES
        source/SharedMemory.cpp
        source/SharedMemoryMmap.cpp
        source/SharedMutex.cpp
    PUBLIC vq::platform
    PRIVATE vq::logging)

vq_add_test(primitives_test
    SOURCES tests/SharedMemoryTest.cpp tests/SharedMutexTest.cpp
    LIBS vq::primitives vq::platform)
