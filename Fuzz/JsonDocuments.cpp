// JSON documents, and others included in them and merged.
//
// The input is the including document up to a NUL, and the included one.

#include <filesystem>
#include <fstream>
#include <sstream>

#include "FuzzTarget.h"
#include "QuietLog.h"
#include "Utils/JsonIncludes.h"
#include "Utils/JsonUtils.h"

namespace {

/// A folder with one file, which goes with the process.
class Folder {
public:
    Folder() {
        std::string name = "/tmp/vqfuzzXXXXXX";
        FUZZ_CHECK(::mkdtemp(name.data()) != nullptr);
        m_path = name + "/";
    }
    ~Folder() { std::filesystem::remove_all(m_path); }
    Folder(Folder const&) = delete;
    Folder& operator=(Folder const&) = delete;

    std::string const& Path() const { return m_path; }
    void Write(std::string_view text) const { std::ofstream(m_path + "a.json") << text; }

private:
    std::string m_path;
};

/// Every file that a document names becomes ours: the rest of the disk is none of the fuzzer's business.
void NameOurFile(Json::Value& value) {
    if (value.isObject() && value.isMember("Includes") && value["Includes"].isArray()) {
        for (Json::Value& name : value["Includes"]) {
            name = name.isString() ? Json::Value("a.json") : name;
        }
    }
    if (value.isObject() || value.isArray()) {
        for (Json::Value& each : value) {
            NameOurFile(each);
        }
    }
}

}  // namespace

void TryInput(std::string_view input) {
    static Folder const folder;
    KeepLogQuiet();
    std::string_view const second = input.substr(std::min(input.size(), input.find('\0')));
    std::string_view const included = second.substr(std::min<std::size_t>(second.size(), 1));
    Json::Value document;
    Json::Value other;
    std::string errors;
    if (!ParseJson(input.substr(0, input.size() - second.size()), document, errors)) {
        FUZZ_CHECK(!errors.empty());
        return;
    }
    // The files that it includes would be any of the disk.
    if (included.find("ncludes") != std::string_view::npos || included.find('\\') != std::string_view::npos) {
        return;
    }
    std::ostringstream problems;
    if (ParseJson(included, other, errors)) {
        Json::Value merged = document;
        bool const good = MergeJsonIncludeContent("document", other, merged, problems);
        FUZZ_CHECK(good || merged.type() == document.type());
        bool const isScalar = !document.isNull() && !document.isObject() && !document.isArray();
        FUZZ_CHECK(!isScalar || merged == document);
    }
    folder.Write(included);
    NameOurFile(document);
    bool const good = ExpandJsonIncludes("document", folder.Path(), document, problems);
    FUZZ_CHECK(good || !problems.str().empty());
    FUZZ_CHECK(!document.isObject() || !document.isMember("Includes"));
}
