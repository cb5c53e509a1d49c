// The refusals of the Import Data window against a real server, with the sample Access file as
// the source: a damaged source, no field ticked, a new table without a name or with a name
// taken, no table to import into or none of its columns ticked, a closed session, a target
// table dropped after it was chosen. Each is told once, asks nothing and writes nothing.
#include "import/frmimportdata.h"
#include "toolfixture.h"

#include <QComboBox>
#include <QFile>
#include <QLineEdit>
#include <QListWidget>
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
    QFile damaged(m_dir.filePath(qs("damaged.mdb")));
    QVERIFY(damaged.open(QIODevice::WriteOnly));
    damaged.write(QByteArray("plain text, not a database\n").repeated(300));
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
    QTest::addColumn<QString>("trouble"); // what happens after the choices, or the fields ticked
    QTest::addColumn<QString>("told");

    // clang-format off
    QTest::newRow("damaged source") << "new" << "imported" << "damaged" << "Choose a source file and one of its tables first.";
    QTest::newRow("no field ticked") << "new" << "imported" << "tick none" << "No field has been selected.";
    QTest::newRow("new table already there") << "new" << "existing" << "tick ShipperID" << "Table 'existing' already exists. Nothing has been imported.\n\nEnter another name, or choose it as the existing table.";
    QTest::newRow("no ticked field matches") << "existing" << "existing" << "tick CompanyName Phone" << "None of the ticked fields matches a column of table 'existing'. Nothing has been imported.";
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
    const bool damaged = trouble == qs("damaged"); // the reader's error is told first
    m_operator->chosenFile = m_dir.filePath(damaged ? qs("damaged.mdb") : qs("nwind.mdb"));
    w->findChild<QPushButton *>(qs("cmdbrowse"))->click();
    auto *table = w->findChild<QComboBox *>(qs("cbotable"));
    table->setCurrentIndex(table->findText(qs("Shippers")));
    QVERIFY2(damaged || table->currentText() == qs("Shippers"), qPrintable(m_operator->told.join(u'/')));
    if (trouble.startsWith(qs("tick "))) {
        auto *fields = w->findChild<QListWidget *>(qs("lstfields"));
        for (int i = 0; i < fields->count(); ++i) {
            const QString field = fields->item(i)->text().section(qs("  ("), 0, 0);
            fields->item(i)->setCheckState(trouble.split(u' ').contains(field) ? Qt::Checked : Qt::Unchecked);
        }
    }
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
    QCOMPARE(m_operator->told.value(m_operator->told.size() - 1), QString(told).replace(qs("%1"), m_db->name()));
    QCOMPARE(m_operator->told.size(), damaged ? 2 : 1);
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
