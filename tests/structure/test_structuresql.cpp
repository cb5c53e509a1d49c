// The statement text of the structure tools, whole. Which columns a listing shows and the
// names Insert Row copies down are checked through the windows.
#include "structure/structuresql.h"
#include "testdb.h"

#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

class TestStructureSql final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void statements_data();
    void statements();
};

void TestStructureSql::statements_data()
{
    QTest::addColumn<QString>("built");
    QTest::addColumn<QString>("expected");
    using namespace StructureSql;
    // The closing semicolon and trailing blanks, which the server's log does not show.
    QTest::newRow("add") << addField(qs("bill"), qs("paid"), qs("int")) << qs("ALTER table bill Add paid int;");
    QTest::newRow("change, answers kept")
        << changeField(qs("bill"), qs("paid"), answerOr({}, qs("paid")), answerOr({}, qs("int(11)")))
        << qs("ALTER table bill change paid paid int(11);");
    QTest::newRow("blank answer is an answer")
        << addField(qs("t"), answerOr(qs(" "), qs("x")), qs("int")) << qs("ALTER table t Add   int;");
    QTest::newRow("drop column") << dropField(qs("bill"), qs("paid")) << qs("ALTER table bill Drop column paid;");
    QTest::newRow("create, one field") << createTable(qs(" t "), {{qs("a"), qs("int")}})
                                       << qs("Create Table t (a int);");
}

void TestStructureSql::statements()
{
    QFETCH(QString, built);
    QFETCH(QString, expected);
    QCOMPARE(built, expected);
}

QTEST_MAIN(TestStructureSql)
#include "test_structuresql.moc"
