// A growable run of bytes for bulk appends. Unlike QByteArray it keeps no terminator and no
// shared header, so an append of a few bytes is a bounds check and a copy; growth goes
// through realloc, which moves large blocks by remapping their pages instead of copying
// them, and on Linux the pages just ahead of the end are faulted in 64 KiB at a time
// rather than one by one as they are first written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tabulon {

// Asks for the memory at `address` to be brought into the cache ahead of its read, where the
// compiler offers a way; reads of scattered memory that know their next addresses early use it
// to wait for several at once instead of one after the other.
inline void prefetch(const void *address)
{
#if defined(__GNUC__)
    __builtin_prefetch(address);
#else
    (void)address;
#endif
}

class ByteBuffer final {
public:
    ByteBuffer() = default;
    ByteBuffer(const ByteBuffer &other);
    ByteBuffer &operator=(const ByteBuffer &other);
    ByteBuffer(ByteBuffer &&other) noexcept;
    ByteBuffer &operator=(ByteBuffer &&other) noexcept;
    ~ByteBuffer();

    std::size_t size() const { return m_size; }
    std::size_t capacity() const { return m_capacity; }
    bool empty() const { return m_size == 0; }
    const char *data() const { return m_data; }
    char *data() { return m_data; }

    // Makes room for n more bytes at the end and returns where they go; the caller writes
    // them. Throws std::bad_alloc when memory runs out.
    char *extend(std::size_t n)
    {
        if (m_size + n > m_ready)
            makeRoom(n);
        char *at = m_data + m_size;
        m_size += n;
        return at;
    }
    void append(const char *bytes, std::size_t n)
    {
        if (n == 0)
            return;
        char *to = extend(n);
        if (n <= 16)
            copyShort(to, bytes, n);
        else
            std::memcpy(to, bytes, n);
    }
    void push_back(char c) { *extend(1) = c; }

    // Drops bytes from the end (a larger size is ignored).
    void truncate(std::size_t n)
    {
        if (n < m_size)
            m_size = n;
    }
    void reserve(std::size_t n);
    void clear() { m_size = 0; }
    // Gives back the capacity beyond the size.
    void squeeze();

private:
    // Most cells are a few bytes long: two overlapping word copies beat a call to memcpy.
    static void copyShort(char *to, const char *from, std::size_t n)
    {
        if (n >= 8) {
            std::uint64_t head;
            std::uint64_t tail;
            std::memcpy(&head, from, 8);
            std::memcpy(&tail, from + n - 8, 8);
            std::memcpy(to, &head, 8);
            std::memcpy(to + n - 8, &tail, 8);
        } else if (n >= 4) {
            std::uint32_t head;
            std::uint32_t tail;
            std::memcpy(&head, from, 4);
            std::memcpy(&tail, from + n - 4, 4);
            std::memcpy(to, &head, 4);
            std::memcpy(to + n - 4, &tail, 4);
        } else {
            to[0] = from[0];
            to[n / 2] = from[n / 2];
            to[n - 1] = from[n - 1];
        }
    }
    void makeRoom(std::size_t n);
    void setCapacity(std::size_t capacity);

    char *m_data = nullptr;
    std::size_t m_size = 0;
    std::size_t m_capacity = 0;
    // Bytes from the start whose pages are already in memory (or not worth faulting in ahead):
    // an append that reaches past it goes through makeRoom().
    std::size_t m_ready = 0;
};

} // namespace tabulon
