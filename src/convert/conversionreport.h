// The account of one conversion run: per source table, the table it became, the rows written,
// the row the server refused with its message, the values the server changed to make them fit,
// the values that could not travel as they are, and the rows left behind. The run's boxes stay
// as few as they are; this account goes into a file the operator can read afterwards.
#pragma once

#include <QString>
#include <QStringList>

#include <vector>

namespace tabulon {

struct TableAccount final {
    QString source;             // the source table's name
    QString table;              // as created (sanitised)
    bool created = false;       // false when its "Create Table" failed both times
    bool reached = true;        // false when the run stopped before this table
    QString holder;             // the source table whose rows the table of this name holds, when
                                // another source table of the run made it first
    qint64 leftBehind = 0;      // source rows not copied: after a refused row, of a table not
                                // created or not reached, or not read from the source
    qint64 written = 0;         // rows the server took
    qint64 refused = 0;         // rows the server or the source refused (the copy stops there)
    qint64 tooLong = 0;         // of them, rows whose statement the server's packet limit would
                                // not take (not sent)
    QString firstRefusal;       // the message of the first of them, or why the source gave no rows
    qint64 changed = 0;         // warnings the server gave while taking the rows
    QStringList changeMessages; // the first few of them, as the server worded them
    qint64 notCarried = 0;      // values whose text cannot travel through a statement unchanged
};

class ConversionReport final {
public:
    // The different messages of a table that the report keeps; the counts take every one.
    static constexpr int kMessagesKept = 5;

    void start(const QString &source, const QString &database, bool structureOnly);
    // Ends the run with a reason that stopped it before or between tables ("" when it ran out).
    void setStopped(const QString &reason) { m_stopped = reason; }
    // The account of source table `source`: the last one when it is that table's, else a new one
    // (named `source` until it is created under its sanitised name).
    TableAccount &table(const QString &source);
    // The account of the table created as `name`: the last one when it is that table's, else a
    // new one.
    TableAccount &created(const QString &name);
    const std::vector<TableAccount> &tables() const { return m_tables; }
    const QString &stopped() const { return m_stopped; }

    qint64 written() const;
    qint64 refused() const;
    qint64 changed() const;
    qint64 notCarried() const;
    qint64 leftBehind() const;
    qint64 tooLong() const;

    // The whole account as text, one block per table.
    QString text() const;
    // One line for a status bar: the counts and where the whole account is.
    QString summary(const QString &path) const;

    // Where the account of the last run is kept: the program's data folder.
    static QString defaultPath();
    // Writes the account whole (or leaves the old file); false with a reason on failure.
    bool save(const QString &path, QString &reason) const;

private:
    QString m_source;
    QString m_database;
    bool m_structureOnly = false;
    QString m_stopped;
    std::vector<TableAccount> m_tables;
};

} // namespace tabulon
