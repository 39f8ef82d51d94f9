# Paths as text and string helpers: below the log, which uses them.
vq_add_library(text SOURCES source/PathText.cpp source/TextUtils.cpp)

vq_add_test(text_test SOURCES tests/TextTest.cpp LIBS vq::text)
