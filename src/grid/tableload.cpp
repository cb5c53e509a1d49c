#include "grid/tableload.h"

#include "db/databasesession.h"
#include "grid/griddata.h"

#include <chrono>
#include <exception>

namespace tabulon {

Q_LOGGING_CATEGORY(lcTableLoad, "tabulon.load", QtWarningMsg)

namespace {

const QString kTooBigText = QStringLiteral(
    "Not enough memory to hold the result: a column of it holds more than 4 GiB of text, or memory ran out.");

// Ends the statement running on `session` from a connection of its own. A statement that has
// already ended is not touched (the server only ends a running one), so a late request is
// harmless; when it cannot be sent, the rest of the rows are read off instead, which only
// takes longer.
void endRunningStatement(const DatabaseSession &session)
{
    DatabaseSession other;
    if (session.openSibling(other))
        return;
    (void)other.execute(QStringLiteral("KILL QUERY %1").arg(session.connectionId()));
}

} // namespace

TableLoad TableLoad::read(DatabaseSession &session, const QString &table, int firstField, const Open &open,
                          const Pace &pace, const Pause &pause)
{
    using Clock = std::chrono::steady_clock;
    TableLoad load;
    GridData *grid = nullptr;
    const auto onFields = [&](const std::vector<FieldInfo> &fields) {
        qCDebug(lcTableLoad) << "fields";
        for (const FieldInfo &f : fields)
            load.names << f.name;
        grid = &open(load.names);
        grid->numberAppendedRows(0);
        return DbError{};
    };

    const DbError stop = DbError::generic(QStringLiteral("stopped"));
    const qsizetype rowsPerCheck = std::max(pace.rowsPerCheck, 1);
    const auto interval = std::chrono::milliseconds(std::max(pace.pauseMs, 0));
    Clock::time_point lastPause = Clock::now();
    qsizetype untilCheck = rowsPerCheck;
    const auto pauseWhenDue = [&]() -> DbError {
        if (Clock::now() - lastPause < interval)
            return {};
        qCDebug(lcTableLoad) << "pause at" << load.rows << "rows";
        if (pause(load.rows)) {
            endRunningStatement(session);
            load.stopped = true;
            return stop;
        }
        lastPause = Clock::now();
        qCDebug(lcTableLoad) << "reading";
        return {};
    };
    const auto onRow = [&](std::span<const std::optional<QByteArrayView>> cells) -> DbError {
        try {
            int col = firstField;
            for (const std::optional<QByteArrayView> &cell : cells) {
                if (cell)
                    grid->appendCell(col++, *cell);
                else
                    grid->appendNullCell(col++);
            }
            ++load.rows;
        } catch (const std::exception &) {
            return DbError::generic(kTooBigText);
        }
        if (--untilCheck > 0 || pace.pauseMs < 0 || !pause)
            return {};
        untilCheck = rowsPerCheck;
        return pauseWhenDue();
    };
    // A server slow to send the next rows would otherwise hold the window for as long as it
    // takes.
    const auto whileWaiting = [&]() -> DbError { return pauseWhenDue(); };

    qCDebug(lcTableLoad) << "select";
    const DbError error = session.streamQuery(
        QStringLiteral("SELECT * FROM ") + DatabaseSession::quoteIdentifier(table), onFields, onRow,
        pace.pauseMs > 0 && pause ? DatabaseSession::Waiting(whileWaiting) : DatabaseSession::Waiting(),
        std::max(pace.pauseMs / 2, 1));
    if (error && !load.stopped)
        load.error = error;
    qCDebug(lcTableLoad) << "read ended at" << load.rows << "rows";
    return load;
}

} // namespace tabulon
