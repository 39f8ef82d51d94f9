#pragma once

#include <cstdarg>
#include <cstddef>

/// Formats what nearly all log statements use, without the C library's detours: %s, %c, %d, %i, %u, %x and
/// %%, the numbers also with l, ll and z; no flags, width or precision. The text is the one that vsnprintf
/// gives, but without an end mark.
/// @param out        room for `size` characters.
/// @param arguments  copied; the caller's list is untouched.
/// @return the text's length; negative, with `out` unspecified, when the format holds anything else or there
///         is not enough room.
std::ptrdiff_t QuickFormat(char* out, std::size_t size, char const* format, std::va_list arguments);
