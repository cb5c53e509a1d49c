#include "safety/putback.h"

#include "db/databasesession.h"
#include "db/progress.h"
#include "safety/copysql.h"

#include <QDir>
#include <QFile>
#include <QLocale>
#include <QSaveFile>

#include <memory>

namespace tabulon::PutBack {

namespace {

constexpr qsizetype kStatementBytes = 1024 * 1024;

DbError tableError(const QString &table, const DbError &error)
{
    DbError e = error;
    e.description = QStringLiteral("Table ") + table + QStringLiteral(": ") + error.description;
    return e;
}

// Builds each table of the copy under a temporary name and swaps it in when its rows are all
// there.
class TableLoader final : public SafetyCopyVisitor {
public:
    TableLoader(DatabaseSession &db, const QString &database, Progress &progress)
        : m_db(db), m_database(database), m_progress(progress)
    {
        const QString id = QString::number(db.connectionId());
        m_newName = QStringLiteral("tabulon_putback_new_") + id;
        m_oldName = QStringLiteral("tabulon_putback_old_") + id;
    }
    ~TableLoader() override
    {
        if (m_building)
            (void)m_db.execute(QStringLiteral("DROP TABLE IF EXISTS ") + CopySql::qualified(m_database, m_newName));
    }
    TableLoader(const TableLoader &) = delete;
    TableLoader &operator=(const TableLoader &) = delete;

    Summary summary;

    DbError table(const CopyTable &table) override
    {
        if (m_progress.stopRequested())
            return DbError::generic(QStringLiteral("Stopped before table ") + table.name + QLatin1Char('.'));
        m_progress.step(table.name);
        m_table = table;
        const auto parts = CopySql::splitCreate(table.createText, table.name, m_database, m_newName);
        if (!parts)
            return tableError(table.name,
                              DbError::generic(QStringLiteral("the copy's CREATE TABLE text is unreadable")));
        m_foreignKeys = parts->foreignKeys;
        if (DbError e =
                m_db.execute(QStringLiteral("DROP TABLE IF EXISTS ") + CopySql::qualified(m_database, m_newName)))
            return tableError(table.name, e);
        if (DbError e = m_db.execute(parts->create))
            return tableError(table.name, e);
        m_building = true;
        QStringList names;
        for (const CopyColumn &c : table.columns)
            names << DatabaseSession::quoteIdentifier(c.name);
        m_insertHead = (QStringLiteral("INSERT INTO ") + CopySql::qualified(m_database, m_newName) +
                        QStringLiteral(" (") + names.join(QLatin1Char(',')) + QStringLiteral(") VALUES "))
                           .toUtf8();
        m_columnList = names.join(QLatin1Char(','));
        m_batch.clear();
        return {};
    }

    DbError row(CopyCells cells) override
    {
        m_batch += m_batch.isEmpty() ? m_insertHead : QByteArrayLiteral(",");
        m_batch += '(';
        const auto escape = [this](QByteArrayView v) { return m_db.escape(v); };
        for (size_t i = 0; i < cells.size(); ++i) {
            if (i)
                m_batch += ',';
            m_batch += CopySql::literal(cells[i], m_table.columns[i].form, escape);
        }
        m_batch += ')';
        ++summary.rows;
        return m_batch.size() >= kStatementBytes ? flush() : DbError{};
    }

    DbError tableEnd(qint64) override
    {
        if (DbError e = flush())
            return e;
        if (DbError e = swapIn())
            return tableError(m_table.name, e);
        m_building = false;
        ++summary.tables;
        return {};
    }

private:
    DbError flush()
    {
        if (m_batch.isEmpty())
            return {};
        const DbError e = m_db.execute(QString::fromUtf8(m_batch));
        m_batch.clear();
        return e ? tableError(m_table.name, e) : DbError{};
    }

    DbResult<qint64> count(const QString &sql)
    {
        auto rs = m_db.openQuery(sql);
        if (!rs)
            return rs.error();
        return rs->recordCount() > 0 ? rs->text(0, 0).toLongLong() : 0;
    }

    QString nameLiteral(const QString &name) const
    {
        return QLatin1Char('\'') + QString::fromUtf8(m_db.escape(name.toUtf8())) + QLatin1Char('\'');
    }

    DbError swapIn()
    {
        const QString current = CopySql::qualified(m_database, m_table.name);
        const QString fresh = CopySql::qualified(m_database, m_newName);
        const QString old = CopySql::qualified(m_database, m_oldName);
        auto exists = count(QStringLiteral("SELECT COUNT(*) FROM information_schema.TABLES WHERE TABLE_SCHEMA = ") +
                            nameLiteral(m_database) + QStringLiteral(" AND TABLE_NAME = ") + nameLiteral(m_table.name));
        if (!exists)
            return exists.error();
        // Other tables' foreign keys follow a table through a rename: swapping a table they
        // point at would leave them pointing at the one dropped. Such a table keeps its
        // identity and takes the copy's rows in one transaction instead.
        auto children = count(QStringLiteral("SELECT COUNT(*) FROM information_schema.REFERENTIAL_CONSTRAINTS WHERE "
                                             "UNIQUE_CONSTRAINT_SCHEMA = ") +
                              nameLiteral(m_database) + QStringLiteral(" AND REFERENCED_TABLE_NAME = ") +
                              nameLiteral(m_table.name) + QStringLiteral(" AND NOT (CONSTRAINT_SCHEMA = ") +
                              nameLiteral(m_database) + QStringLiteral(" AND TABLE_NAME = ") +
                              nameLiteral(m_table.name) + QLatin1Char(')'));
        if (!children)
            return children.error();
        if (*exists > 0 && *children > 0)
            return refill(current, fresh);

        if (*exists > 0) {
            if (DbError e = m_db.execute(QStringLiteral("RENAME TABLE ") + current + QStringLiteral(" TO ") + old +
                                         QStringLiteral(", ") + fresh + QStringLiteral(" TO ") + current))
                return e;
            m_building = false;
            if (DbError e = m_db.execute(QStringLiteral("DROP TABLE ") + old))
                return e;
        } else {
            if (DbError e = m_db.execute(QStringLiteral("RENAME TABLE ") + fresh + QStringLiteral(" TO ") + current))
                return e;
            m_building = false;
        }
        if (!m_foreignKeys.isEmpty()) {
            QStringList adds;
            for (const QString &fk : m_foreignKeys)
                adds << QStringLiteral("ADD ") + fk;
            if (DbError e = m_db.execute(QStringLiteral("ALTER TABLE ") + current + QLatin1Char(' ') +
                                         adds.join(QStringLiteral(", "))))
                return e;
        }
        return {};
    }

    DbError refill(const QString &current, const QString &fresh)
    {
        if (DbError e = m_db.execute(QStringLiteral("START TRANSACTION")))
            return e;
        DbError e = m_db.execute(QStringLiteral("DELETE FROM ") + current);
        if (!e)
            e = m_db.execute(QStringLiteral("INSERT INTO ") + current + QStringLiteral(" (") + m_columnList +
                             QStringLiteral(") SELECT ") + m_columnList + QStringLiteral(" FROM ") + fresh);
        if (e) {
            (void)m_db.execute(QStringLiteral("ROLLBACK"));
            return e;
        }
        if (DbError c = m_db.execute(QStringLiteral("COMMIT")))
            return c;
        return m_db.execute(QStringLiteral("DROP TABLE ") + fresh);
    }

    DatabaseSession &m_db;
    QString m_database;
    Progress &m_progress;
    QString m_newName;
    QString m_oldName;
    CopyTable m_table;
    QStringList m_foreignKeys;
    QByteArray m_insertHead;
    QString m_columnList;
    QByteArray m_batch;
    bool m_building = false;
};

// Writes each file of the copy back in place (whole, or not at all), or removes one that was
// not there when the copy was taken.
class FileLoader final : public SafetyCopyVisitor {
public:
    FileLoader(const QString &folder, Progress &progress) : m_folder(folder), m_progress(progress) {}

    Summary summary;

    DbError file(const QString &name, bool existed) override
    {
        if (name.contains(QLatin1Char('/')) || name.contains(QLatin1Char('\\')) || name == QLatin1String("..") ||
            name.isEmpty())
            return DbError::file(name, QStringLiteral("not a plain file name"));
        m_progress.step(name);
        m_path = QDir(m_folder).filePath(name);
        m_existed = existed;
        if (!existed)
            return {};
        m_out = std::make_unique<QSaveFile>(m_path);
        if (!m_out->open(QIODevice::WriteOnly))
            return DbError::file(m_path, m_out->errorString());
        return {};
    }
    DbError fileData(QByteArrayView data) override
    {
        if (m_out && m_out->write(data.data(), data.size()) != data.size())
            return DbError::file(m_path, m_out->errorString());
        return {};
    }
    DbError fileEnd() override
    {
        if (m_existed) {
            if (!m_out || !m_out->commit())
                return DbError::file(m_path, m_out ? m_out->errorString() : QString());
            m_out.reset();
        } else if (QFile::exists(m_path) && !QFile::remove(m_path)) {
            return DbError::file(m_path, QStringLiteral("could not be removed"));
        }
        ++summary.tables;
        return {};
    }

private:
    QString m_folder;
    Progress &m_progress;
    QString m_path;
    bool m_existed = false;
    std::unique_ptr<QSaveFile> m_out;
};

QString timeText(const SafetyCopyInfo &copy)
{
    return copy.time.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

} // namespace

QString question(const SafetyCopyInfo &copy)
{
    const QString what = copy.kind == SafetyCopyInfo::Kind::Files
                             ? QStringLiteral("the files ") + copy.tables.join(QStringLiteral(", ")) +
                                   QStringLiteral(" in ") + copy.folder
                             : QStringLiteral("the tables ") + copy.tables.join(QStringLiteral(", ")) +
                                   QStringLiteral(" of database ") + copy.database;
    return QStringLiteral("This will replace ") + what + QStringLiteral(" with their safety copy of ") +
           timeText(copy) + QStringLiteral(" (") + copy.command + QStringLiteral("). Go on?");
}

QString summaryText(const SafetyCopyInfo &copy, const Summary &summary)
{
    if (copy.kind == SafetyCopyInfo::Kind::Files)
        return QStringLiteral("Put back %1 file(s) from the safety copy of %2.")
            .arg(summary.tables)
            .arg(timeText(copy));
    return QStringLiteral("Put back %1 table(s) with %2 row(s) from the safety copy of %3.")
        .arg(summary.tables)
        .arg(summary.rows)
        .arg(timeText(copy));
}

DbResult<Summary> putBack(DatabaseSession &session, const SafetyCopyInfo &copy, Progress &progress)
{
    progress.begin(static_cast<int>(copy.tables.size()));
    struct EndProgress {
        Progress &p;
        ~EndProgress() { p.end(); }
    } endProgress{progress};

    if (copy.kind == SafetyCopyInfo::Kind::Files) {
        SafetyCopyVisitor check;
        if (DbError e = SafetyCopy::read(copy.path, check))
            return e;
        FileLoader loader(copy.folder, progress);
        if (DbError e = SafetyCopy::read(copy.path, loader))
            return e;
        if (session.isOpen())
            (void)session.execute(QStringLiteral("FLUSH TABLES"));
        return loader.summary;
    }

    // The whole copy is read once before anything is changed: a damaged one puts nothing back.
    SafetyCopyVisitor check;
    if (DbError e = SafetyCopy::read(copy.path, check))
        return e;
    DatabaseSession db;
    if (DbError e = session.openSibling(db))
        return e;
    if (DbError e = db.execute(CopySql::sessionSetup()))
        return e;
    // Foreign key clauses name their referenced tables without a database.
    if (DbError e = db.execute(QStringLiteral("USE ") + DatabaseSession::quoteIdentifier(copy.database)))
        return e;
    TableLoader loader(db, copy.database, progress);
    if (DbError e = SafetyCopy::read(copy.path, loader))
        return e;
    return loader.summary;
}

} // namespace tabulon::PutBack
