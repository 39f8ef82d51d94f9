#pragma once

#include <unistd.h>

#include <utility>

/// Owns one open file descriptor, or none (-1).
class FileDescriptor {
public:
    FileDescriptor() = default;
    /// Takes ownership.
    explicit FileDescriptor(int descriptor) noexcept : m_descriptor(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        Reset(std::exchange(other.m_descriptor, -1));
        return *this;
    }
    FileDescriptor(FileDescriptor const&) = delete;
    FileDescriptor& operator=(FileDescriptor const&) = delete;
    ~FileDescriptor() { Reset(); }

    int Get() const noexcept { return m_descriptor; }
    bool IsOpen() const noexcept { return m_descriptor >= 0; }

    /// Gives up ownership.
    int Release() noexcept { return std::exchange(m_descriptor, -1); }

    /// Closes what is held and takes the other instead.
    void Reset(int descriptor = -1) noexcept {
        int const old = std::exchange(m_descriptor, descriptor);
        if (old >= 0 && old != descriptor) {
            ::close(old);
        }
    }

private:
    int m_descriptor = -1;
};
