vq_add_library(manifest
    SOURCES source/ManifestProcessor.cpp source/ManifestDatas.cpp
    PUBLIC vq::device_data_types PkgConfig::JSONCPP
    PRIVATE vq::json vq::logging vq::text)

vq_add_test(manifest_test
    SOURCES tests/ManifestProcessorTest.cpp
    LIBS vq::manifest vq::text vq::log_capture)
if(VQ_BUILD_TESTS)
    target_compile_definitions(manifest_test PRIVATE VQ_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
endif()
