// Connection strings as the program writes them, and as operators may type the server.
#include "db/connectionstring.h"

#include <QTest>

using namespace tabulon;

class TestConnectionString final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void targets_data();
    void targets();
    void bracedValuesKeepSeparators();
};

void TestConnectionString::targets_data()
{
    QTest::addColumn<QString>("connection");
    QTest::addColumn<QString>("host");
    QTest::addColumn<uint>("port");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("database");

    QTest::newRow("setup") << QStringLiteral("PROVIDER=MSDASQL;driver={MySQL};server=localhost;uid=dbop;pwd=secret;database=Orvita;")
                           << QStringLiteral("localhost") << 0u << QStringLiteral("dbop") << QStringLiteral("secret")
                           << QStringLiteral("Orvita");
    QTest::newRow("restore spelling") << QStringLiteral("Provider=MSDASQL;Driver={MySql};SERVER=db1;UID=u;PWD=p;DATABASE=x")
                                      << QStringLiteral("db1") << 0u << QStringLiteral("u") << QStringLiteral("p")
                                      << QStringLiteral("x");
    QTest::newRow("empty password") << QStringLiteral("server=h;uid=dbop;pwd=;database=mysql;") << QStringLiteral("h")
                                    << 0u << QStringLiteral("dbop") << QString() << QStringLiteral("mysql");
    QTest::newRow("host and port") << QStringLiteral("server=127.0.0.1:13306;uid=a;pwd=b;database=c;")
                                   << QStringLiteral("127.0.0.1") << 13306u << QStringLiteral("a") << QStringLiteral("b")
                                   << QStringLiteral("c");
    QTest::newRow("bad port stays in host") << QStringLiteral("server=h:abc;uid=a;")
                                            << QStringLiteral("h:abc") << 0u << QStringLiteral("a") << QString() << QString();
    QTest::newRow("blanks around names") << QStringLiteral(" server = h ;uid=a") << QStringLiteral(" h ") << 0u
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

void TestConnectionString::bracedValuesKeepSeparators()
{
    const auto a = parseConnectionAttributes(QStringLiteral("driver={My;Sql=x}}y};pwd={a;b};uid=z"));
    QCOMPARE(a.value(QStringLiteral("driver")), QStringLiteral("My;Sql=x}y"));
    QCOMPARE(a.value(QStringLiteral("pwd")), QStringLiteral("a;b"));
    QCOMPARE(a.value(QStringLiteral("uid")), QStringLiteral("z"));
}

QTEST_APPLESS_MAIN(TestConnectionString)
#include "test_connectionstring.moc"
