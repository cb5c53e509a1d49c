// libFuzzer target for the Access reader. A whole Access file is too large for the fuzzer to
// mutate usefully, so its input is a patch over a real file: pairs of a 4-byte offset and a
// byte to write there, applied to the sample named by TABULON_FUZZ_BASE (with no base, the
// input itself is the file). The patched image goes through the checks and mdbtools in this
// process (the same code the reader program runs), and the answer through the decoder. Built only with
// -DTABULON_FUZZ=ON and clang.
#include "convert/accessfile.h"

#include <QFile>

#include <cstddef>
#include <cstdint>

namespace {

const QByteArray &base()
{
    static const QByteArray bytes = [] {
        QFile f(qEnvironmentVariable("TABULON_FUZZ_BASE"));
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }();
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    QByteArray image;
    if (base().isEmpty()) {
        image = QByteArray(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    } else {
        image = base();
        for (std::size_t i = 0; i + 5 <= size; i += 5) {
            const std::uint32_t offset =
                data[i] | (data[i + 1] << 8) | (data[i + 2] << 16) | (static_cast<std::uint32_t>(data[i + 3]) << 24);
            // The last patch byte may also cut the file short there.
            if (offset & 0x80000000u)
                image.truncate(
                    static_cast<qsizetype>((offset & 0x7fffffffu) % static_cast<std::uint32_t>(image.size())));
            else if (!image.isEmpty())
                image[static_cast<qsizetype>(offset % static_cast<std::uint32_t>(image.size()))] =
                    static_cast<char>(data[i + 4]);
        }
    }
    QByteArray form;
    QString reason;
    if (tabulon::AccessFile::readImage(reinterpret_cast<const unsigned char *>(image.constData()),
                                       static_cast<std::size_t>(image.size()), form, reason))
        (void)tabulon::AccessFile::decode(form);
    return 0;
}
