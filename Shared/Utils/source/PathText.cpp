#include "Utils/PathText.h"

#include <cstring>

namespace {

/// Where the file name begins: behind the last '/', or behind the last '\' of a path without '/'; 0 with
/// neither.
std::size_t FileNameStart(std::string_view path) {
    if (path.empty()) {
        return 0;
    }
    // Log lines come here: the system's search looks at many characters at once.
    void const* separator = ::memrchr(path.data(), '/', path.size());
    if (separator == nullptr) {
        separator = ::memrchr(path.data(), '\\', path.size());
    }
    return separator == nullptr
               ? 0
               : static_cast<std::size_t>(static_cast<char const*>(separator) - path.data()) + 1;
}

}  // namespace

bool IsFullPath(std::string_view path) {
    return path.starts_with('/');
}

bool EndsInSlash(std::string_view path, char ending) {
    if (ending != '\0') {
        return path.ends_with(ending);
    }
    return path.ends_with('/') || path.ends_with('\\');
}

std::string EnsureDirectoryPath(std::string_view path) {
    std::string result(path);
    if (!EndsInSlash(result)) {
        result += '/';
    }
    return result;
}

std::string GetDirectoryOf(std::string_view path) {
    std::size_t const start = FileNameStart(path);
    return start == 0 ? "./" : std::string(path.substr(0, start));
}

std::string GetFileNameOf(std::string_view path) {
    return std::string(GetFileNameView(path));
}

std::string_view GetFileNameView(std::string_view path) {
    return path.substr(FileNameStart(path));
}

std::string GetBaseNameOf(std::string_view name) {
    return std::string(name.substr(0, name.rfind('.')));
}

std::string EnsureExecutableExtension(std::string_view path, std::string_view extension) {
    std::string result(path);
    if (path.find('.') == std::string_view::npos) {
        result += extension;
    }
    return result;
}
