// CRC-32C (Castagnoli), the checksum of a safety copy's stored file bytes: the processor's own
// instruction does it at several gigabytes a second where there is one, so checking every byte
// of a table's files costs a small part of copying them.
#pragma once

#include <QByteArrayView>

namespace tabulon::Checksum {

// `crc` goes on from the value returned for the bytes before (0 to start).
quint32 crc32c(quint32 crc, QByteArrayView bytes);
// The same a byte at a time from a table, as it is done where the instruction is missing.
quint32 crc32cByTable(quint32 crc, QByteArrayView bytes);

} // namespace tabulon::Checksum
