# Typed data streams between devices: factory, producers, observers and their queues.
vq_add_library(channels
    SOURCES
        source/Channel.cpp
        source/ChannelFactory.cpp
        source/ChannelObserver.cpp
        source/ChannelProducer.cpp
        source/ObserverDataQueue.cpp
        source/SharedMemoryData.cpp
    PUBLIC vq::messaging vq::device_data_types vq::logging)

vq_add_test(channels_test
    SOURCES tests/ChannelFactoryTest.cpp tests/ChannelFlowTest.cpp tests/ObserverDataQueueTest.cpp
    LIBS vq::channels vq::messaging vq::device_data_types)
