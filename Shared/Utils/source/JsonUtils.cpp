#include "Utils/JsonUtils.h"

#include "Logging/Log.h"
#include "Utils/JsonIncludes.h"
#include "Utils/OSUtils.h"
#include "Utils/PathText.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

/// The files that a thread is reading, each included by the one before it, for as long as it reads them.
class FileUnderWay {
public:
    explicit FileUnderWay(std::string const& path) {
        // With relative includes the text of a path may grow at each turn of a circle.
        std::string file = GetFullPath(path);
        m_includesItself = std::find(t_files.begin(), t_files.end(), file) != t_files.end();
        t_files.push_back(std::move(file));
    }
    FileUnderWay(FileUnderWay const&) = delete;
    FileUnderWay& operator=(FileUnderWay const&) = delete;
    ~FileUnderWay() { t_files.pop_back(); }

    bool IncludesItself() const { return m_includesItself; }

private:
    static thread_local std::vector<std::string> t_files;
    bool m_includesItself = false;
};

thread_local std::vector<std::string> FileUnderWay::t_files;

}  // namespace

bool ParseJson(std::string_view text, Json::Value& root, std::string& errors) {
    bool const collectComments = false;
    try {
        Json::Reader reader;
        if (reader.parse(text.data(), text.data() + text.size(), root, collectComments)) {
            return true;
        }
        errors = reader.getFormattedErrorMessages();
    } catch (Json::Exception const& error) {
        // The reader reports a nesting that is too deep for its stack in this way.
        errors = std::string("* ") + error.what() + "\n";
    }
    return false;
}

Json::Value const* FindJsonMember(Json::Value const& value, std::string_view key) {
    return value.isObject() ? value.find(key.data(), key.data() + key.size()) : nullptr;
}

bool ConvertJsonToText(Json::Value const& value, std::string& out) {
    if (value.isArray() || value.isObject()) {
        return false;
    }
    out = value.asString();
    return true;
}

std::string JsonFileToString(std::string const& path) {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> const file(std::fopen(path.c_str(), "rbe"), std::fclose);
    if (!file) {
        LOG_E("Failed to open %s", path.c_str());
        return {};
    }
    std::string text;
    std::size_t used = 0;
    do {
        text.resize(used + 16 * 1024);
        used += std::fread(text.data() + used, 1, text.size() - used, file.get());
    } while (used == text.size());
    text.resize(used);
    return text;
}

bool GetJsonRootOfString(std::string const& text, Json::Value& root, std::ostream& errors) {
    std::string messages;
    if (!ParseJson(text, root, messages)) {
        errors << messages;
        return false;
    }
    return true;
}

bool GetJsonRootOfFile(std::string const& path, Json::Value& root, std::ostream& errors) {
    FileUnderWay const file(path);
    if (file.IncludesItself()) {
        errors << "'" << path << "' includes itself\n";
        return false;
    }
    std::string const text = JsonFileToString(path);
    if (text.empty() || !GetJsonRootOfString(text, root, errors) ||
        !ExpandJsonIncludes(path, GetDirectoryOf(path), root, errors)) {
        return false;
    }
    VQ_LOG_STREAM(LogLevel::Verbose) << "JSON content from " << path << ":\n" << root;
    return true;
}

bool GetJsonRootOfFile(std::string const& path, Json::Value& root) {
    std::ostringstream errors;
    if (!GetJsonRootOfFile(path, root, errors)) {
        LOG_E("Failed to parse JSON file '%s'\n%s", path.c_str(), errors.str().c_str());
        return false;
    }
    return true;
}
