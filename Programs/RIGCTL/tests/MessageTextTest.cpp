// Messages as people read and write them, against bytes that were cut by hand.

#include <json/writer.h>

#include <algorithm>
#include <iterator>
#include <sstream>

#include "Codec.h"
#include "Failure.h"
#include "Output.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "TestSupport/WireText.h"

namespace vq::rigctl {
namespace {

/// A message type with one field f, number 1, of a type as DescribeFields tells it: "repeated string f". Of
/// an enumeration or a message "enum NAME f" and "message NAME f".
MessageType TypeOf(std::string const& described) {
    static constexpr char const* kNames[] = {"double",  "float", "int64",    "uint64",   "int32",   "fixed64",
                                             "fixed32", "bool",  "string",   "group",    "message", "bytes",
                                             "uint32",  "enum",  "sfixed32", "sfixed64", "sint32",  "sint64"};
    std::istringstream words(described);
    std::string label;
    std::string type;
    Field field;
    field.name = "f";
    field.number = 1;
    words >> label >> type >> field.typeName;
    field.required = label == "required";
    field.repeated = label == "repeated";
    auto const found = std::find(std::begin(kNames), std::end(kNames), type);
    EXPECT_NE(found, std::end(kNames)) << described;
    field.type = static_cast<Field::Type>(1 + (found - std::begin(kNames)));
    return {"t.Message", {field}};
}

/// On one line.
std::string AsText(Json::Value const& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

std::string FromHexadecimal(std::string const& digits) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

TEST(MessageText, FieldsOfEveryTypeBecomeBytesAndTextAgain) {
    for (auto const& [described, argument, bytes, json] : Rows<4>("MessageText", "fields")) {
        MessageType const type = TypeOf(described);
        Json::Value fields(Json::objectValue);
        AddField(type, argument, fields);
        EXPECT_EQ(Encode(type, fields), FromHexadecimal(bytes)) << described << ' ' << argument;
        EXPECT_EQ(AsText(Decode(type, FromHexadecimal(bytes))), json) << described;
        EXPECT_EQ(Encode(type, Decode(type, FromHexadecimal(bytes))), FromHexadecimal(bytes)) << described;
    }
}

TEST(MessageText, FieldsOfOneKindAreNotMixedUp) {
    for (auto const& [type, fields, json] : Rows<3>("MessageText", "messages")) {
        MessageType const* const found = Schema::Instance().FindMessage(type);
        ASSERT_NE(found, nullptr) << type;
        EXPECT_EQ(AsText(Decode(*found, wire::Bytes(fields))), json);
    }
}

TEST(MessageText, WhatOthersSendIsReadOrRefused) {
    for (auto const& [described, bytes, expected] : Rows<3>("MessageText", "received")) {
        std::string result;
        try {
            result = AsText(Decode(TypeOf(described), FromHexadecimal(bytes)));
        } catch (Failure const& failure) {
            result = failure.what();
        }
        EXPECT_EQ(result, expected) << described << ' ' << bytes;
    }
}

TEST(MessageText, WhatDoesNotFitIsRefusedInASentence) {
    for (auto const& [described, argument, sentence] : Rows<3>("MessageText", "misfits")) {
        MessageType const type = TypeOf(described);
        Json::Value fields(Json::objectValue);
        try {
            if (argument != kNone) {
                AddField(type, argument, fields);
            }
            ADD_FAILURE() << argument << " became " << AsText(Decode(type, Encode(type, fields)));
        } catch (Failure const& failure) {
            EXPECT_EQ(failure.what(), sentence) << described;
            EXPECT_EQ(failure.GetStatus(), Status::BadUsage);
        }
    }
}

TEST(MessageText, ColumnsCountCharactersAndAWideCellIsCutBetweenTwo) {
    std::string wide;
    std::string kept;
    for (int i = 0; i < 61; ++i) {
        wide += "\u00e4";
        kept += i < 57 ? "\u00e4" : "";
    }
    std::vector<Json::Value> rows(3);
    rows[0]["name"] = "G\u00fcrtel";
    rows[1]["name"] = "belt";
    rows[2]["name"] = wide;
    for (Json::Value& row : rows) {
        row["id"] = 7;
    }
    auto const padded = [](std::string const& text, std::size_t width) {
        return text + std::string(62 - width, ' ') + "7";
    };
    EXPECT_THAT(Output::Table({{"NAME", "name"}, {"ID", "id"}}, rows),
                ElementsAre("NAME" + std::string(58, ' ') + "ID", padded("G\u00fcrtel", 6), padded("belt", 4),
                            padded(kept + "...", 60)));
}

}  // namespace
}  // namespace vq::rigctl
