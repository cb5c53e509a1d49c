#include "script/scriptrunner.h"

#include "db/databasesession.h"
#include "db/progress.h"

namespace tabulon::ScriptRunner {

namespace {

// Dashes the server read as minus signs (a ";" or a comment came right after them) go out
// apart: before a blank or the end, "--" would start a comment.
void separateTrailingDashes(QString &text)
{
    qsizetype dashes = 0;
    while (dashes < text.size() && text.at(text.size() - 1 - dashes) == QLatin1Char('-'))
        ++dashes;
    if (dashes > 1)
        text = text.left(text.size() - dashes) + QStringList(dashes, QStringLiteral("-")).join(QLatin1Char(' '));
}

} // namespace

QStringList splitStatements(const QString &script)
{
    QStringList out;
    QString current;
    QChar quote;
    const qsizetype size = script.size();
    const auto at = [&script, size](qsizetype i) { return i < size ? script.at(i) : QChar(); };
    const auto flush = [&out, &current, &quote] {
        QString statement = current.trimmed();
        current.clear();
        if (quote.isNull())
            separateTrailingDashes(statement);
        if (!statement.isEmpty())
            out << statement;
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
        // Comments are read as the server reads them: "#", and "--" before a blank or a control
        // character, to the line's end, "/* */" to its close. They are left out of the
        // statements, except the versioned "/*!" and "/*M!" forms, whose content the server runs.
        const ushort after = at(i + 2).unicode(); // the end reads as 0
        const bool dashes = c == QLatin1Char('-') && at(i + 1) == QLatin1Char('-') && (after <= 0x20 || after == 0x7f);
        if (c == QLatin1Char('#') || dashes) {
            while (i + 1 < size && script.at(i + 1) != QLatin1Char('\n'))
                ++i;
            separateTrailingDashes(current);
            current += QLatin1Char(' ');
            continue;
        }
        if (c == QLatin1Char('/') && at(i + 1) == QLatin1Char('*')) {
            const qsizetype close = script.indexOf(QLatin1String("*/"), i + 2);
            const qsizetype end = close < 0 ? size : close + 2;
            const bool versioned =
                at(i + 2) == QLatin1Char('!') || (at(i + 2) == QLatin1Char('M') && at(i + 3) == QLatin1Char('!'));
            if (!versioned)
                separateTrailingDashes(current);
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
