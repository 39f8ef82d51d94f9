# Build rules shared by every target of the project.

include(GNUInstallDirs)
include(GoogleTest)
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(ZMQ REQUIRED IMPORTED_TARGET libzmq)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
pkg_check_modules(PROTOBUF_LITE REQUIRED IMPORTED_TARGET protobuf-lite)
find_program(PROTOC protoc REQUIRED)

set(CMAKE_C_STANDARD 99)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

# The range checks in generated protobuf code are C assertions and part of the behaviour: no build type may
# drop them.
foreach(lang C CXX)
    foreach(type RELEASE RELWITHDEBINFO MINSIZEREL)
        string(REPLACE "-DNDEBUG" "" CMAKE_${lang}_FLAGS_${type} "${CMAKE_${lang}_FLAGS_${type}}")
    endforeach()
endforeach()
add_compile_options(-UNDEBUG)

find_program(CCACHE ccache)
if(CCACHE)
    set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()

set(VQ_SANITIZE "" CACHE STRING "Sanitizers, as for -fsanitize: 'address,undefined' or 'thread'")
if(VQ_SANITIZE)
    add_compile_options(-fsanitize=${VQ_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${VQ_SANITIZE})
endif()

set(VQ_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)

# vq_add_library(NAME [INTERFACE] SOURCES ... PUBLIC targets... PRIVATE targets...)
# Static library vq_NAME (alias vq::NAME) of the current folder. PUBLIC: what its headers include; PRIVATE: what
# only its sources use.
function(vq_add_library name)
    cmake_parse_arguments(ARG "INTERFACE" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
    if(ARG_INTERFACE)
        add_library(vq_${name} INTERFACE)
        target_include_directories(vq_${name} INTERFACE include)
        target_link_libraries(vq_${name} INTERFACE ${ARG_PUBLIC})
    else()
        add_library(vq_${name} STATIC ${ARG_SOURCES})
        target_include_directories(vq_${name} PUBLIC include PRIVATE source)
        target_link_libraries(vq_${name} PUBLIC ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE})
        target_compile_options(vq_${name} PRIVATE ${VQ_WARNINGS})
    endif()
    add_library(vq::${name} ALIAS vq_${name})
endfunction()

# vq_add_program(NAME SOURCES ... LIBS ...): an executable of ours with the project's warnings.
function(vq_add_program name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${name} PRIVATE ${ARG_LIBS})
    target_compile_options(${name} PRIVATE ${VQ_WARNINGS})
endfunction()

# vq_add_test(NAME SOURCES ... LIBS ... [TIMEOUT seconds] [LABELS ...])
# A GoogleTest binary; each case is a ctest entry and a process of its own, in a HOME of its own.
function(vq_add_test name)
    if(NOT VQ_BUILD_TESTS)
        return()
    endif()
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 300)
    endif()
    vq_add_program(${name} SOURCES ${ARG_SOURCES} LIBS ${ARG_LIBS} vq::test_support)
    # The code under test is optimised in its library; optimising the cases would double their build time.
    target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:-O0>)
    # Its tables of cases lie beside its first source.
    list(GET ARG_SOURCES 0 first)
    get_filename_component(folder "${first}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_SOURCE_DIR}")
    get_filename_component(folder "${folder}" DIRECTORY)
    target_compile_definitions(${name} PRIVATE VQ_TEST_FOLDER="${folder}/")
    set(properties TIMEOUT ${ARG_TIMEOUT})
    if(ARG_LABELS)
        list(APPEND properties LABELS "${ARG_LABELS}")
    endif()
    # By number, not by value: the text of a value may hold what a test's name cannot, or an address.
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 NO_PRETTY_VALUES
        PROPERTIES ${properties})
endfunction()

# Where an installation puts the data of the programs.
set(VQ_INSTALL_DATADIR "${CMAKE_INSTALL_DATADIR}/vq_identity/data")
find_package(Python3 COMPONENTS Interpreter)

# vq_install_program(NAME [DATA FILE]): a program that an installation carries, and its man page, made from its --help.
# The data file also goes where the program looks first: beside it in the build tree.
function(vq_install_program name)
    cmake_parse_arguments(ARG "" "DATA" "" ${ARGN})
    if(ARG_DATA)
        get_filename_component(file ${ARG_DATA} NAME)
        configure_file(${ARG_DATA} "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/data/${file}" COPYONLY)
        install(FILES ${ARG_DATA} DESTINATION "${VQ_INSTALL_DATADIR}" COMPONENT tools)
    endif()
    # The system's own prefix is searched as it is.
    if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        file(RELATIVE_PATH libraries_from_bin "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
        set_target_properties(${name} PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries_from_bin}")
    endif()
    install(TARGETS ${name} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tools)

    if(VQ_SANITIZE OR NOT Python3_FOUND)
        return()
    endif()
    set(script "${PROJECT_SOURCE_DIR}/cmake/man_page.py")
    set(environment "${PROJECT_SOURCE_DIR}/docs/environment.md")
    set(page "${CMAKE_BINARY_DIR}/man/${name}.1")
    add_custom_command(OUTPUT "${page}"
        COMMAND ${CMAKE_COMMAND} -E make_directory "${CMAKE_BINARY_DIR}/man"
        COMMAND Python3::Interpreter "${script}" $<TARGET_FILE:${name}> ${PROJECT_VERSION} "${environment}" > "${page}"
        DEPENDS ${name} "${script}" "${environment}" VERBATIM)
    add_custom_target(${name}_page ALL DEPENDS "${page}")
    install(FILES "${page}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT tools)
endfunction()
