#include "Utils/JsonIncludes.h"

#include "Logging/Log.h"
#include "Utils/JsonUtils.h"
#include "Utils/OSUtils.h"
#include "Utils/PathText.h"

#include <json/writer.h>

#include <ostream>

namespace {

constexpr char const* IncludesKey = "Includes";

/// Appends a step to a path for the life of one recursion, so that the walk keeps a single text.
class PathStep {
public:
    PathStep(std::string& path, std::string_view name) : m_path(path), m_length(path.size()) {
        m_path.append(1, '.').append(name);
    }
    PathStep(PathStep const&) = delete;
    PathStep& operator=(PathStep const&) = delete;
    ~PathStep() { m_path.resize(m_length); }

private:
    std::string& m_path;
    std::size_t const m_length;
};

/// The path of the file that an include names; empty when there is none.
std::string FindJsonDataFile(std::string const& directory, std::string const& name) {
    std::string local = directory + name;
    LOG_V("Trying %s", local.c_str());
    if (FileExists(local)) {
        return local;
    }
    std::string const dataRoot = GetDataRootPath();
    std::string inRoot = dataRoot + name;
    LOG_V("Trying %s", inRoot.c_str());
    if (FileExists(inRoot)) {
        return inRoot;
    }
    LOG_V("Trying %s", inRoot.c_str());
    std::string byFileName = dataRoot + GetFileNameOf(name);
    if (FileExists(byFileName)) {
        return byFileName;
    }
    LOG_V("Failed!");
    return {};
}

bool Expand(std::string& path, std::string const& directory, Json::Value& value, std::ostream& errors);
bool Merge(std::string& path, Json::Value const& included, Json::Value& existing, std::ostream& errors);

/// Merges the file that one element of an "Includes" array names into `value`.
bool IncludeOne(std::string& path, std::string const& directory, Json::Value const& element,
                Json::Value& value, std::ostream& errors) {
    if (!element.isString()) {
        errors << "Expected string for \"Includes\" key in " << path << ", got " << element.toStyledString()
               << '\n';
        return false;
    }
    std::string const name = element.asString();
    std::string const found = FindJsonDataFile(directory, name);
    if (found.empty()) {
        errors << "Could not locate '" << name << "' for \"Includes\" key in " << path << '\n';
        return false;
    }
    Json::Value included;
    if (!GetJsonRootOfFile(found, included)) {
        errors << "Failed to load '" << found << "'\n";
        return false;
    }
    std::string includedPath = path + ".Includes[" + found + "]";
    bool const expanded = Expand(includedPath, GetDirectoryOf(found), included, errors);
    bool const merged = Merge(path, included, value, errors);
    return expanded && merged;
}

/// Takes the "Includes" out of an object and carries them out.
bool ExpandIncludesOf(std::string& path, std::string const& directory, Json::Value& value,
                      std::ostream& errors) {
    Json::Value includes;
    value.removeMember(IncludesKey, &includes);
    if (!includes.isArray()) {
        errors << "Expected string array for \"Includes\" key in " << path << '\n';
        return false;
    }
    bool result = true;
    for (Json::Value const& element : includes) {
        result = IncludeOne(path, directory, element, value, errors) && result;
    }
    return result;
}

bool ExpandObject(std::string& path, std::string const& directory, Json::Value& value, std::ostream& errors) {
    bool result = true;
    for (std::string const& name : value.getMemberNames()) {
        if (name == IncludesKey) {
            result = ExpandIncludesOf(path, directory, value, errors) && result;
            if (!value.isObject()) {
                break;  // an included scalar took the object's place
            }
        } else {
            PathStep const step(path, name);
            result = Expand(path, directory, value[name], errors) && result;
        }
    }
    return result;
}

bool Expand(std::string& path, std::string const& directory, Json::Value& value, std::ostream& errors) {
    if (value.isObject()) {
        return ExpandObject(path, directory, value, errors);
    }
    bool result = true;
    if (value.isArray()) {
        for (Json::ArrayIndex index = 0; index < value.size(); ++index) {
            PathStep const step(path, std::to_string(index));
            result = Expand(path, directory, value[index], errors) && result;
        }
    }
    return result;
}

bool MergeMembers(std::string& path, Json::Value const& included, Json::Value& existing,
                  std::ostream& errors) {
    bool result = true;
    for (auto member = included.begin(); member != included.end(); ++member) {
        std::string const name = member.name();
        PathStep const step(path, name);
        result = Merge(path, *member, existing[name], errors) && result;
    }
    return result;
}

bool Merge(std::string& path, Json::Value const& included, Json::Value& existing, std::ostream& errors) {
    if ((existing.isArray() && included.isObject()) || (existing.isObject() && included.isArray())) {
        errors << path << ": mismatched content (including '" << included << "', existing '" << existing
               << "')\n";
        return false;
    }
    if (existing.isObject() && included.isObject()) {
        return MergeMembers(path, included, existing, errors);
    }
    if (existing.isArray() && included.isArray()) {
        for (Json::Value const& element : included) {
            existing.append(element);
        }
    } else if (existing.isObject() || existing.isArray() || existing.isNull()) {
        existing = included;
    }
    return true;
}

}  // namespace

bool ExpandJsonIncludes(std::string const& path, std::string const& directory, Json::Value& value,
                        std::ostream& errors) {
    std::string walked = path;
    return Expand(walked, directory, value, errors);
}

bool MergeJsonIncludeContent(std::string const& path, Json::Value const& included, Json::Value& existing,
                             std::ostream& errors) {
    std::string walked = path;
    return Merge(walked, included, existing, errors);
}
