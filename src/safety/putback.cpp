#include "safety/putback.h"

#include "db/databasesession.h"
#include "db/progress.h"
#include "safety/copysql.h"

#include <QDir>
#include <QFile>
#include <QLocale>
#include <QSaveFile>

#include <cerrno>
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
    QStringList done; // the tables put back so far

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
        done << m_table.name;
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
        auto exists =
            count(QStringLiteral("SELECT COUNT(*) FROM information_schema.TABLES WHERE TABLE_SCHEMA = ") +
                  nameLiteral(m_database) + QStringLiteral(" AND TABLE_NAME = BINARY ") + nameLiteral(m_table.name));
        if (!exists)
            return exists.error();
        // Other tables' foreign keys follow a table through a rename: swapping a table they
        // point at would leave them pointing at the one dropped. Such a table is dropped and
        // the new one takes its name, which their keys (checked by name) then find.
        auto children = count(QStringLiteral("SELECT COUNT(*) FROM information_schema.REFERENTIAL_CONSTRAINTS WHERE "
                                             "UNIQUE_CONSTRAINT_SCHEMA = ") +
                              nameLiteral(m_database) + QStringLiteral(" AND REFERENCED_TABLE_NAME = BINARY ") +
                              nameLiteral(m_table.name) + QStringLiteral(" AND NOT (CONSTRAINT_SCHEMA = ") +
                              nameLiteral(m_database) + QStringLiteral(" AND TABLE_NAME = BINARY ") +
                              nameLiteral(m_table.name) + QLatin1Char(')'));
        if (!children)
            return children.error();

        if (*exists > 0 && *children > 0) {
            // The session runs without foreign key checks, so the drop is allowed.
            if (DbError e = m_db.execute(QStringLiteral("DROP TABLE ") + current))
                return e;
            if (DbError e = m_db.execute(QStringLiteral("RENAME TABLE ") + fresh + QStringLiteral(" TO ") + current))
                return e;
            m_building = false;
        } else if (*exists > 0) {
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
        makeTriggers();
        checkKeys();
        return {};
    }

    // The copy's triggers, each under the sql_mode it was made with. One that cannot be made
    // again is told, not hidden: the table's rows are back either way.
    void makeTriggers()
    {
        for (const CopyTrigger &t : m_table.triggers) {
            DbError e =
                m_db.execute(QStringLiteral("SET SESSION sql_mode = ") + nameLiteral(QString::fromUtf8(t.sqlMode)));
            if (!e)
                e = m_db.executeBytes(t.statement);
            if (e)
                summary.notes << QStringLiteral("Table ") + m_table.name + QStringLiteral(": its trigger ") + t.name +
                                     QStringLiteral(" could not be made again: ") + e.description;
        }
        if (!m_table.triggers.empty())
            (void)m_db.execute(CopySql::sessionSetup());
    }

    // The foreign keys from and to the table put back, row by row: rows changed elsewhere since
    // the copy may have no match any more, and the keys were not checked while it went in.
    void checkKeys()
    {
        auto keys = m_db.openQuery(
            QStringLiteral("SELECT CONSTRAINT_NAME, TABLE_NAME, COLUMN_NAME, REFERENCED_TABLE_NAME, "
                           "REFERENCED_COLUMN_NAME FROM information_schema.KEY_COLUMN_USAGE WHERE TABLE_SCHEMA = ") +
            nameLiteral(m_database) + QStringLiteral(" AND REFERENCED_TABLE_SCHEMA = ") + nameLiteral(m_database) +
            QStringLiteral(" AND (TABLE_NAME = BINARY ") + nameLiteral(m_table.name) +
            QStringLiteral(" OR REFERENCED_TABLE_NAME = BINARY ") + nameLiteral(m_table.name) +
            QStringLiteral(") ORDER BY TABLE_NAME, CONSTRAINT_NAME, ORDINAL_POSITION"));
        if (!keys) {
            summary.notes << QStringLiteral("Table ") + m_table.name +
                                 QStringLiteral(": its foreign keys could not be checked: ") + keys.error().description;
            return;
        }
        const auto q = [](const QString &n) { return DatabaseSession::quoteIdentifier(n); };
        for (qsizetype r = 0; r < keys->recordCount();) {
            const QString name = keys->text(r, 0);
            const QString child = keys->text(r, 1);
            const QString parent = keys->text(r, 3);
            QStringList notNull, match;
            for (; r < keys->recordCount() && keys->text(r, 0) == name && keys->text(r, 1) == child; ++r) {
                notNull << QStringLiteral("c.") + q(keys->text(r, 2)) + QStringLiteral(" IS NOT NULL");
                match << QStringLiteral("p.") + q(keys->text(r, 4)) + QStringLiteral(" = c.") + q(keys->text(r, 2));
            }
            auto orphans =
                count(QStringLiteral("SELECT COUNT(*) FROM ") + CopySql::qualified(m_database, child) +
                      QStringLiteral(" c WHERE ") + notNull.join(QStringLiteral(" AND ")) +
                      QStringLiteral(" AND NOT EXISTS (SELECT 1 FROM ") + CopySql::qualified(m_database, parent) +
                      QStringLiteral(" p WHERE ") + match.join(QStringLiteral(" AND ")) + QLatin1Char(')'));
            if (!orphans)
                summary.notes << QStringLiteral("The foreign key ") + name + QStringLiteral(" of table ") + child +
                                     QStringLiteral(" could not be checked: ") + orphans.error().description;
            else if (*orphans > 0)
                summary.notes << QStringLiteral("Table %1 has %2 row(s) that its foreign key %3 finds no match for in "
                                                "table %4.")
                                     .arg(child)
                                     .arg(*orphans)
                                     .arg(name, parent);
        }
    }

    DatabaseSession &m_db;
    QString m_database;
    Progress &m_progress;
    QString m_newName;
    QString m_oldName;
    CopyTable m_table;
    QStringList m_foreignKeys;
    QByteArray m_insertHead;
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
        m_name = name;
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
            if (!m_out)
                return DbError::file(m_path, QString());
            // commit() puts the file in place even when writing out its buffer failed (a full
            // disk): the flush is checked first, and the file as it is now stays.
            errno = 0;
            if (!m_out->flush()) {
                const QString reason = errno != 0 ? qt_error_string(errno) : m_out->errorString();
                m_out->cancelWriting();
                return DbError::file(m_path, reason);
            }
            if (!m_out->commit())
                return DbError::file(m_path, m_out->errorString());
            m_out.reset();
        } else if (QFile::exists(m_path) && !QFile::remove(m_path)) {
            return DbError::file(m_path, QStringLiteral("could not be removed"));
        }
        ++summary.tables;
        done << m_name;
        return {};
    }

    QStringList done;

private:
    QString m_name;
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

QString timeText(const QString &copyPath)
{
    auto info = SafetyCopy::readInfo(copyPath);
    return info ? timeText(*info) : copyPath;
}

// Which of the copy's tables went back before `error` stopped the put-back, and which did not.
DbError partWay(const DbError &error, const QStringList &all, const QStringList &done, const QString &undoCopy)
{
    DbError e = error;
    QStringList left;
    for (const QString &t : all) {
        if (!done.contains(t))
            left << t;
    }
    if (done.isEmpty())
        e.description += QStringLiteral("\nNothing was put back.");
    else
        e.description += QStringLiteral("\nPut back: ") + done.join(QStringLiteral(", ")) +
                         QStringLiteral(".\nNot put back: ") + left.join(QStringLiteral(", ")) + QLatin1Char('.');
    if (!undoCopy.isEmpty() && !done.isEmpty())
        e.description += QStringLiteral("\nThe safety copy of ") + timeText(undoCopy) +
                         QStringLiteral(" holds them as they were before this put-back.");
    return e;
}

// The copy's tables that are views now: a view cannot be swapped for a table, and dropping it
// would lose its definition.
DbResult<QStringList> viewsAmong(DatabaseSession &db, const SafetyCopyInfo &copy)
{
    const auto literal = [&db](const QString &text) -> QString {
        return QLatin1Char('\'') + QString::fromUtf8(db.escape(text.toUtf8())) + QLatin1Char('\'');
    };
    auto rs = db.openQuery(QStringLiteral("SELECT TABLE_NAME FROM information_schema.TABLES WHERE TABLE_SCHEMA = ") +
                           literal(copy.database) + QStringLiteral(" AND TABLE_TYPE = 'VIEW'"));
    if (!rs)
        return rs.error();
    QStringList views;
    for (qsizetype r = 0; r < rs->recordCount(); ++r) {
        if (copy.tables.contains(rs->text(r, 0)))
            views << rs->text(r, 0);
    }
    return views;
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
    if (copy.kind == SafetyCopyInfo::Kind::Files) {
        QString text =
            QStringLiteral("Put back %1 file(s) from the safety copy of %2.").arg(summary.tables).arg(timeText(copy));
        if (!summary.undoCopy.isEmpty())
            text += QStringLiteral("\nThe safety copy of ") + timeText(summary.undoCopy) +
                    QStringLiteral(" holds the files as they were before this put-back.");
        return text;
    }
    QString text = QStringLiteral("Put back %1 table(s) with %2 row(s) from the safety copy of %3.")
                       .arg(summary.tables)
                       .arg(summary.rows)
                       .arg(timeText(copy));
    for (const QString &note : summary.notes)
        text += QLatin1Char('\n') + note;
    if (!summary.undoCopy.isEmpty())
        text += QStringLiteral("\nThe safety copy of ") + timeText(summary.undoCopy) +
                QStringLiteral(" holds the tables as they were before this put-back.");
    return text;
}

DbResult<Summary> putBack(DatabaseSession &session, const SafetyCopyInfo &copy, Progress &progress,
                          const SafetySettings &settings, const SafetyNet::Confirm &confirm)
{
    progress.begin(static_cast<int>(copy.tables.size()));
    struct EndProgress {
        Progress &p;
        ~EndProgress() { p.end(); }
    } endProgress{progress};

    if (copy.withoutCopy)
        return DbError::generic(copy.command +
                                QStringLiteral(" went on without a safety copy, so there is nothing to put back."));
    // The whole copy is read once before anything is changed: a damaged one puts nothing back.
    SafetyCopyVisitor check;
    if (DbError e = SafetyCopy::read(copy.path, check))
        return e;

    if (copy.kind == SafetyCopyInfo::Kind::Files) {
        auto undo = SafetyNet::writeFileCopy(settings, QStringLiteral("Put Back"), copy.database, copy.folder,
                                             copy.tables, confirm, copy.path);
        if (!undo)
            return undo.error();
        FileLoader loader(copy.folder, progress);
        if (DbError e = SafetyCopy::read(copy.path, loader))
            return partWay(e, copy.tables, loader.done, *undo);
        if (session.isOpen())
            (void)session.execute(QStringLiteral("FLUSH TABLES"));
        loader.summary.undoCopy = *undo;
        return loader.summary;
    }

    DatabaseSession db;
    if (DbError e = session.openSibling(db))
        return e;
    if (DbError e = db.execute(CopySql::sessionSetup()))
        return e;
    // Foreign key clauses name their referenced tables without a database.
    if (DbError e = db.execute(QStringLiteral("USE ") + DatabaseSession::quoteIdentifier(copy.database)))
        return e;
    auto views = viewsAmong(db, copy);
    if (!views)
        return views.error();
    if (!views->isEmpty())
        return DbError::generic(QStringLiteral("Nothing was put back: ") + views->join(QStringLiteral(", ")) +
                                (views->size() == 1 ? QStringLiteral(" is a view now, not a table.")
                                                    : QStringLiteral(" are views now, not tables.")));
    auto undo = SafetyNet::writeTableCopy(db, settings, QStringLiteral("Put Back"), copy.tables, confirm, copy.path);
    if (!undo)
        return undo.error();
    if (DbError e = db.execute(CopySql::sessionSetup()))
        return e;
    TableLoader loader(db, copy.database, progress);
    if (DbError e = SafetyCopy::read(copy.path, loader))
        return partWay(e, copy.tables, loader.done, *undo);
    loader.summary.undoCopy = *undo;
    return loader.summary;
}

DbResult<Summary> putBack(DatabaseSession &session, const SafetyCopyInfo &copy, Progress &progress)
{
    auto settings = SafetySettings::read();
    if (!settings)
        return settings.error();
    return putBack(session, copy, progress, *settings, SafetyNet::confirm());
}

} // namespace tabulon::PutBack
