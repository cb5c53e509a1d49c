// The file form of a safety copy: a short header (time, command, database, tables), a body
// holding each table's CREATE TABLE text, triggers and every row with its exact bytes (or the
// bytes of table files), compressed or stored as it is, and a trailer with the row counts that
// marks the file whole. Header and trailer carry checksums of their own, as the body does. The
// file is written beside its final name and moved there only when complete, never over another
// file, so a copy that lists is a copy that reads and two programs sharing a folder keep each
// other's copies.
#pragma once

#include "db/dberror.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QDateTime>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace tabulon {

// What the list of copies shows, read from a copy's header and trailer only.
struct SafetyCopyInfo final {
    enum class Kind { Tables, Files };

    QString path;
    QDateTime time; // UTC
    QString command;
    QString database;
    QStringList tables; // the tables, or for a copy of files the file names
    Kind kind = Kind::Tables;
    QString folder;           // a copy of files: the folder they were taken from
    bool withoutCopy = false; // the operator let the command go on without a copy: no data here
    // The body as it is, not compressed: table files, which compress at a cost in processor
    // time far above that of reading them, go in stored.
    bool stored = false;
    qint64 rows = 0;
    qint64 size = 0; // bytes on disk
};

// How a column's value goes back into a statement.
enum class CopyValueForm : quint8 {
    Text = 0,   // an escaped, quoted literal
    Binary = 1, // a hex literal: the bytes as they are, whatever the connection's character set
    Number = 2, // bare (BIT columns, read as their number)
    Float = 3,  // FLOAT columns, read as DOUBLE: every digit of the stored value, written bare
};

// A trigger of a table as SHOW CREATE TRIGGER gives it.
struct CopyTrigger final {
    QString name;
    QByteArray sqlMode;
    QByteArray statement; // CREATE DEFINER=... TRIGGER ...
};

struct CopyColumn final {
    QString name;
    CopyValueForm form = CopyValueForm::Text;
};

struct CopyTable final {
    QString name;
    QByteArray createText; // SHOW CREATE TABLE's second field
    std::vector<CopyColumn> columns;
    std::vector<CopyTrigger> triggers; // in the order they fire
};

using CopyCells = std::span<const std::optional<QByteArrayView>>;

class SafetyCopyWriter final {
public:
    SafetyCopyWriter();
    ~SafetyCopyWriter(); // an uncommitted copy is removed
    SafetyCopyWriter(const SafetyCopyWriter &) = delete;
    SafetyCopyWriter &operator=(const SafetyCopyWriter &) = delete;

    // Starts the copy meant for `path` (the file appears only on commit).
    DbError open(const QString &path, const SafetyCopyInfo &header);
    DbError beginTable(const CopyTable &table);
    DbError writeRow(CopyCells cells);
    DbError endTable();
    // A copy of a file: its bytes, or that it did not exist (put-back then removes it).
    DbError beginFile(const QString &name, bool existed);
    DbError writeFileData(QByteArrayView data);
    DbError endFile();
    // Finishes the body, writes the trailer and puts the file in place: at `path`, or when a
    // file of that name exists already, at the first free name beside it (finalPath()).
    DbError commit();
    void cancel();
    const QString &finalPath() const { return m_finalPath; }

    qint64 rowsWritten() const { return m_rows; }

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
    qint64 m_rows = 0;
    QString m_finalPath;
};

// What a reader hands over while it walks a copy's body.
class SafetyCopyVisitor {
public:
    SafetyCopyVisitor() = default;
    SafetyCopyVisitor(const SafetyCopyVisitor &) = delete;
    SafetyCopyVisitor &operator=(const SafetyCopyVisitor &) = delete;
    virtual ~SafetyCopyVisitor() = default;

    virtual DbError table(const CopyTable &) { return {}; }
    virtual DbError row(CopyCells) { return {}; }
    virtual DbError tableEnd(qint64 /*rows*/) { return {}; }
    virtual DbError file(const QString & /*name*/, bool /*existed*/) { return {}; }
    virtual DbError fileData(QByteArrayView) { return {}; }
    virtual DbError fileEnd() { return {}; }
};

namespace SafetyCopy {

// The extension of complete copies.
inline const QString kSuffix = QStringLiteral(".safecopy");

// Header and trailer; an incomplete or foreign file is an error naming the path.
DbResult<SafetyCopyInfo> readInfo(const QString &path);
// Walks the body; an error from the visitor stops the walk and is returned.
DbError read(const QString &path, SafetyCopyVisitor &visitor);

} // namespace SafetyCopy
} // namespace tabulon
