// Connection strings as the program writes them, and as operators may type the server.
#include "db/connectionstring.h"

#include <QTest>

using namespace tabulon;

class TestConnectionString final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void targets_data();
    void targets();
};

void TestConnectionString::targets_data()
{
    QTest::addColumn<QString>("connection");
    QTest::addColumn<QString>("host");
    QTest::addColumn<uint>("port");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("database");

    QTest::newRow("as written")
        << QStringLiteral("PROVIDER=MSDASQL;driver={MySQL};server=127.0.0.1:13306;uid=dbop;pwd=;database=Orvita;")
        << QStringLiteral("127.0.0.1") << 13306u << QStringLiteral("dbop") << QString() << QStringLiteral("Orvita");
    QTest::newRow("braces") << QStringLiteral("SERVER=h;UID=u;PWD={a;b=}}c};DATABASE=x") << QStringLiteral("h") << 0u
                            << QStringLiteral("u") << QStringLiteral("a;b=}c") << QStringLiteral("x");
    QTest::newRow("bad port") << QStringLiteral(" server = h:abc ;uid=a") << QStringLiteral(" h:abc ") << 0u
                              << QStringLiteral("a") << QString() << QString();
}

void TestConnectionString::targets()
{
    QFETCH(QString, connection);
    const ConnectionTarget t = connectionTargetFrom(connection);
    QTEST(t.host, "host");
    QTEST(t.port, "port");
    QTEST(t.user, "user");
    QTEST(t.password, "password");
    QTEST(t.database, "database");
}

QTEST_APPLESS_MAIN(TestConnectionString)
#include "test_connectionstring.moc"
