vq_add_library(json
    SOURCES source/JsonUtils.cpp source/JsonIncludes.cpp source/JsonFields.cpp
    PUBLIC PkgConfig::JSONCPP
    PRIVATE vq::logging vq::platform)
