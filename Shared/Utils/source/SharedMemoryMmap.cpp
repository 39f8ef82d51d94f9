#include "Utils/SharedMemoryMmap.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <utility>

#include "Logging/Log.h"
#include "Utils/OSUtils.h"

namespace {

constexpr mode_t kFileMode = 0644;

using PrintedSize = unsigned long long;

/// Length of the file in bytes; false when it cannot be queried.
bool QueryLength(int file, std::uint64_t& length) {
    struct stat status {};
    if (::fstat(file, &status) != 0) {
        return false;
    }
    length = static_cast<std::uint64_t>(status.st_size);
    return true;
}

/// Whole pages for this many bytes; the size itself when that is beyond what a file can hold, so that the
/// system refuses it.
std::uint64_t WholePages(std::uint64_t size) {
    constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
    return size > kLargest - GetPageSize() ? size : GetNextLargestPageSize(size);
}

/// Sets the length of the file and takes the space for it, so that a full disk is an error here and no fault
/// when the mapping is written. On failure the file has its old length again.
/// @return 0 or the system's error.
int SetLength(int file, std::uint64_t length) {
    std::uint64_t old = 0;
    bool const known = QueryLength(file, old);
    if (length > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) {
        return EFBIG;
    }
    if (::ftruncate(file, static_cast<off_t>(length)) != 0) {
        return errno;
    }
    int error = 0;
    do {
        error = ::posix_fallocate(file, 0, static_cast<off_t>(length));
    } while (error == EINTR);
    if (error != 0 && known && ::ftruncate(file, static_cast<off_t>(old)) != 0) {
        return errno;
    }
    return error;
}

int ProtectionOf(SharedMemory::Access access) {
    switch (access) {
        case SharedMemory::Access::Read:
            return PROT_READ;
        case SharedMemory::Access::ReadWrite:
            return PROT_READ | PROT_WRITE;
        case SharedMemory::Access::Write:
            return PROT_WRITE;
        case SharedMemory::Access::None:
            break;
    }
    return PROT_NONE;
}

std::string PathOf(std::string const& name) {
    std::string file = name;
    std::replace(file.begin(), file.end(), '/', '_');
    return GetUserTempDirectory() + file;
}

}  // namespace

SharedMemoryMmap::SharedMemoryMmap(std::string const& name, std::uint64_t size)
    : SharedMemory(name, size, SharedMemoryType::FILE), m_path(PathOf(name)) {}

SharedMemoryMmap& SharedMemoryMmap::operator=(SharedMemoryMmap&& other) noexcept {
    SharedMemoryMmap taken(std::move(other));
    Swap(taken);
    std::swap(m_path, taken.m_path);
    std::swap(m_file, taken.m_file);
    return *this;
}

SharedMemoryMmap::~SharedMemoryMmap() {
    Close();
}

bool SharedMemoryMmap::Exists() {
    return FileExists(m_path);
}

bool SharedMemoryMmap::Delete() {
    Close();
    if (::unlink(m_path.c_str()) == 0) {
        return true;
    }
    if (errno != ENOENT) {
        std::string const error = GetOSErrorText(errno);
        LOG_E("Failed to delete shared memory block '%s' at '%s': %s", m_name.c_str(), m_path.c_str(),
              error.c_str());
    }
    return false;
}

bool SharedMemoryMmap::Open() {
    if (m_file.IsOpen()) {
        LOG_E("Failed to open shared memory block '%s', already open", m_name.c_str());
        return true;
    }
    FileDescriptor file(::open(m_path.c_str(), O_RDWR | O_CLOEXEC));
    if (!file.IsOpen()) {
        std::string const error = GetOSErrorText(errno);
        LOG_E("Failed to open shared memory block '%s' at '%s': %s", m_name.c_str(), m_path.c_str(),
              error.c_str());
        return false;
    }
    std::uint64_t length = 0;
    if (!QueryLength(file.Get(), length)) {
        LOG_E("Failed to open shared memory block '%s' at '%s', cannot be queried", m_name.c_str(),
              m_path.c_str());
        return false;
    }
    std::uint64_t const allocated = WholePages(m_size);
    if (length < allocated) {
        if (length != 0 && WholePages(length) != allocated) {
            LOG_E("Shared memory block '%s' at '%s' is smaller than expected: %llu vs %llu)", m_name.c_str(),
                  m_path.c_str(), static_cast<PrintedSize>(length), static_cast<PrintedSize>(allocated));
        } else if (int const error = SetLength(file.Get(), allocated); error != 0) {
            LOG_E("Failed to allocate space for shared memory block '%s' at '%s': %s", m_name.c_str(),
                  m_path.c_str(), GetOSErrorText(error).c_str());
            return false;
        }
    }
    m_allocated = allocated;
    m_file = std::move(file);
    return true;
}

bool SharedMemoryMmap::Create() {
    if (m_file.IsOpen()) {
        LOG_E("Failed to create shared memory block '%s', already open", m_name.c_str());
        return false;
    }
    m_file.Reset(::open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kFileMode));
    if (!m_file.IsOpen()) {
        std::string const error = GetOSErrorText(errno);
        LOG_E("Failed to create shared memory block '%s' at '%s': %s", m_name.c_str(), m_path.c_str(),
              error.c_str());
        return false;
    }
    m_allocated = WholePages(m_size);
    if (int const error = SetLength(m_file.Get(), m_allocated); error != 0) {
        LOG_E("Failed to allocate %llu bytes for shared memory block '%s' at '%s': %s",
              static_cast<PrintedSize>(m_allocated), m_name.c_str(), m_path.c_str(),
              GetOSErrorText(error).c_str());
        return false;
    }
    return true;
}

bool SharedMemoryMmap::Resize(std::uint64_t size) {
    if (!m_file.IsOpen()) {
        LOG_E("Failed to resize shared memory as no such file exists");
        return false;
    }
    if (IsAttached()) {
        LOG_E("Failed to resize mapped memory -- Detach() first");
        return false;
    }
    std::uint64_t const allocated = WholePages(size);
    if (allocated != m_allocated) {
        if (int const error = SetLength(m_file.Get(), allocated); error != 0) {
            LOG_E("Failed to resize to %llu bytes the shared memory block '%s' at '%s': %s",
                  static_cast<PrintedSize>(allocated), m_name.c_str(), m_path.c_str(),
                  GetOSErrorText(error).c_str());
            return false;
        }
        m_allocated = allocated;
    }
    m_size = size;
    return true;
}

bool SharedMemoryMmap::Close() {
    if (!m_file.IsOpen()) {
        return false;
    }
    Detach();
    m_file.Reset();
    m_allocated = 0;
    return true;
}

void* SharedMemoryMmap::Attach(Access access) {
    if (access == Access::None) {
        LOG_E("Passing Access==None to SharedMemory::Attach, returning nullptr");
        return nullptr;
    }
    if (IsAttached()) {
        if (m_access == access) {
            return m_pointer;
        }
        Detach();
    }
    void* const mapped = ::mmap(nullptr, m_size, ProtectionOf(access), MAP_SHARED, m_file.Get(), 0);
    if (mapped == MAP_FAILED) {
        ReportUnmappable();
        m_pointer = nullptr;
        return nullptr;
    }
    m_pointer = mapped;
    m_access = access;
    return m_pointer;
}

bool SharedMemoryMmap::Detach() {
    if (!IsAttached()) {
        return false;
    }
    ::munmap(m_pointer, m_size);
    m_pointer = nullptr;
    m_access = Access::None;
    return true;
}

void SharedMemoryMmap::ReportUnmappable() const {
    std::perror(("Failed to map shared memory " + m_name).c_str());
}

std::uint64_t SharedMemoryMmap::CopyTo(void* buffer, std::uint64_t size) const {
    ssize_t const copied = ::pread(m_file.Get(), buffer, size, 0);
    if (copied < 0) {
        ReportUnmappable();
        return 0;
    }
    return static_cast<std::uint64_t>(copied);
}

std::uint64_t SharedMemoryMmap::GetTouchableSize() const {
    std::uint64_t length = 0;
    if (!IsAttached() || !QueryLength(m_file.Get(), length) || length == 0) {
        return 0;
    }
    return std::min(WholePages(length), WholePages(m_size));
}

bool SharedMemoryMmap::Restore() {
    std::uint64_t length = 0;
    if (!m_file.IsOpen() || !QueryLength(m_file.Get(), length) || length >= m_allocated) {
        return true;
    }
    int const error = SetLength(m_file.Get(), m_allocated);
    if (error != 0) {
        LOG_E("Failed to allocate space for shared memory block '%s' at '%s': %s", m_name.c_str(),
              m_path.c_str(), GetOSErrorText(error).c_str());
    }
    return error == 0;
}
