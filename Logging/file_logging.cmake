# The file log and the logging options: above the platform library, which itself logs.
vq_add_library(file_logging
    SOURCES source/ConfigureFileLogging.cpp source/FileLogHandler.cpp source/FileLogHandlerFiles.cpp
            source/FileLogHandlerRotation.cpp source/LogFileNames.cpp source/LogParameterCLIProcessor.cpp
            source/LogParameters.cpp source/LoggingOptions.cpp
    PUBLIC vq::logging
    PRIVATE vq::platform Threads::Threads)
# Whatever links this library has the file log: the log core refers to this function weakly, and a weak reference
# takes nothing out of an archive.
target_link_options(vq_file_logging INTERFACE "LINKER:--undefined=vq_create_file_log_handler")

if(VQ_BUILD_TESTS)
    vq_add_program(file_log_writer SOURCES tests/file_log_writer.cpp LIBS vq::file_logging vq::platform)
    vq_add_test(file_logging_test
        SOURCES tests/FileLogProcessesTest.cpp tests/FileLogRotationTest.cpp tests/FileLogTest.cpp
                tests/LoggingOptionsTest.cpp
        LIBS vq::file_logging vq::platform vq::log_capture Threads::Threads
        TIMEOUT 900)
    add_dependencies(file_logging_test file_log_writer)
endif()
