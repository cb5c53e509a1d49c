#include "db/writemode.h"

#include "db/databasesession.h"

#include <QStringList>

namespace tabulon {

QString SessionSql::writeSqlMode(const QString &serverMode)
{
    QStringList modes;
    for (const QString &mode : serverMode.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QString m = mode.trimmed().toUpper();
        if (m != QLatin1String("STRICT_TRANS_TABLES") && m != QLatin1String("STRICT_ALL_TABLES") &&
            m != QLatin1String("NO_BACKSLASH_ESCAPES") && !m.isEmpty())
            modes << m;
    }
    modes << QStringLiteral("NO_BACKSLASH_ESCAPES");
    return modes.join(QLatin1Char(','));
}

WriteSessionMode::WriteSessionMode(DatabaseSession &session) : m_session(session)
{
    auto mode = session.openQuery(QStringLiteral("SELECT @@SESSION.sql_mode"));
    if (!mode.ok()) {
        m_error = mode.error();
        return;
    }
    if (!mode->isOpen() || mode->recordCount() != 1) {
        m_error = DbError::generic(QStringLiteral("The server did not tell its SQL mode."));
        return;
    }
    m_saved = mode->text(0, 0);
    m_error = session.execute(QStringLiteral("SET SESSION sql_mode='%1'").arg(SessionSql::writeSqlMode(m_saved)));
    m_set = !m_error;
}

WriteSessionMode::~WriteSessionMode()
{
    if (m_set)
        (void)m_session.execute(QStringLiteral("SET SESSION sql_mode='%1'").arg(m_saved));
}

} // namespace tabulon
