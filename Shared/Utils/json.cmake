vq_add_library(json
    SOURCES source/JsonUtils.cpp source/JsonIncludes.cpp source/JsonFields.cpp
    PUBLIC PkgConfig::JSONCPP
    PRIVATE vq::logging vq::platform)

vq_add_test(json_test
    SOURCES tests/JsonIncludesTest.cpp tests/JsonFieldsTest.cpp
    LIBS vq::json vq::platform vq::log_capture)
