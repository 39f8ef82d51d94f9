#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iosfwd>
#include <string>
#include <vector>

#include "Utils/PathText.h"

// Files, directories, the process and its host. Nothing here throws by design: a failure is a false, an empty
// result or the input unchanged, as each entry says. Any thread may call any of them. What is cached (the
// executable's path and name, the search path, the temporary directory) is taken at first use and kept until
// the process ends, so a later change of PATH, HOME or the working directory is not seen.

// ---- paths ----

/// The resolved absolute path. A relative path that does not exist gives working directory, "/" and the path,
/// not normalised; what cannot be resolved otherwise (1024 bytes or more included) comes back unchanged. A
/// slash at the end is kept.
std::string GetFullPath(std::string const& path);

/// `path` as seen from the directory `base`: "../" for each level that `base` must rise until its text occurs
/// in the path, and what follows that occurrence. It is the first occurrence anywhere, not only at the start.
/// Gives the full path when the base never occurs.
std::string GetRelativePathTo(std::string const& path, std::string const& base);

// ---- files and directories ----

/// An entry that is a regular file (links followed).
bool FileExists(std::string const& path);
/// An entry that is a directory (links followed).
bool DirectoryExists(std::string const& path);
/// An entry that is itself a symbolic link.
bool IsSoftLink(std::string const& path);

/// Makes one directory, mode 0777 less the umask. True when something of that name exists afterwards,
/// whatever it is. On failure errno tells why.
bool CreateDirectoryPath(std::string const& path);

/// Every name in the directory but "." and "..", in no order; empty when it cannot be read.
std::vector<std::string> GetDirectoryEntries(std::string const& directory);

bool RenameFile(std::string const& from, std::string const& to);
bool RemoveFile(std::string const& path);
/// Removes an empty directory.
bool RemoveDirectoryPath(std::string const& path);

/// Removes a directory and all in it. Links inside are removed, never followed; a `path` that is a link to a
/// directory is entered; an empty one names nothing.
/// @param errors  gets a line for each entry that could not be removed.
/// @return false when anything is left; true when there was no such directory.
bool RemoveDirectoryTree(std::string const& path, std::ostream& errors);

/// Flushes the stream and sets the length of its file, in bytes.
bool ResizeFile(std::FILE* file, std::int64_t size);

/// fopen, closed in children: the caller closes the stream. Null on failure, with errno.
std::FILE* OpenSharedFile(std::string const& path, char const* mode);

/// Bytes that an unprivileged user may still write on the file system of the path's directory.
/// @param out  0 on failure.
bool GetDiskFreeSpaceFile(std::string const& path, std::uint64_t& out);

/// Takes the exclusive advisory lock of the whole file, against other processes and other opens of it. With a
/// limit it spins: the lock is held for one write, and the limits in use are short.
/// @param limit     seconds::max() waits without limit.
/// @param timedOut  null, or told whether the limit has passed.
bool LockFile(std::FILE* file, std::chrono::seconds limit, bool* timedOut = nullptr);
bool UnlockFile(std::FILE* file);

std::string GetCurrentWorkingDirectory();

// ---- the process and its host ----

/// Full path of the running program; empty when the system does not tell.
std::string GetExecutablePath();
/// Its file name.
std::string GetExecutableName();
/// Its directory, with the slash; "./" when the path is not known.
std::string GetExecutableDirectory();
/// The executable's directory, then the directories of PATH.
std::vector<std::string> GetExecutableSearchPath();

/// A full path is returned untested; another name is searched on the search path for a file that its owner
/// may execute, and returned unchanged when there is none.
std::string ResolveOnPath(std::string const& name);

/// Searches the directories in order for a regular file; a full path is tested by itself.
/// @param executable  the owner must be allowed to execute it; otherwise to read it.
/// @param out         full path of the find; untouched when false is returned.
bool ResolveOnPath(std::vector<std::string> const& directories, std::string const& name, bool executable,
                   std::string& out);

/// The loader's search path, LD_LIBRARY_PATH, without empty entries.
std::vector<std::string> GetSharedLibrarySearchPath();
/// ".so", and the empty text for a library named in full.
std::vector<std::string> GetSharedLibraryExtensions();

/// HOME, otherwise the working directory; with a slash at the end.
std::string GetUserHomeDirectory();

/// The directory for this user's sockets and tables, "$HOME/.config/vqvds/", made when missing. When it
/// cannot be made, standard error is told, and the last directory that exists is returned and not cached. All
/// three end in a slash.
std::string GetUserTempDirectory();

/// Where data files lie, with a slash at the end: VQ_VDS_DATA, "data" beside the executable's directory or
/// one above it, or the relative "data/".
std::string GetDataRootPath();
/// VQ_VDS_TEST with a slash at the end, or the relative "test/".
std::string GetTestDataRootPath();
bool IsTestDataRootPathDefined();

/// The platform's name as peers expect it.
std::string GetOSName();
/// The first two numbers of the kernel's release. False when it does not begin with a digit.
bool GetOSVersion(int& major, int& minor);

/// Text of an errno value.
std::string GetOSErrorText(int code);
/// Error of the last socket call of this thread: the current errno.
int GetSocketError();

/// In bytes.
std::size_t GetPageSize();
/// `size` rounded up to whole pages, in bytes; 0 gives one page.
std::size_t GetNextLargestPageSize(std::size_t size);

/// False when standard input is closed or is the null device.
bool IsStdinAccessible();
