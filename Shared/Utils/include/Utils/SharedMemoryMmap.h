#pragma once

#include "Utils/FileDescriptor.h"
#include "Utils/SharedMemory.h"

/// A block in a file of the user's temporary directory. Files are made with mode 0644: only processes of the
/// user who made one can write it. The destructor unmaps and closes and leaves the file in place.
class SharedMemoryMmap final : public SharedMemory {
public:
    SharedMemoryMmap() = default;
    /// Opens nothing. See SharedMemoryFactory::MakeRaw for the arguments.
    SharedMemoryMmap(std::string const& name, std::uint64_t size);
    SharedMemoryMmap(SharedMemoryMmap&& other) noexcept = default;
    SharedMemoryMmap& operator=(SharedMemoryMmap&& other) noexcept;
    ~SharedMemoryMmap() override;

    bool Exists() override;
    bool Delete() override;
    bool Open() override;
    bool Create() override;
    bool Resize(std::uint64_t size) override;
    bool Close() override;
    void* Attach(Access access) override;
    bool Detach() override;
    std::uint64_t CopyTo(void* buffer, std::uint64_t size) const override;
    std::uint64_t GetTouchableSize() const override;
    bool Restore() override;

    std::string const& GetPath() const { return m_path; }

private:
    void ReportUnmappable() const;

    std::string m_path;
    FileDescriptor m_file;
};

/// A block that is not there: every operation says false or null.
class SharedMemoryNull final : public SharedMemory {
public:
    SharedMemoryNull(std::string const& name, std::uint64_t size, SharedMemoryType type);

    bool Exists() override { return false; }
    bool Delete() override { return false; }
    bool Open() override { return false; }
    bool Create() override { return false; }
    bool Resize(std::uint64_t) override { return false; }
    bool Close() override { return false; }
    void* Attach(Access) override { return nullptr; }
    bool Detach() override { return false; }
    std::uint64_t CopyTo(void*, std::uint64_t) const override { return 0; }
    std::uint64_t GetTouchableSize() const override { return 0; }
    bool Restore() override { return false; }
};
