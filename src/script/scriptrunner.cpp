#include "script/scriptrunner.h"

#include "db/databasesession.h"
#include "db/progress.h"

namespace tabulon::ScriptRunner {

QStringList splitStatements(const QString &script)
{
    QStringList out;
    QString current;
    QChar quote;
    const qsizetype size = script.size();
    const auto at = [&script, size](qsizetype i) { return i < size ? script.at(i) : QChar(); };
    const auto flush = [&out, &current] {
        if (!current.trimmed().isEmpty())
            out << current.trimmed();
        current.clear();
    };
    for (qsizetype i = 0; i < size; ++i) {
        const QChar c = script.at(i);
        if (!quote.isNull()) {
            current += c;
            if (c == QLatin1Char('\\') && quote != QLatin1Char('`') && i + 1 < size)
                current += script.at(++i);
            else if (c == quote)
                quote = QChar();
            continue;
        }
        // Comments are read as the server reads them: "#" and "-- " to the line's end, "/* */"
        // to its close. They are left out of the statements, except the versioned "/*!" and
        // "/*M!" forms, whose content the server runs.
        const bool dashes =
            c == QLatin1Char('-') && at(i + 1) == QLatin1Char('-') && (i + 2 >= size || at(i + 2).isSpace());
        if (c == QLatin1Char('#') || dashes) {
            while (i + 1 < size && script.at(i + 1) != QLatin1Char('\n'))
                ++i;
            current += QLatin1Char(' ');
            continue;
        }
        if (c == QLatin1Char('/') && at(i + 1) == QLatin1Char('*')) {
            const qsizetype close = script.indexOf(QLatin1String("*/"), i + 2);
            const qsizetype end = close < 0 ? size : close + 2;
            const bool versioned =
                at(i + 2) == QLatin1Char('!') || (at(i + 2) == QLatin1Char('M') && at(i + 3) == QLatin1Char('!'));
            current += versioned ? script.mid(i, end - i) : QStringLiteral(" ");
            i = end - 1;
            continue;
        }
        if (c == QLatin1Char('\'') || c == QLatin1Char('"') || c == QLatin1Char('`'))
            quote = c;
        if (c == QLatin1Char(';')) {
            flush();
            continue;
        }
        current += c;
    }
    flush();
    return out;
}

Summary runStatements(DatabaseSession &session, const QStringList &statements, Progress &progress)
{
    Summary summary;
    progress.begin(static_cast<int>(statements.size()));
    for (const QString &statement : statements) {
        if (progress.stopRequested()) {
            summary.stopped = true;
            break;
        }
        progress.step(statement.left(80));
        ++summary.run;
        if (const DbError e = session.execute(statement))
            summary.failures.push_back({statement, e.description});
    }
    progress.end();
    return summary;
}

QString summaryText(const Summary &summary)
{
    QString text = QStringLiteral("%1 statements run, %2 failed").arg(summary.run).arg(summary.failures.size());
    if (summary.stopped)
        text += QLatin1String(" (stopped)");
    text += QLatin1Char('\n');
    for (const Failure &f : summary.failures)
        text += QLatin1String("\n") + f.statement + QLatin1String("\n    ") + f.error + QLatin1Char('\n');
    return text;
}

} // namespace tabulon::ScriptRunner
