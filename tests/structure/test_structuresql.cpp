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
    void statements();
};

// Whole, with the closing semicolon and trailing blanks, which the server's log does not show.
void TestStructureSql::statements()
{
    using namespace StructureSql;
    QCOMPARE(addField(qs("bill"), qs("paid"), qs("int")), qs("ALTER table bill Add paid int;"));
    // An empty answer keeps the row's own name or type; a blank one is an answer.
    QCOMPARE(changeField(qs("bill"), qs("paid"), answerOr({}, qs("paid")), answerOr({}, qs("int(11)"))),
             qs("ALTER table bill change paid paid int(11);"));
    QCOMPARE(addField(qs("t"), answerOr(qs(" "), qs("x")), qs("int")), qs("ALTER table t Add   int;"));
    QCOMPARE(dropField(qs("bill"), qs("paid")), qs("ALTER table bill Drop column paid;"));
    QCOMPARE(createTable(qs(" t "), {{qs("a"), qs("int")}}), qs("Create Table t (a int);"));
}

QTEST_MAIN(TestStructureSql)
#include "test_structuresql.moc"
