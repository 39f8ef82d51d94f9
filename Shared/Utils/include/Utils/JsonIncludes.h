#pragma once

#include <json/value.h>

#include <iosfwd>
#include <string>

// The "Includes" of a JSON document: an array of file names, in any object, whose contents are merged into
// that object. No state; any thread.

/// Expands every "Includes" key in the tree of `value`, in place, and removes the keys. Files are sought in
/// the directory of the including document, then in the data root, then in the data root by file name alone.
///
/// A failure doesn't stop the walk, so that all problems are reported at once. One of them is a file that
/// includes itself, directly or through others.
/// @param path       where `value` stands, for messages.
/// @param directory  of the document that `value` belongs to, with a slash at the end.
/// @param errors     receives a line for each problem.
/// @return true only when every step succeeded.
bool ExpandJsonIncludes(std::string const& path, std::string const& directory, Json::Value& value,
                        std::ostream& errors);

/// Merges an included document into the including one: objects member by member, included elements behind
/// existing ones, and an existing scalar wins over whatever is included.
/// @param path      where both stand, for messages.
/// @param existing  the including side, changed in place.
/// @param errors    receives a line for each array that meets an object; those stay as they are.
/// @return true only when every member could be merged.
bool MergeJsonIncludeContent(std::string const& path, Json::Value const& included, Json::Value& existing,
                             std::ostream& errors);
