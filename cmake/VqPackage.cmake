# The Debian packages: cpack -G DEB in the build tree of the preset "package"; scripts/package builds and checks them.
set(documents "${CMAKE_INSTALL_DATADIR}/doc/libvq-identity-dev")
install(FILES README.md DESTINATION "${documents}" COMPONENT development)
install(DIRECTORY docs DESTINATION "${documents}" COMPONENT development FILES_MATCHING PATTERN "*.md")
install(FILES Examples/identity_profile.c DESTINATION "${documents}/Examples" COMPONENT development)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_CONTACT "The developers of vq_identity <vq_identity@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_OUTPUT_FILE_PREFIX packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libvq-identity1)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "identity calls of a headset platform on a desktop
The C library libvq_identity.so.1, which answers the calls by devices of this machine.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvq-identity-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "development files of libvq_identity
Headers, files for CMake and pkg-config, and an example.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vq-identity-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
set(CPACK_COMPONENT_TOOLS_DEPENDS library)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "server and sample devices for libvq_identity
The server vdserver, the sample devices mock_identity_device, sample_producer and sample_observer, and RIGCTL,
which shows and steers them.")

foreach(component LIBRARY DEVELOPMENT TOOLS)
    string(TOLOWER ${component} lower)
    install(FILES cmake/copyright DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${component}_PACKAGE_NAME}"
            COMPONENT ${lower})
endforeach()
include(CPack)
