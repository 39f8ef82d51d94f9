#pragma once

#include "Utils/JsonUtils.h"

#include <gtest/gtest.h>

#include <string>

/// The document of a text that a test knows to be right.
inline Json::Value Parse(std::string const& text) {
    Json::Value root;
    std::string errors;
    EXPECT_TRUE(ParseJson(text, root, errors)) << errors;
    return root;
}
