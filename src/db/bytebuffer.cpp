#include "db/bytebuffer.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace tabulon {

namespace {

// Below this a buffer lives among the heap's small blocks, whose pages are mostly in memory
// already; above it, each block has pages of its own that are worth faulting in ahead.
constexpr std::size_t kPrefaultFrom = 256 * 1024;
constexpr std::size_t kPrefaultStep = 64 * 1024;

// Asks the kernel to fault in [begin, end) of a block in one call: a million small appends
// would otherwise take one fault per page, which on a virtual machine costs more than the
// copying. Failure (an older kernel) only means the pages come one by one.
void prefault(char *begin, char *end)
{
#if defined(__linux__) && defined(MADV_POPULATE_WRITE)
    static const auto pageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto from = reinterpret_cast<std::uintptr_t>(begin) & ~(pageSize - 1);
    const auto to = reinterpret_cast<std::uintptr_t>(end) & ~(pageSize - 1);
    if (to > from)
        madvise(reinterpret_cast<void *>(from), to - from, MADV_POPULATE_WRITE);
#else
    (void)begin;
    (void)end;
#endif
}

} // namespace

ByteBuffer::ByteBuffer(const ByteBuffer &other)
{
    if (other.m_size != 0) {
        setCapacity(other.m_size);
        std::memcpy(m_data, other.m_data, other.m_size);
        m_size = other.m_size;
    }
}

ByteBuffer &ByteBuffer::operator=(const ByteBuffer &other)
{
    if (this != &other) {
        ByteBuffer copy(other);
        *this = std::move(copy);
    }
    return *this;
}

ByteBuffer::ByteBuffer(ByteBuffer &&other) noexcept
    : m_data(std::exchange(other.m_data, nullptr)), m_size(std::exchange(other.m_size, 0)),
      m_capacity(std::exchange(other.m_capacity, 0)), m_ready(std::exchange(other.m_ready, 0))
{
}

ByteBuffer &ByteBuffer::operator=(ByteBuffer &&other) noexcept
{
    if (this != &other) {
        std::free(m_data);
        m_data = std::exchange(other.m_data, nullptr);
        m_size = std::exchange(other.m_size, 0);
        m_capacity = std::exchange(other.m_capacity, 0);
        m_ready = std::exchange(other.m_ready, 0);
    }
    return *this;
}

ByteBuffer::~ByteBuffer()
{
    std::free(m_data);
}

void ByteBuffer::setCapacity(std::size_t capacity)
{
    if (capacity == 0) {
        std::free(m_data);
        m_data = nullptr;
        m_capacity = m_ready = 0;
        return;
    }
    void *moved = std::realloc(m_data, capacity);
    if (!moved)
        throw std::bad_alloc();
    m_data = static_cast<char *>(moved);
    m_capacity = capacity;
    // A block that was copied rather than remapped has only its used pages in memory.
    m_ready = capacity < kPrefaultFrom ? capacity : std::min(m_ready, m_size);
}

void ByteBuffer::makeRoom(std::size_t n)
{
    const std::size_t needed = m_size + n;
    if (needed < m_size)
        throw std::bad_alloc();
    if (needed > m_capacity)
        setCapacity(std::max({needed, m_capacity + m_capacity / 2, std::size_t(64)}));
    if (needed > m_ready) {
        const std::size_t ready = std::min(m_capacity, needed + kPrefaultStep);
        prefault(m_data + m_ready, m_data + ready);
        m_ready = ready;
    }
}

void ByteBuffer::reserve(std::size_t n)
{
    if (n > m_capacity)
        setCapacity(n);
}

void ByteBuffer::squeeze()
{
    if (m_capacity > m_size)
        setCapacity(m_size);
}

} // namespace tabulon
