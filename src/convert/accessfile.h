// Reading Access files (*.mdb) with mdbtools' library. The library trusts the file it reads, so
// the program reads a file in a separate reader program (tabulon-accessreader): a damaged file
// that trips the library up ends the reader, and the program sees an error instead of going
// down with it. The reader checks the whole file before it answers, then hands over one table
// at a time when asked, so the program never holds more than one table's rows.
#pragma once

#include "convert/sourcetable.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QProcess>
#include <QString>

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

namespace tabulon {

namespace AccessFile {

// The ADO type code the Access provider reports for an mdbtools column type.
int adoTypeFor(int mdbColumnType);

// Reads every user table of a whole file image, in this process, into the form the reader
// hands to the program, in catalog order. False with a reason when the image is no Access file
// or is damaged. When given, `flush` takes the user tables' form as it grows past the flush
// threshold (and may empty `out`); system tables are checked and never reach it.
bool readImage(const unsigned char *data, std::size_t size, QByteArray &out, QString &reason,
               const std::function<void(QByteArray &)> &flush = {});
// The size past which the form goes to `flush` (1 MiB unless set).
void setFlushThreshold(qsizetype bytes);
// A pause after every row read (none unless set): a reader made slow, for the tests.
void setRowPause(std::chrono::microseconds pause);
// Turns that form back into tables; a form that is cut short or malformed is an error.
DbResult<std::vector<SourceTable>> decode(QByteArrayView form);

// The reader program's work: checks the file at `path`, sends the user tables' headers up
// `out`, then each table asked for on `in`, with a sign of life at least every quarter of a
// second while it reads. Returns the program's exit code.
int serve(const QString &path, int in, int out);
// The reader program the program starts (beside the program unless set).
void setReaderProgram(const QString &program);
QString readerProgram();

// Seconds the reader may send nothing before its file counts as damaged. The sanitizer build
// runs the reader many times slower, so it waits longer.
#ifdef TABULON_SANITIZED
inline constexpr int kReaderSilenceSeconds = 180;
#else
inline constexpr int kReaderSilenceSeconds = 30;
#endif

// Reads the whole file at `path` through the reader program: every user table with its rows,
// in catalog order. An error names the file; a reader that crashes, sends nothing for
// `timeoutSeconds`, or reports damage gives one too.
DbResult<std::vector<SourceTable>> load(const QString &path, int timeoutSeconds = kReaderSilenceSeconds);

} // namespace AccessFile

// The reader program at work on one file: its user tables' headers, and one table's rows at a
// time.
class AccessReader final {
public:
    static DbResult<std::unique_ptr<AccessReader>> start(const QString &path,
                                                         int timeoutSeconds = AccessFile::kReaderSilenceSeconds);
    ~AccessReader();
    AccessReader(const AccessReader &) = delete;
    AccessReader &operator=(const AccessReader &) = delete;

    // The user tables in catalog order, fields without rows.
    const std::vector<SourceTable> &catalog() const { return m_catalog; }
    // Table `index` of the catalog with its rows.
    DbResult<SourceTable> table(std::size_t index);

private:
    AccessReader(const QString &path, int timeoutSeconds);
    DbError frame(char &kind, QByteArray &payload);
    DbError malformed() const;

    QString m_path;
    int m_timeoutMs;
    QProcess m_process;
    QByteArray m_pending;
    std::vector<SourceTable> m_catalog;
};

// An Access file, checked whole when it is opened: damage anywhere in it shows before anything
// is created from it.
class AccessSource final : public ConversionSource {
public:
    static DbResult<std::unique_ptr<ConversionSource>> open(const QString &path);
    ~AccessSource() override;

    // By name, compared without case, as the provider's schema rowset lists them.
    QStringList tableNames() const override;
    DbResult<std::vector<SourceField>> readFields(const QString &table) override;
    DbError readRows(const QString &table, const RowSink &row) override;

private:
    explicit AccessSource(std::unique_ptr<AccessReader> reader);
    std::optional<std::size_t> find(const QString &table) const;

    std::unique_ptr<AccessReader> m_reader;
    std::vector<std::size_t> m_order;
};

} // namespace tabulon
