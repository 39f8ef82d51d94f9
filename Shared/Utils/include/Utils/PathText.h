#pragma once

#include <string>
#include <string_view>

// Operations on the text of a path. They never touch the file system, keep no state, and may run on any
// thread. A path is a byte string; its separator is '/'. Those that pick a path apart accept '\' as well.

/// True when the path is not empty and begins with '/'.
bool IsFullPath(std::string_view path);

/// @param ending  zero: true when the last character is '/' or '\'; otherwise true when it is this one.
/// An empty path is false.
bool EndsInSlash(std::string_view path, char ending = '\0');

/// The path with '/' appended unless it ends in '/' or '\'. An empty path gives "/".
std::string EnsureDirectoryPath(std::string_view path);

/// Text up to and including the last '/'; without one, the last '\'; with neither, "./".
std::string GetDirectoryOf(std::string_view path);

/// Text behind the last '/'; without one, behind the last '\'; with neither, the whole path.
std::string GetFileNameOf(std::string_view path);

/// As GetFileNameOf, without a copy: the result points into the argument's text.
std::string_view GetFileNameView(std::string_view path);

/// Text before the last '.'; without a dot the whole text.
std::string GetBaseNameOf(std::string_view name);

/// The path with the extension appended when it holds no '.' anywhere, its directories included.
std::string EnsureExecutableExtension(std::string_view path, std::string_view extension);
