// The refusals of the folders and files window through the main window's menu and pop-up, on a
// real temporary installation folder: a command with nothing chosen, a text found aFile, a
// typed path that is no folder. Each is told once, asks nothing more and changes nothing on disk.
#include "app/mdiform1.h"
#include "app/toolcatalog.h"
#include "files/renamefolders.h"
#include "files.h"
#include "operator.h"
#include "testdb.h"

#include <QAction>
#include <QDir>
#include <QDirIterator>
#include <QLineEdit>
#include <QPointer>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidget>

using namespace tabulon;
using namespace tabulon::test;

class TestFilesErrors final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void nothingToActOn_data();
    void nothingToActOn();

private:
    QString path(const char *relative) const { return m_dir.filePath(qs(relative)); }
    // Every file and folder below the installation folder, with each file's content.
    QStringList disk() const
    {
        QStringList out;
        QDirIterator it(m_dir.path(), QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString p = it.next();
            out << QDir(m_dir.path()).relativeFilePath(p) + qs(": ") + QString::fromUtf8(read(p));
        }
        out.sort();
        return out;
    }

    QTemporaryDir m_dir;
    QTemporaryDir m_settingsDir;
    std::unique_ptr<Operator> m_operator;
    std::unique_ptr<MDIForm1> m_main;
};

void TestFilesErrors::init()
{
    QDir(m_dir.path()).removeRecursively();
    QDir().mkpath(m_dir.path());
    write(path("Orvita.ini"), "[db]\r\nname=orvita\r\n");
    write(path("reports/orvita_1.rpt"), "Orvita report");
    write(path("bin/orvita.exe"), QByteArray("MZ\0orvita", 9));
    m_operator = std::make_unique<Operator>();
    m_main = std::make_unique<MDIForm1>(AppEnvironment{m_settingsDir.filePath(qs("settings.ini")), {}, m_dir.path()});
    registerTools(*m_main);
    m_main->enableAllMenus();
}

void TestFilesErrors::cleanup()
{
    m_main.reset();
    m_operator.reset();
}

void TestFilesErrors::nothingToActOn_data()
{
    QTest::addColumn<QString>("command"); // a pop-up command, or "typed" for a path typed and Enter
    QTest::addColumn<QString>("chosen");  // the tree item made current ("" the installation folder)
    QTest::addColumn<QStringList>("typed");
    QTest::addColumn<QString>("told");

    QTest::newRow("rename names, none chosen") << "mnureplacestr"
                                               << "" << QStringList() << "Choose the folders or files to rename first.";
    QTest::newRow("rename one, none chosen") << "mnuren"
                                             << "" << QStringList() << "Choose a folder or file to rename first.";
    QTest::newRow("delete, none chosen") << "mnuDelete"
                                         << "" << QStringList() << "Choose the folders or files to delete first.";
    QTest::newRow("rename names, text in no name") << "mnureplacestr"
                                                   << "bin" << sl({"zzz", "y"}) << "No item name holds \"zzz\".";
    QTest::newRow("replace in files, text in no file") << "mnurepfiles"
                                                       << "" << sl({"zzz", "y"}) << "No text file holds \"zzz\".";
    QTest::newRow("installation folder missing") << "missing"
                                                 << "" << QStringList() << "\"%1\" is not a folder.";
    QTest::newRow("typed path is no folder") << "typed"
                                             << "" << QStringList() << "\"%1\" is not a folder.";
}

void TestFilesErrors::nothingToActOn()
{
    QFETCH(QString, command);
    QFETCH(QString, chosen);
    QFETCH(QStringList, typed);
    QFETCH(QString, told);
    const QStringList before = disk();
    const QString aFile = path("reports/orvita_1.rpt");
    const QString gone = path("gone");
    if (command == qs("missing")) {
        // The window opens on the program's folder, which is not there.
        m_main = std::make_unique<MDIForm1>(AppEnvironment{m_settingsDir.filePath(qs("settings.ini")), {}, gone});
        registerTools(*m_main);
        m_main->enableAllMenus();
    }
    m_main->menuItem(qs("mnurenfld"))->trigger();
    QVERIFY(!m_operator->modals.isEmpty());
    QPointer<RenameFolders> w = qobject_cast<RenameFolders *>(m_operator->modals.last());
    QVERIFY(w);
    auto *tree = w->findChild<QTreeWidget *>(qs("TreeView1"));
    if (command == qs("missing")) {
        QCOMPARE(m_operator->told, QStringList{told.arg(QDir::toNativeSeparators(gone))});
        QCOMPARE(tree->topLevelItem(0)->childCount(), 0);
        QCOMPARE(disk(), before);
        return;
    }
    tree->clearSelection();
    QTreeWidgetItem *item = tree->topLevelItem(0);
    if (!chosen.isEmpty()) {
        const auto found = tree->findItems(chosen, Qt::MatchExactly | Qt::MatchRecursive);
        QCOMPARE(found.size(), 1);
        item = found.first();
    }
    tree->setCurrentItem(item);
    m_operator->typed = typed;
    if (command == qs("typed")) {
        auto *box = w->findChild<QLineEdit *>(qs("txtfolder"));
        box->setText(aFile);
        QTest::keyClick(box, Qt::Key_Return);
        QCOMPARE(w->folder(), QDir(m_dir.path()).absolutePath()); // still the folder it showed
    } else {
        m_main->menuItem(command)->trigger();
    }
    QCOMPARE(m_operator->told.value(m_operator->told.size() - 1), told.arg(aFile));
    QCOMPARE(m_operator->told.size(), typed.isEmpty() ? 1 : 3); // the input prompts come first
    QCOMPARE(m_operator->asked, QStringList());
    QCOMPARE(disk(), before);
}

QTEST_MAIN(TestFilesErrors)
#include "test_fileserrors.moc"
