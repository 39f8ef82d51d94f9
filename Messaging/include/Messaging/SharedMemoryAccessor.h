#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "Utils/SharedMemory.h"
#include "Utils/SharedMutex.h"

class AMessagePipeEventSender;
class AMessagePipeRequestReply;
class ISharedBufferProducer;
namespace vq::bd {
class BufferDescriptor;
}
namespace vq::vds {
class PortableSharedMemoryConfiguration;
}

/// The way to a data buffer in shared memory that the server owns: three objects under names that the server
/// gives (the memory, a generation counter, the mutex that guards both), opened but never created or deleted
/// here. Data is touched between Lock and Unlock only; a mapping does not outlive them. Each write ended by
/// the publishing Unlock counts one generation. A portable buffer has a configuration by which its contents
/// can travel to another machine; the server is told of its writes, and readers can wait for a generation.
///
/// Order of a write: mutex locked, memory mapped, data written, generation counted, server told, memory
/// unmapped, mutex unlocked, channel's observers told. The mutex has no owner and does not nest: a process
/// that dies between Lock and Unlock leaves the buffer locked for all until Recover or until it is made anew.
///
/// A buffer that somebody else resized, or made portable or not, is here what it was until Reset(). Timeouts
/// are in milliseconds, milliseconds::max() waits without limit; every `timedOut` may be null.
///
/// Threads: one at a time; the requests go over a pipe of the thread that made it.
class SharedMemoryAccessor {
public:
    /// As the size of a write: up to the end of the buffer.
    static constexpr std::uint64_t kToEnd = std::numeric_limits<std::uint64_t>::max();

    /// Without a server: opens the objects of those names at once.
    /// @param id          the buffer's logical name.
    /// @param size        nominal size of the memory in bytes.
    /// @param resizable   what is said of the buffer; nothing resizes it without a server.
    SharedMemoryAccessor(std::string id, std::string const& memoryName, std::uint64_t size,
                         std::string const& generationName, std::string const& mutexName, bool resizable);
    /// With a server: opens nothing yet. Looks the server up in the registry (up to 3 s) to learn where it
    /// takes notice of writes; without that writes are only not announced (logged).
    /// @param pipe  to the server; not owned, outlives the accessor. Null: there is no way to any buffer.
    SharedMemoryAccessor(AMessagePipeRequestReply* pipe, std::string id, bool resizable);
    SharedMemoryAccessor(SharedMemoryAccessor const&) = delete;
    SharedMemoryAccessor& operator=(SharedMemoryAccessor const&) = delete;
    /// Unlocks and closes; the objects stay for others.
    ~SharedMemoryAccessor();

    /// Opens the three objects. What was open before is closed, and unlocked if it was locked.
    /// @return false, with an error line, when a name is empty or an object cannot be opened.
    bool Init(std::string const& memoryName, std::uint64_t size, std::string const& generationName,
              std::string const& mutexName);
    /// Asks the server where the buffer is and opens it; waits without limit.
    /// @return false when there is no such buffer (not logged) or it cannot be opened.
    bool Reset();
    /// Closes, and opens under new names.
    bool Reset(std::string const& memoryName, std::uint64_t size, std::string const& generationName,
               std::string const& mutexName);
    /// Whether the buffer is open, after an attempt to open it if it was not.
    bool Exists();
    /// Nominal size in bytes, opening the buffer if need be; 0 when there is none.
    std::uint64_t Size();

    /// Asks the server to create the buffer, or joins the one that is there; waits without limit.
    /// @param size           in bytes; a buffer that is there keeps its own.
    /// @param configuration  makes the buffer portable; null makes it non-portable.
    bool Create(std::uint64_t size, vq::vds::PortableSharedMemoryConfiguration const* configuration);
    /// Marks the buffer portable, or non-portable for null; 15 s.
    /// @return whether the server did so.
    bool SetConfiguration(vq::vds::PortableSharedMemoryConfiguration const* configuration);
    /// Asks the server for the configuration; 15 s.
    /// @param configuration  filled when there is one, cleared when the server says that there is none.
    /// @return whether the buffer is portable, by what was known before when the server does not answer.
    bool GetConfiguration(vq::vds::PortableSharedMemoryConfiguration& configuration);
    /// Asks the server to resize the buffer, or to create it when there is none; 15 s. Pointers into it are
    /// invalid afterwards, and it is not locked.
    bool Resize(std::uint64_t size);

    /// Frees a buffer that a dead process left locked: replaces its mutex by a free one of the same name. As
    /// with the registry's, whoever has the old one open goes on excluding only his like, and those who wait
    /// for it wait on, until they open the buffer again by Reset().
    /// @return false when there is no such buffer or the mutex cannot be made (logged).
    bool Recover();

    /// Locks and maps. On an accessor that is locked it only maps.
    /// @param timedOut  set when the mutex stayed taken. The buffer is mapped all the same and not locked:
    ///                  test this as well as the pointer.
    /// @return the first byte, valid until Unlock; null when there is no buffer or it cannot be mapped.
    void* Lock(SharedMemory::Access access, std::chrono::milliseconds timeout, bool* timedOut);
    /// Waits until the buffer has had that many writes, by a look every 50 ms, then locks and maps. Does not
    /// wait for generation 0, on a buffer that is not portable and when locked already.
    /// @param observed  may be null; the generation that was found, which may be beyond the one waited for; 0
    ///                  when nothing was waited for.
    /// @return null, with the mutex free, when the wait timed out; else as the other form.
    void* Lock(SharedMemory::Access access, std::uint64_t generation, std::uint64_t* observed,
               std::chrono::milliseconds timeout, bool* timedOut);
    /// Number of writes so far; 0, with a warning, unless locked.
    std::uint64_t Generation();
    /// What the write under way will count as; 0, with a warning, unless locked for writing.
    std::uint64_t NextGeneration();

    /// Ends a look, or a write that is not to be told. Note the sense of the result.
    /// @return true when unmapping or unlocking failed (logged); false when all went well, and also when it
    ///         was not locked (logged).
    bool Unlock();
    /// Ends a write: counts it, tells the server if the buffer is portable, unlocks, tells the producer.
    /// @param producer    may be null; not owned.
    /// @param descriptor  layout of the buffer, for the producer.
    /// @param offset      first byte written.
    /// @param size        number of bytes written, or kToEnd.
    /// @return true when unmapping or unlocking failed (logged); false when all went well, and also when the
    ///         lock is not one for writing or the span does not lie in the buffer (logged; the lock is then
    ///         still held, see IsLocked).
    bool Unlock(ISharedBufferProducer* producer, vq::bd::BufferDescriptor const& descriptor,
                std::uint64_t offset, std::uint64_t size);

    /// The buffer's logical name.
    std::string const& GetId() const { return m_id; }
    bool IsLocked() const { return m_locked; }
    bool IsPortable() const { return m_portable; }
    bool IsResizable() const { return m_resizable; }
    /// Whether writes to a portable buffer are announced to the server.
    bool HasEventSender() const { return m_eventSender != nullptr; }

private:
    /// The second half of locking; see Lock.
    void* LockAndAttach(SharedMemory::Access access, std::chrono::milliseconds timeout, bool* timedOut);
    /// @return false when the wait timed out; otherwise locked unless the mutex failed.
    bool WaitForGeneration(std::uint64_t generation, std::uint64_t* observed,
                           std::chrono::milliseconds timeout, bool* timedOut);
    /// The counter, under the mutex; false when it cannot be read.
    bool ReadGeneration(std::uint64_t& count);
    /// Counts one write; the new count, or 0 when the counter cannot be reached.
    std::uint64_t CountWrite();
    void AnnounceWrite(std::uint64_t generation, std::uint64_t offset, std::uint64_t span);
    bool IsLockedForWriting() const;
    /// Unmaps and unlocks; true when either failed.
    bool Release();
    void Close();
    /// Init with the names and the size that are known; there are both blocks, open or not.
    bool Reopen();
    /// Whether a request can be made: false without an id, the end of the process without a pipe.
    bool CanAsk() const;

    AMessagePipeRequestReply* m_pipe = nullptr;
    AMessagePipeEventSender* m_eventSender = nullptr;
    std::string m_id;
    SharedMutex m_mutex;
    std::string m_mutexName;
    std::shared_ptr<SharedMemory> m_memory;
    std::shared_ptr<SharedMemory> m_generationMemory;
    bool m_resizable = false;
    bool m_portable = false;
    bool m_ready = false;
    bool m_locked = false;
};
