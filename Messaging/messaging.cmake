# Pipes, contexts, typed exchange and events.
vq_add_library(messaging
    SOURCES
        source/AMessage.cpp
        source/AMessageContext.cpp
        source/AMessagePipe.cpp
        source/EventDispatcher.cpp
        source/EventMonitor.cpp
        source/EventQueue.cpp
        source/MessageTypeName.cpp
        source/MessageUtils.cpp
        source/RemoteDeviceHandler.cpp
        source/SocketServerBase.cpp
        source/SocketServerClient.cpp
        source/SocketServerPorts.cpp
        source/SocketServerReply.cpp
        source/SpareBlocks.cpp
        source/ZMQMessage.cpp
        source/ZMQMessageContext.cpp
        source/ZMQMessageManager.cpp
        source/ZMQMessagePipeBase.cpp
        source/ZMQMessagePipeEvents.cpp
        source/ZMQMessagePipeProvider.cpp
        source/ZMQMessagePipeProviderAddresses.cpp
        source/ZMQMessagePipeRequestReply.cpp
    PUBLIC vq::message_address vq::protobuf PkgConfig::ZMQ
    PRIVATE vq::device_bridge vq::logging vq::platform vq::proto_utils vq::registry Threads::Threads)

vq_add_test(messaging_test
    SOURCES
        tests/EventsTest.cpp
        tests/PipeFramesTest.cpp
        tests/PipeProviderTest.cpp
        tests/TypedExchangeTest.cpp
    LIBS vq::messaging vq::registry vq::logging vq::raw_wire)
