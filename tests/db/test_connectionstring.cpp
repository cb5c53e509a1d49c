// Connection strings as the program writes them, and as operators may type the
// server.
#include "db/connectionstring.h"
#include "testdb.h"

#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

class TestConnectionString final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void targets_data();
    void targets();
};

// clang-format off
void TestConnectionString::targets_data()
{
    QTest::addColumn<QString>("connection");
    QTest::addColumn<QStringList>("target"); // host, port, user, password, database
    QTest::newRow("as written") << qs("PROVIDER=MSDASQL;driver={MySQL};server=127.0.0.1:13306;uid=dbop;" "pwd=;database=Orvita;") << sl({"127.0.0.1", "13306", "dbop", "", "Orvita"});
    QTest::newRow("braces") << qs("SERVER=h;UID=u;PWD={a;b=}}c};DATABASE=x") << sl({"h", "0", "u", "a;b=}c", "x"});
    QTest::newRow("bad port") << qs(" server = h:abc ;uid=a") << sl({" h:abc ", "0", "a", "", ""});
}
// clang-format on

void TestConnectionString::targets()
{
    QFETCH(QString, connection);
    const ConnectionTarget t = connectionTargetFrom(connection);
    QTEST((QStringList{t.host, QString::number(t.port), t.user, t.password, t.database}), "target");
}

QTEST_APPLESS_MAIN(TestConnectionString)
#include "test_connectionstring.moc"
