#include "safety/checksum.h"

#include <array>
#include <cstring>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <nmmintrin.h>
#define TABULON_CRC32C_SSE42 1
#endif

namespace tabulon::Checksum {

namespace {

constexpr quint32 kPolynomial = 0x82F63B78u; // reflected

constexpr std::array<quint32, 256> makeTable()
{
    std::array<quint32, 256> table{};
    for (quint32 i = 0; i < 256; ++i) {
        quint32 c = i;
        for (int k = 0; k < 8; ++k)
            c = (c & 1u) ? (c >> 1) ^ kPolynomial : c >> 1;
        table[i] = c;
    }
    return table;
}

constexpr std::array<quint32, 256> kTable = makeTable();

quint32 bytewise(quint32 crc, const unsigned char *p, qsizetype n)
{
    for (; n > 0; --n, ++p)
        crc = kTable[(crc ^ *p) & 0xFFu] ^ (crc >> 8);
    return crc;
}

#ifdef TABULON_CRC32C_SSE42
__attribute__((target("sse4.2"))) quint32 instruction(quint32 crc, const unsigned char *p, qsizetype n)
{
    quint64 c = crc;
    for (; n >= 8; n -= 8, p += 8) {
        quint64 word;
        std::memcpy(&word, p, sizeof word);
        c = _mm_crc32_u64(c, word);
    }
    auto c32 = static_cast<quint32>(c);
    for (; n > 0; --n, ++p)
        c32 = _mm_crc32_u8(c32, *p);
    return c32;
}

bool hasInstruction()
{
    static const bool has = __builtin_cpu_supports("sse4.2");
    return has;
}
#endif

} // namespace

quint32 crc32c(quint32 crc, QByteArrayView bytes)
{
    const auto *p = reinterpret_cast<const unsigned char *>(bytes.data());
    crc = ~crc;
#ifdef TABULON_CRC32C_SSE42
    if (hasInstruction())
        return ~instruction(crc, p, bytes.size());
#endif
    return ~bytewise(crc, p, bytes.size());
}

quint32 crc32cByTable(quint32 crc, QByteArrayView bytes)
{
    return ~bytewise(~crc, reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size());
}

} // namespace tabulon::Checksum
