if(NOT VQ_BUILD_TESTS)
    return()
endif()

add_library(vq_identity_header_c99 OBJECT tests/consumer/main.c)
target_link_libraries(vq_identity_header_c99 PRIVATE vq::identity_headers)
target_compile_options(vq_identity_header_c99 PRIVATE ${VQ_WARNINGS})
set_target_properties(vq_identity_header_c99 PROPERTIES C_STANDARD 99 C_EXTENSIONS OFF)

vq_add_test(identity_interface_test SOURCES tests/InterfaceTest.cpp LIBS vq_identity::vq_identity)
vq_add_test(identity_profile_test SOURCES tests/ProfileCacheTest.cpp LIBS vq::identity_shim)

add_test(NAME IdentityLibrary.ExportsExactlyTheDeclaredFunctions
    COMMAND tests/check_exports.sh $<TARGET_FILE:vq_identity> include/vq_identity.h include/vq_token_agent.h
    WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}")
if(NOT VQ_SANITIZE)
    add_test(NAME IdentityLibrary.IsFoundByAnotherProjectOnceInstalled
        COMMAND tests/check_install.sh "${CMAKE_BINARY_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}/tests/consumer"
        WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}")
endif()

vq_add_test(shim_connection_test
    SOURCES tests/VDSConnectionManagerTest.cpp tests/VerifyServerVersionTest.cpp
    LIBS vq::shim_connection vq::raw_wire vq::log_capture)

vq_add_test(shim_device_test
    SOURCES tests/ShimSparseDeviceTest.cpp
    LIBS vq::identity_shim vq::fake_server vq::log_capture)
