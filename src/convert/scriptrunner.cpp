#include "convert/scriptrunner.h"

#include "db/databasesession.h"
#include "db/progress.h"

namespace tabulon::ScriptRunner {

QStringList splitStatements(const QString &script)
{
    QStringList out;
    QString current;
    QChar quote;
    for (qsizetype i = 0; i < script.size(); ++i) {
        const QChar c = script.at(i);
        if (!quote.isNull()) {
            current += c;
            if (c == QLatin1Char('\\') && quote != QLatin1Char('`') && i + 1 < script.size())
                current += script.at(++i);
            else if (c == quote)
                quote = QChar();
            continue;
        }
        if (c == QLatin1Char('\'') || c == QLatin1Char('"') || c == QLatin1Char('`'))
            quote = c;
        if (c == QLatin1Char(';')) {
            if (!current.trimmed().isEmpty())
                out << current.trimmed();
            current.clear();
            continue;
        }
        current += c;
    }
    if (!current.trimmed().isEmpty())
        out << current.trimmed();
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
