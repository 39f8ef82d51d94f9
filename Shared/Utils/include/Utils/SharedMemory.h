#pragma once

#include <cstdint>
#include <memory>
#include <string>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"  // FILE, the C stream, stays visible: this one needs its scope
/// What backs a block.
enum class SharedMemoryType : std::int32_t {
    UNKNOWN = 0,
    FILE = 1,
    ANON = 2,
};
#pragma GCC diagnostic pop

/// The value's name; "??? (number)" for any other value.
std::string to_string(SharedMemoryType type);

/// A named block of memory that unrelated processes share. Not thread-safe: callers serialise access to one
/// object, and nothing but a SharedMutex orders what different processes do to the bytes. A block goes
/// closed, open, attached (mapped) and back; the backing store outlives every process until Delete.
class SharedMemory {
public:
    enum class Access : std::int32_t {
        None = 0,
        Read = 1,
        ReadWrite = 2,
        Write = 3,
    };

    SharedMemory(SharedMemory const&) = delete;
    SharedMemory& operator=(SharedMemory const&) = delete;
    virtual ~SharedMemory() = default;

    /// Whether the block can be opened.
    virtual bool Exists() = 0;
    /// Removes the backing store and closes the block. False without a log line when there is none.
    virtual bool Delete() = 0;
    /// Opens an existing block. True, with an error line, when it is already open.
    virtual bool Open() = 0;
    /// Creates the block, or opens it if it is there; existing bytes stay.
    virtual bool Create() = 0;
    /// Changes the size of an open, detached block.
    /// @param size  new nominal size in bytes.
    virtual bool Resize(std::uint64_t size) = 0;
    /// Gives up the backing store in this process.
    virtual bool Close() = 0;
    /// Maps the nominal size.
    /// @return the first byte, valid until Detach, Close or an Attach with another access; null on failure.
    virtual void* Attach(Access access) = 0;
    virtual bool Detach() = 0;
    bool IsAttached() const { return m_pointer != nullptr; }
    Access GetAccess() const { return m_access; }

    /// Copies from the start of an open block without mapping it, so that a backing store that somebody cuts
    /// meanwhile is a short copy and no fault.
    /// @param buffer  room for `size` bytes; may reach past the nominal size.
    /// @return bytes copied: what the store has, 0 on failure, which is reported as Attach does.
    virtual std::uint64_t CopyTo(void* buffer, std::uint64_t size) const = 0;
    /// How many bytes from the start of the mapping may be touched now: whole pages, and less than what is
    /// mapped when somebody cut the backing store. 0 while detached.
    virtual std::uint64_t GetTouchableSize() const = 0;
    /// Makes the backing store of an open block as long as it was at opening, if somebody cut it since.
    /// @return false, with an error line, when there is no space; a closed block needs none.
    virtual bool Restore() = 0;

    std::string const& GetName() const { return m_name; }
    /// Nominal size in bytes, as asked for: the length of the mapping.
    std::uint64_t GetSize() const { return m_size; }
    /// Bytes of the backing store, a whole number of pages; 0 while not open.
    std::uint64_t GetAllocated() const { return m_allocated; }
    void* GetPointer() const { return m_pointer; }
    SharedMemoryType GetType() const { return m_type; }

protected:
    SharedMemory() = default;
    SharedMemory(std::string name, std::uint64_t size, SharedMemoryType type);
    /// Leaves the other one detached and closed.
    SharedMemory(SharedMemory&& other) noexcept;
    /// Exchanges all fields.
    void Swap(SharedMemory& other) noexcept;

    std::string m_name;
    std::uint64_t m_size = 0;
    std::uint64_t m_allocated = 0;
    void* m_pointer = nullptr;
    Access m_access = Access::None;
    SharedMemoryType m_type = SharedMemoryType::UNKNOWN;
};

/// Makes blocks. Any thread.
class SharedMemoryFactory {
public:
    /// A new, closed block; the caller owns it.
    /// @param name  two names that differ only in slash against underscore are the same block.
    /// @param size  nominal size in bytes.
    /// @param type  every known type is backed by a file here; an unknown value is logged and gives a block
    ///              that refuses everything.
    static SharedMemory* MakeRaw(std::string const& name, std::uint64_t size, SharedMemoryType type);
    static std::shared_ptr<SharedMemory> Make(std::string const& name, std::uint64_t size,
                                              SharedMemoryType type);
    /// Whether blocks asked for as this type can be resized: FILE only.
    static bool CanResize(SharedMemoryType type);
};
