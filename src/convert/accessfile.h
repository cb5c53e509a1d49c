// Reading Access files (*.mdb) with mdbtools' library. The library trusts the file it reads, so
// the program reads a file in a child process: a damaged file that trips the library up ends
// the child, and the program sees an error instead of going down with it. The reader itself
// checks what it can before the library sees the file, and what it finds afterwards.
#pragma once

#include "convert/sourcetable.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <cstddef>
#include <functional>
#include <vector>

namespace tabulon {

namespace AccessFile {

// The ADO type code the Access provider reports for an mdbtools column type.
int adoTypeFor(int mdbColumnType);

// Reads every user table of a whole file image, in this process, into the form the child hands
// to the program. False with a reason when the image is no Access file or is damaged. When
// given, `flush` takes the form's pieces as it grows (and may empty `out`).
bool readImage(const unsigned char *data, std::size_t size, QByteArray &out, QString &reason,
               const std::function<void(QByteArray &)> &flush = {});
// The longest value text taken whole (256 KiB unless set; longer memo texts are cut). The fuzzer
// lowers it: the sanitizers' allocator makes every larger buffer a slow system call.
void setValueLimit(std::size_t bytes);
// Turns that form back into tables; a form that is cut short or malformed is an error.
DbResult<std::vector<SourceTable>> decode(QByteArrayView form);

// Reads the file at `path` in a child process (readImage there, decode here). An error names
// the file; a child that crashes, sends nothing for `timeoutSeconds`, or reports damage gives
// one too.
DbResult<std::vector<SourceTable>> load(const QString &path, int timeoutSeconds = 30);

} // namespace AccessFile

// An Access file, read whole when it is opened: damage anywhere in it shows before anything
// is created from it.
class AccessSource final : public ConversionSource {
public:
    static DbResult<std::unique_ptr<ConversionSource>> open(const QString &path);

    explicit AccessSource(std::vector<SourceTable> tables) : m_tables(std::move(tables)) {}
    QStringList tableNames() const override;
    DbResult<std::vector<SourceField>> readFields(const QString &table) override;
    DbError readRows(const QString &table, const RowSink &row) override;

private:
    const SourceTable *find(const QString &table) const;
    std::vector<SourceTable> m_tables;
};

} // namespace tabulon
