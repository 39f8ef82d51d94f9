# Conversions between messages and plain structures, and messages as text. Needs glm, whose values the headers name.
find_package(glm REQUIRED GLOBAL)

vq_add_library(proto_utils
    SOURCES
        source/DumpText.cpp
        source/PlainHand.cpp
        source/ProtoDump.cpp
        source/ProtoStream.cpp
        source/ProtoUtils.cpp
        source/SurfaceFormats.cpp
        source/VariantGeometry.cpp
    PUBLIC vq::protobuf glm::glm
    PRIVATE vq::logging)

vq_add_test(proto_utils_test
    SOURCES
        tests/ProtoDumpTest.cpp
        tests/ProtoPairsTest.cpp
        tests/ProtoUtilsTest.cpp
        tests/VariantGeometryTest.cpp
        tests/vq_types_c99.c
    LIBS vq::proto_utils vq::identity_headers vq::log_capture)
