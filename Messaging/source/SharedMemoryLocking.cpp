#include <atomic>
#include <cstring>
#include <thread>

#include "BufferDescriptors.pb.h"
#include "Logging/Log.h"
#include "Messaging/AMessagePipe.h"
#include "Messaging/ISharedBufferProducer.h"
#include "Messaging/MessageUtils.h"
#include "Messaging/SharedMemoryAccessor.h"
#include "ServerEvents.pb.h"

// What is done with an open buffer. The generation counter is touched under the mutex only, so that nothing
// here needs an atomic step for the sake of others.

using std::chrono::milliseconds;
using Access = SharedMemory::Access;

namespace {

constexpr milliseconds kNoLimit = milliseconds::max();
constexpr milliseconds kGenerationPoll{50};

unsigned long long Number(std::uint64_t value) {
    return value;
}

void Tell(bool* timedOut, bool value) {
    if (timedOut != nullptr) {
        *timedOut = value;
    }
}

}  // namespace

void* SharedMemoryAccessor::LockAndAttach(Access access, milliseconds timeout, bool* timedOut) {
    if (!m_locked) {
        m_locked = m_mutex.Lock(timeout, timedOut);
    }
    // Also when the lock failed: the caller tells by timedOut.
    return m_memory->Attach(access);
}

void* SharedMemoryAccessor::Lock(Access access, milliseconds timeout, bool* timedOut) {
    Tell(timedOut, false);
    if (m_memory == nullptr && !Exists()) {
        return nullptr;
    }
    return LockAndAttach(access, timeout, timedOut);
}

void* SharedMemoryAccessor::Lock(Access access, std::uint64_t generation, std::uint64_t* observed,
                                 milliseconds timeout, bool* timedOut) {
    Tell(timedOut, false);
    if (observed != nullptr) {
        *observed = 0;
    }
    if (m_memory == nullptr && !Exists()) {
        return nullptr;
    }
    bool const waits = generation != 0 && m_portable && !m_locked;
    if (waits && !WaitForGeneration(generation, observed, timeout, timedOut)) {
        return nullptr;
    }
    return LockAndAttach(access, timeout, timedOut);
}

bool SharedMemoryAccessor::WaitForGeneration(std::uint64_t generation, std::uint64_t* observed,
                                             milliseconds timeout, bool* timedOut) {
    LOG_V("Waiting for %s generation %llu", m_id.c_str(), Number(generation));
    auto const start = std::chrono::steady_clock::now();
    while (m_mutex.Lock(kNoLimit, nullptr)) {
        std::uint64_t count = 0;
        if (ReadGeneration(count) && observed != nullptr) {
            *observed = count;
        }
        if (count >= generation) {
            if (count == generation) {
                LOG_V("... generation ready");
            } else {
                LOG_V("... generation %llu skipped to %llu", Number(generation), Number(count));
            }
            m_locked = true;
            return true;
        }
        LOG_V("... generation not yet ready, still at %llu", Number(count));
        m_mutex.Unlock();
        // In milliseconds: a long timeout has no representation in the clock's own unit.
        auto const waited =
            std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
        if (timeout != kNoLimit && waited >= timeout) {
            Tell(timedOut, true);
            LOG_E("timed out waiting to see generation %llu at %llu", Number(generation),
                  Number(static_cast<std::uint64_t>(timeout.count())));
            return false;
        }
        LOG_I("Waiting for memory update...");
        std::this_thread::sleep_for(kGenerationPoll);
    }
    LOG_V("Failed to lock mutex... something's wrong");
    return true;
}

bool SharedMemoryAccessor::ReadGeneration(std::uint64_t& count) {
    void const* const counter =
        m_generationMemory != nullptr ? m_generationMemory->Attach(Access::Read) : nullptr;
    if (counter == nullptr) {
        return false;
    }
    std::memcpy(&count, counter, sizeof count);
    m_generationMemory->Detach();
    return true;
}

std::uint64_t SharedMemoryAccessor::CountWrite() {
    void* const counter =
        m_generationMemory != nullptr ? m_generationMemory->Attach(Access::ReadWrite) : nullptr;
    if (counter == nullptr) {
        return 0;
    }
    // Read and written in one step: the page is not mapped yet, and a read of its own would make it fault
    // twice.
    std::atomic_ref const generation(*static_cast<std::uint64_t*>(counter));
    std::uint64_t const count = generation.fetch_add(1, std::memory_order_relaxed) + 1;
    m_generationMemory->Detach();
    return count;
}

std::uint64_t SharedMemoryAccessor::Generation() {
    if (!m_locked) {
        LOG_W("Shared memory '%s' is not Lock()'ed", m_id.c_str());
        return 0;
    }
    std::uint64_t count = 0;
    ReadGeneration(count);
    return count;
}

bool SharedMemoryAccessor::IsLockedForWriting() const {
    return m_locked && m_memory != nullptr &&
           (m_memory->GetAccess() == Access::ReadWrite || m_memory->GetAccess() == Access::Write);
}

std::uint64_t SharedMemoryAccessor::NextGeneration() {
    if (!IsLockedForWriting()) {
        LOG_W("Shared memory '%s' is not Lock()'ed for writing", m_id.c_str());
        return 0;
    }
    return Generation() + 1;
}

bool SharedMemoryAccessor::Release() {
    bool failed = false;
    if (!m_memory->Detach()) {
        LOG_E("Unexpected error from SharedMemory::Detach");
        failed = true;
    }
    if (!m_mutex.Unlock()) {
        LOG_E("Unexpected error from SharedMutex::Unlock");
        failed = true;
    }
    m_locked = false;
    return failed;
}

bool SharedMemoryAccessor::Unlock() {
    if (!m_locked) {
        LOG_E("SharedMemoryAccessor was not Lock'ed for %s",
              m_memory != nullptr ? m_memory->GetName().c_str() : "");
        return false;
    }
    return Release();
}

bool SharedMemoryAccessor::Unlock(ISharedBufferProducer* producer, vq::bd::BufferDescriptor const& descriptor,
                                  std::uint64_t offset, std::uint64_t size) {
    if (!m_locked) {
        return Unlock();
    }
    if (!IsLockedForWriting()) {
        LOG_E("Used inappropriate Unlock() call for memory opened in read-only mode");
        return false;
    }
    std::uint64_t const whole = m_memory->GetSize();
    std::uint64_t const span = size == kToEnd ? whole - offset : size;
    if (offset > whole || span > whole - offset) {
        LOG_E("Invalid offset or size used in Unlock() call (%llu + %llu > %llu)", Number(offset),
              Number(span), Number(whole));
        return false;
    }
    std::uint64_t const generation = CountWrite();
    AnnounceWrite(generation, offset, span);
    bool const failed = Release();
    if (producer != nullptr) {
        producer->NotifyBufferDataChange(descriptor, generation, offset, span);
    }
    return failed;
}

void SharedMemoryAccessor::AnnounceWrite(std::uint64_t generation, std::uint64_t offset, std::uint64_t span) {
    if (m_eventSender == nullptr || !m_portable) {
        LOG_T("NOT sending SharedMemoryModifiedEvent (%p , %d)!", static_cast<void*>(m_eventSender),
              m_portable);
        return;
    }
    vq::vds::SharedMemoryModifiedEvent event;
    event.set_memory_id(m_id);
    event.set_generation(generation);
    event.set_offset(offset);
    event.set_size(span);
    MessageUtils::SendEvent(m_eventSender, 0, "", event, kNoLimit, nullptr);
}
