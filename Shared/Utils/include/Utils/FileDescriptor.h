#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

/// Owns a POSIX file descriptor and closes it. Movable, not copyable; not for use from two threads at once.
class FileDescriptor {
public:
    FileDescriptor() = default;
    /// Takes ownership of `descriptor`; a negative one means none.
    explicit FileDescriptor(int descriptor) : m_descriptor(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : m_descriptor(other.Release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    ~FileDescriptor() { Reset(); }

    int Get() const { return m_descriptor; }
    bool IsOpen() const { return m_descriptor >= 0; }
    explicit operator bool() const { return IsOpen(); }

    /// Gives the descriptor up without closing it; the caller owns it.
    int Release() { return std::exchange(m_descriptor, -1); }

    /// Closes the present descriptor and takes ownership of another, if any. Leaves errno alone.
    void Reset(int descriptor = -1) {
        int const old = std::exchange(m_descriptor, descriptor);
        if (old >= 0 && old != descriptor) {
            int const error = errno;
            ::close(old);
            errno = error;
        }
    }

private:
    int m_descriptor = -1;
};
