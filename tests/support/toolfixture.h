// What the window tests of the tools share: a scratch database, the main window with every tool
// registered, the operator that answers its boxes, and what the main window's session sent.
#pragma once

#include "app/mdiform1.h"
#include "app/toolcatalog.h"
#include "db/dberror.h"
#include "operator.h"
#include "testdb.h"

#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

namespace tabulon::test {

// The run-time error report of a statement sent on a closed session.
inline QString closedReport()
{
    return Dialogs::runtimeErrorText(DbError::generic(qs("Operation is not allowed when the object is closed.")));
}

// The run-time error report of a statement the server refused with `description`.
inline QString serverReport(const QString &description)
{
    return qs("Run-time error '-2147467259 (80004005)':\n\n") + description;
}

template <typename W> W *child(const QObject *w, const char *name)
{
    return w->findChild<W *>(qs(name));
}

inline void click(const QObject *w, const char *button)
{
    auto *b = child<QPushButton>(w, button);
    QVERIFY2(b, button);
    b->click();
}

class ToolFixture {
protected:
    void createDatabase(const char *name)
    {
        m_db = std::make_unique<ScratchDatabase>(qs(name));
        QVERIFY_DB(m_db->error());
    }
    // The main window, its program folder `programFolder`.
    void openMain(const QString &programFolder = {})
    {
        closeMain(); // one operator at a time: the one going uninstalls itself
        m_operator = std::make_unique<Operator>();
        m_main =
            std::make_unique<MDIForm1>(AppEnvironment{m_settingsDir.filePath(qs("settings.ini")), {}, programFolder});
        registerTools(*m_main);
        m_main->resize(1000, 700);
        m_main->show();
    }
    void closeMain()
    {
        m_main.reset();
        m_operator.reset();
    }
    // Opens the tool of a menu command on a fresh session.
    QWidget *openTool(const char *command)
    {
        markLog();
        m_main->enableAllMenus();
        m_main->menuItem(qs(command))->trigger();
        return m_main->toolWindow(qs(command));
    }
    DatabaseSession &session() { return *m_main->session(); }
    // The server's query log is shared and large: rather than counting what is logged already,
    // the session starts over on a new connection whose log is empty.
    void markLog() { QVERIFY_DB(openSession(session(), m_db->name())); }
    QStringList sent() { return statementsReceived(m_db->admin(), session().connectionId()); }

    std::unique_ptr<ScratchDatabase> m_db;
    QTemporaryDir m_settingsDir;
    std::unique_ptr<MDIForm1> m_main;
    std::unique_ptr<Operator> m_operator;
};

} // namespace tabulon::test
