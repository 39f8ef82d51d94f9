# Names of endpoints; below the server registry, which stores them.
vq_add_library(message_address
    SOURCES
        source/EphemeralPort.cpp
        source/MessageAddress.cpp
        source/TransportProvider.cpp
    PRIVATE vq::logging vq::platform)

vq_add_test(message_address_test
    SOURCES tests/MessageAddressTest.cpp
    LIBS vq::message_address vq::platform)
