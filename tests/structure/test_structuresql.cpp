// The statement text of the structure tools and their two row rules: which listed columns
// are shown, and the names a grid holds after Insert Row.
#include "structure/structuresql.h"
#include "testdb.h"

#include <QTest>

using namespace tabulon;
using namespace tabulon::test;
using StructureSql::ColumnMatch;

class TestStructureSql final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void statements_data();
    void statements();
    void matchColumn_data();
    void matchColumn();
    void namesAfterInsert_data();
    void namesAfterInsert();
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
    QTest::newRow("create, empty row") << createTable(qs("t"), {{qs("a"), qs("int")}, {{}, {}}})
                                       << qs("Create Table t (a int, );");
    QTest::newRow("drop table untrimmed") << dropTable(qs("  Clients ")) << qs("Drop Table   Clients ");
}

void TestStructureSql::statements()
{
    QFETCH(QString, built);
    QFETCH(QString, expected);
    QCOMPARE(built, expected);
}

void TestStructureSql::matchColumn_data()
{
    QTest::addColumn<QString>("column");
    QTest::addColumn<QString>("filter");
    QTest::addColumn<ColumnMatch>("expected");
    QTest::newRow("no filter") << qs("code") << QString() << ColumnMatch::Shown;
    QTest::newRow("blank filter") << qs("code") << qs("   ") << ColumnMatch::Shown;
    QTest::newRow("same name") << qs("code") << qs("code") << ColumnMatch::Found;
    QTest::newRow("other case, blanks") << qs("Code") << qs(" CODE ") << ColumnMatch::Found;
    QTest::newRow("other name") << qs("code_no") << qs("code") << ColumnMatch::Skipped;
}

void TestStructureSql::matchColumn()
{
    QFETCH(QString, column);
    QFETCH(QString, filter);
    QFETCH(ColumnMatch, expected);
    QCOMPARE(StructureSql::matchColumn(column, filter), expected);
}

void TestStructureSql::namesAfterInsert_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<int>("current");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("middle row") << sl({"Field Name", "A", "B", "C"}) << 2 << sl({"Field Name", "A", "B", "B", "B"});
    QTest::newRow("first row") << sl({"Field Name", "A", "B"}) << 1 << sl({"Field Name", "A", "A", "A"});
    QTest::newRow("no current row") << sl({"Field Name", "A"}) << -1 << sl({"Field Name", "A", ""});
}

void TestStructureSql::namesAfterInsert()
{
    QFETCH(QStringList, names);
    QFETCH(int, current);
    QFETCH(QStringList, expected);
    QCOMPARE(StructureSql::namesAfterInsert(names, current), expected);
}

QTEST_MAIN(TestStructureSql)
#include "test_structuresql.moc"
