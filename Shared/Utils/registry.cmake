# The table of running servers.
vq_add_library(registry
    SOURCES
        source/ServerDescriptor.cpp
        source/ServerRegistry.cpp
        source/ServerSelection.cpp
        source/ServerTable.cpp
    PUBLIC vq::message_address vq::primitives
    PRIVATE vq::logging)

vq_add_test(registry_test
    SOURCES tests/ServerRegistryTest.cpp
    LIBS vq::registry vq::primitives vq::platform)
