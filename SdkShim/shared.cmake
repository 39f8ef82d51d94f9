# libvq_identity.so: the runtime is linked in and hidden, the version script names all that is exported.
include(CMakePackageConfigHelpers)

set(version_script "${CMAKE_CURRENT_SOURCE_DIR}/vq_identity.map")

add_library(vq_identity SHARED source/TokenAgent.cpp source/identity/IdentityInterface.cpp)
add_library(vq_identity::vq_identity ALIAS vq_identity)
target_include_directories(vq_identity INTERFACE
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_options(vq_identity PRIVATE ${VQ_WARNINGS})
target_link_libraries(vq_identity PRIVATE vq::identity_shim)
target_link_options(vq_identity PRIVATE "LINKER:--version-script=${version_script}" "LINKER:--no-undefined"
    "LINKER:--exclude-libs,ALL")
set_target_properties(vq_identity PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION 1 LINK_DEPENDS "${version_script}")

install(TARGETS vq_identity EXPORT vq_identity LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT library NAMELINK_COMPONENT development)
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h")

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/vq_identity")
install(EXPORT vq_identity NAMESPACE vq_identity:: FILE vq_identityTargets.cmake DESTINATION "${package_dir}"
    COMPONENT development)
configure_package_config_file(cmake/vq_identityConfig.cmake.in "${CMAKE_CURRENT_BINARY_DIR}/vq_identityConfig.cmake"
    INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/vq_identityConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES
    "${CMAKE_CURRENT_BINARY_DIR}/vq_identityConfig.cmake"
    "${CMAKE_CURRENT_BINARY_DIR}/vq_identityConfigVersion.cmake"
    DESTINATION "${package_dir}" COMPONENT development)

# Relative to the file itself, so that an installation can be moved.
file(RELATIVE_PATH prefix_from_pc "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
configure_file(cmake/vq_identity.pc.in "${CMAKE_CURRENT_BINARY_DIR}/vq_identity.pc" @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/vq_identity.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
    COMPONENT development)
