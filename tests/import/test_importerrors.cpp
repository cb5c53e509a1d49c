// The refusals of the Import Data window against a real server, with the sample Access file as
// the source: a new table without a name, no table to import into, a closed session, a target
// table dropped after it was chosen. Each is told once, asks nothing and writes nothing.
#include "import/frmimportdata.h"
#include "toolfixture.h"

#include <QComboBox>
#include <QFile>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpression>

using namespace tabulon;
using namespace tabulon::test;

class TestImportErrors final : public QObject, ToolFixture {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup() { closeMain(); }

    void importRefusals_data();
    void importRefusals();

private:
    QTemporaryDir m_dir;
};

void TestImportErrors::initTestCase()
{
    createDatabase("importerr");
    QVERIFY(QFile::copy(qs(TABULON_FIXTURES_DIR "/access/nwind.mdb"), m_dir.filePath(qs("nwind.mdb"))));
}

void TestImportErrors::init()
{
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS imported, existing"), qs("CREATE TABLE existing (ShipperID INT)"),
                          qs("INSERT INTO existing VALUES (7)")}));
    openMain();
}

void TestImportErrors::importRefusals_data()
{
    QTest::addColumn<QString>("into");    // "new" or "existing"
    QTest::addColumn<QString>("name");    // the new table's name, or the existing table chosen
    QTest::addColumn<QString>("trouble"); // what happens after the choices
    QTest::addColumn<QString>("told");

    // clang-format off
    QTest::newRow("a new table without a name") << "new" << "  " << "" << "Enter the name of the new table.";
    QTest::newRow("no table to import into") << "existing" << "" << "" << "Choose the table to import into.";
    QTest::newRow("closed session, new table") << "new" << "imported" << "closed" << "Operation is not allowed when the object is closed.";
    QTest::newRow("closed session, existing table") << "existing" << "existing" << "closed" << "Operation is not allowed when the object is closed.";
    QTest::newRow("existing table dropped after it was chosen") << "existing" << "existing" << "dropped" << "Table '%1.existing' doesn't exist";
    // clang-format on
}

void TestImportErrors::importRefusals()
{
    QFETCH(QString, into);
    QFETCH(QString, name);
    QFETCH(QString, trouble);
    QFETCH(QString, told);
    openTool("mnuimpdata");
    QVERIFY(!m_operator->modals.isEmpty());
    QPointer<frmimportdata> w = qobject_cast<frmimportdata *>(m_operator->modals.last());
    QVERIFY(w);
    m_operator->chosenFile = m_dir.filePath(qs("nwind.mdb"));
    w->findChild<QPushButton *>(qs("cmdbrowse"))->click();
    auto *table = w->findChild<QComboBox *>(qs("cbotable"));
    table->setCurrentIndex(table->findText(qs("Shippers")));
    QVERIFY2(table->currentText() == qs("Shippers"), qPrintable(m_operator->told.join(u'/')));
    if (into == qs("new")) {
        w->findChild<QRadioButton *>(qs("optnew"))->setChecked(true);
        w->findChild<QLineEdit *>(qs("txtnewtable"))->setText(name);
    } else {
        w->findChild<QRadioButton *>(qs("optexisting"))->setChecked(true);
        auto *target = w->findChild<QComboBox *>(qs("cbotarget"));
        target->setCurrentIndex(target->findText(name));
    }
    if (trouble == qs("closed"))
        session().close();
    else if (trouble == qs("dropped"))
        QVERIFY_DB(m_db->run({qs("DROP TABLE existing")}));
    const unsigned long id = session().connectionId();
    w->findChild<QPushButton *>(qs("cmdimport"))->click();
    QCOMPARE(m_operator->told, QStringList{QString(told).replace(qs("%1"), m_db->name())});
    QCOMPARE(m_operator->asked, QStringList());
    QCOMPARE(m_operator->runtimeErrors, QStringList());
    if (trouble != qs("closed")) {
        const QStringList sent = statementsReceived(m_db->admin(), id);
        QCOMPARE(sent.filter(QRegularExpression(qs("^(CREATE|INSERT)"), QRegularExpression::CaseInsensitiveOption)),
                 QStringList());
    }
    QCOMPARE(m_db->rows(qs("SHOW TABLES LIKE 'imported'")), QStringList());
    if (trouble != qs("dropped"))
        QCOMPARE(m_db->rows(qs("SELECT * FROM existing")), sl({"7"}));
}

QTEST_MAIN(TestImportErrors)
#include "test_importerrors.moc"
