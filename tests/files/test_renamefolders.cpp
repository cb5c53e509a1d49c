// The folders and files window through the main window's menu and pop-up, on a real temporary
// installation folder: what each change asks, what it changes on disk, its summary, and its
// undo; a folder chosen through a link; and the refusals, told once, that ask nothing more and
// change nothing on disk. The trash is a temporary one of the test's own.
#include "files.h"
#include "files/renamefolders.h"
#include "toolfixture.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDirIterator>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPointer>
#include <QTimer>
#include <QTreeWidget>

using namespace tabulon;
using namespace tabulon::test;

namespace {

// The visible names of the tree, indented by depth.
QStringList visibleNames(QTreeWidget *tree)
{
    QStringList out;
    std::function<void(QTreeWidgetItem *, int)> walk = [&](QTreeWidgetItem *item, int depth) {
        for (int i = 0; i < item->childCount(); ++i) {
            QTreeWidgetItem *child = item->child(i);
            if (child->isHidden())
                continue;
            out << QString(depth * 2, QLatin1Char(' ')) + child->text(0);
            walk(child, depth + 1);
        }
    };
    if (QTreeWidgetItem *root = tree->topLevelItem(0))
        walk(root, 0);
    return out;
}

QTreeWidgetItem *itemNamed(QTreeWidget *tree, const QString &name)
{
    const QList<QTreeWidgetItem *> found = tree->findItems(name, Qt::MatchExactly | Qt::MatchRecursive);
    return found.size() == 1 ? found.first() : nullptr;
}

} // namespace

class TestRenameFolders final : public QObject, ToolFixture {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup() { closeMain(); }

    void opensOnTheProgramFolderAndGivesTheMenuBack();
    void findMarksAndShowsOnlyTheFound();
    void renamesAskFirstAndReportCollisions();
    void replaceInFilesPreviewsCounts();
    void undoReplaceKeepsTheCopiesNotPutBack();
    void deleteMovesToTheTrashAndBack();
    void nothingToActOn_data();
    void nothingToActOn();

private:
    QString path(const char *relative) const { return m_dir.filePath(qs(relative)); }
    RenameFolders *openTool();
    // Runs a menu command; the input boxes it shows get `typed`, one text each.
    void run(const char *menu, const QStringList &typed = {})
    {
        m_operator->typed = typed;
        m_main->menuItem(qs(menu))->trigger();
    }
    QTreeWidget *tree() const { return m_tool->findChild<QTreeWidget *>(qs("TreeView1")); }
    void choose(const char *name)
    {
        QTreeWidgetItem *item = itemNamed(tree(), qs(name));
        QVERIFY2(item, name);
        tree()->setCurrentItem(item);
    }

    void undo(const char *action)
    {
        QAction *a = m_tool->findChild<QAction *>(qs(action));
        QVERIFY2(a && a->isEnabled(), action);
        a->trigger();
        QVERIFY(!a->isEnabled());
    }

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
    QTemporaryDir m_dataHome;
    QPointer<RenameFolders> m_tool;
};

void TestRenameFolders::init()
{
    qputenv("XDG_DATA_HOME", QFile::encodeName(m_dataHome.path()));
    QDir(m_dir.path()).removeRecursively();
    QDir().mkpath(m_dir.path());
    write(path("Orvita.ini"), "[db]\r\nname=orvita\r\n");
    write(path("reports/orvita_1.rpt"), "Orvita report");
    write(path("reports/orvita_2.rpt"), "other");
    write(path("reports/Orvita_1.RPT.bak"), "old");
    write(path("bin/orvita.exe"), QByteArray("MZ\0orvita", 9));
    openMain(m_dir.path());
    m_main->enableAllMenus();
}

RenameFolders *TestRenameFolders::openTool()
{
    run("mnurenfld");
    m_tool = m_operator->modals.isEmpty() ? nullptr : qobject_cast<RenameFolders *>(m_operator->modals.last());
    return m_tool;
}

void TestRenameFolders::opensOnTheProgramFolderAndGivesTheMenuBack()
{
    QVERIFY(openTool());
    QCOMPARE(m_tool->folder(), QDir(m_dir.path()).absolutePath());
    QVERIFY(!m_main->menuItem(qs("mnurenfld"))->isEnabled());
    QCOMPARE(visibleNames(tree()), sl({"bin", "  orvita.exe", "reports", "  orvita_1.rpt", "  Orvita_1.RPT.bak",
                                       "  orvita_2.rpt", "Orvita.ini"}));

    // A typed folder opens on Enter, and Enter presses no button. Typed through a link, the
    // folder is where the link leads: what the tool changes stays below that one.
    QVERIFY(QFile::link(path("bin"), m_dataHome.filePath(qs("binlink"))));
    auto *box = m_tool->findChild<QLineEdit *>(qs("txtfolder"));
    box->setText(m_dataHome.filePath(qs("binlink")));
    QTest::keyClick(box, Qt::Key_Return);
    QCOMPARE(m_tool->folder(), QFileInfo(path("bin")).canonicalFilePath());
    QCOMPARE(visibleNames(tree()), sl({"orvita.exe"}));
    QVERIFY(m_operator->prompts.isEmpty());

    // Another folder, chosen in the folder dialog.
    m_operator->chosenFolder = path("reports");
    QTest::mouseClick(m_tool->findChild<QPushButton *>(qs("cmdbrowse")), Qt::LeftButton);
    QCOMPARE(m_tool->folder(), path("reports"));
    QCOMPARE(visibleNames(tree()).size(), 3);

    // The tree's right click shows the main window's pop-up.
    QMenu *popup = m_main->popupMenu(qs("mnupopren"));
    bool shown = false;
    QTimer::singleShot(0, popup, [&] {
        shown = popup->isVisible();
        popup->close();
    });
    Q_EMIT tree()->customContextMenuRequested(QPoint(5, 5));
    QVERIFY(shown);

    m_operator->answer = Dialogs::Answer::No;
    QTest::mouseClick(m_tool->findChild<QPushButton *>(qs("cmdexit")), Qt::LeftButton);
    QCOMPARE(m_operator->asked, sl({"Are you sure you want to exit?"}));
    QVERIFY(m_tool->isVisible());
    QTest::keyClick(tree(), Qt::Key_Escape);
    QTRY_VERIFY(!m_tool);
    QVERIFY(m_main->menuItem(qs("mnurenfld"))->isEnabled());
}

void TestRenameFolders::findMarksAndShowsOnlyTheFound()
{
    // A pop-up command before the window was opened loads it without showing it.
    run("mnufindstr", sl({"1.rpt"}));
    m_tool = qobject_cast<RenameFolders *>(m_main->ensureToolWindow(qs("mnurenfld")));
    QVERIFY(m_tool && !m_tool->isVisible());
    QCOMPARE(m_tool->findChild<QLabel *>(qs("lblstatus"))->text(), qs("2 names found"));
    QVERIFY(itemNamed(tree(), qs("orvita_1.rpt"))->font(0).bold());
    QVERIFY(!itemNamed(tree(), qs("orvita_2.rpt"))->font(0).bold());

    run("mnushowfind");
    QVERIFY(m_main->menuItem(qs("mnushowfind"))->isChecked() && !m_main->menuItem(qs("mnushowall"))->isChecked());
    QCOMPARE(visibleNames(tree()), sl({"reports", "  orvita_1.rpt", "  Orvita_1.RPT.bak"}));
    m_tool->findChild<QCheckBox *>(qs("chkcase"))->setChecked(true);
    run("mnufindstr", sl({"RPT"}));
    QCOMPARE(visibleNames(tree()), sl({"reports", "  Orvita_1.RPT.bak"}));
    run("mnufindstr", sl({"nowhere"}));
    QCOMPARE(m_operator->told.last(), qs("No folder or file name holds \"nowhere\"."));
    QCOMPARE(visibleNames(tree()), QStringList());
    run("mnushowall");
    QCOMPARE(visibleNames(tree()).size(), 7);
}

void TestRenameFolders::renamesAskFirstAndReportCollisions()
{
    QVERIFY(openTool());
    // Every file below the chosen folder; one new name is taken already.
    choose("reports");
    write(path("reports/client_2.rpt"), "taken");
    m_operator->answer = Dialogs::Answer::No;
    run("mnurenfiles", sl({"orvita", "client"}));
    QCOMPARE(m_operator->asked.last(),
             qs("Rename 2 files?\n\nreports/Orvita_1.RPT.bak  ->  client_1.RPT.bak\nreports/orvita_1.rpt  ->  "
                "client_1.rpt\n\n1 file cannot be renamed and will be left alone."));
    QVERIFY(QFile::exists(path("reports/orvita_1.rpt")));

    m_operator->answer = Dialogs::Answer::Yes;
    run("mnurenfiles", sl({"orvita", "client"}));
    QCOMPARE(m_operator->told.last(), qs("Renamed 2 files.\n\nLeft alone: 1\n") + path("reports/orvita_2.rpt") +
                                          qs(": a file or folder of that name already exists"));
    QCOMPARE(read(path("reports/client_2.rpt")), QByteArray("taken"));
    QVERIFY(itemNamed(tree(), qs("client_1.rpt")));

    // One item by a typed name.
    choose("Orvita.ini");
    run("mnuren", sl({"Tabulon.ini"}));
    QCOMPARE(m_operator->told.last(), qs("Renamed 1 item."));
    QCOMPARE(read(path("Tabulon.ini")), QByteArray("[db]\r\nname=orvita\r\n"));

    // Undo takes back the last renaming only: the file's new name.
    undo("mnuundoren");
    QCOMPARE(m_operator->told.last(), qs("Renamed back 1 item."));
    QCOMPARE(read(path("Orvita.ini")), QByteArray("[db]\r\nname=orvita\r\n"));
    QVERIFY(QFile::exists(path("reports/client_1.rpt")));

    // Cancel on the second box drops the change; an empty answer removes the text.
    choose("reports");
    const qsizetype asked = m_operator->asked.size();
    run("mnurenfiles", {qs("client_"), QString()});
    QCOMPARE(m_operator->asked.size(), asked);
    run("mnurenfiles", QStringList{qs("client_"), qs("")});
    QCOMPARE(m_operator->told.last(), qs("Renamed 3 files."));
    QCOMPARE(read(path("reports/2.rpt")), QByteArray("taken"));
    undo("mnuundoren");
    QCOMPARE(m_operator->told.last(), qs("Renamed back 3 items."));
    QCOMPARE(read(path("reports/client_2.rpt")), QByteArray("taken"));
}

void TestRenameFolders::replaceInFilesPreviewsCounts()
{
    write(path(".orvita/cache.ini"), "orvita");
    write(path("reports/.orvita.rpt"), "orvita");
    QVERIFY(openTool());
    m_operator->answer = Dialogs::Answer::No;
    // Match Case and the hidden files' box decide what the preview holds.
    m_tool->findChild<QCheckBox *>(qs("chkcase"))->setChecked(true);
    m_tool->findChild<QCheckBox *>(qs("chkhidden"))->setChecked(true);
    run("mnurepfiles", sl({"orvita", "Tabulon"}));
    QCOMPARE(m_operator->asked.last(), qs("Replace 3 occurrences of \"orvita\" with \"Tabulon\" in 3 files?\n\n"
                                          ".orvita/cache.ini (1)\n    1: orvita\n"
                                          "reports/.orvita.rpt (1)\n    1: orvita\n"
                                          "Orvita.ini (1)\n    2: name=orvita\n\n1 file will be left alone."));
    QCOMPARE(read(path("Orvita.ini")), QByteArray("[db]\r\nname=orvita\r\n"));
    m_tool->findChild<QCheckBox *>(qs("chkcase"))->setChecked(false);
    m_tool->findChild<QCheckBox *>(qs("chkhidden"))->setChecked(false);

    // Cancel on the box of the new text asks nothing and changes nothing.
    const qsizetype asked = m_operator->asked.size();
    run("mnurepfiles", QStringList{qs("orvita"), QString()});
    QCOMPARE(m_operator->asked.size(), asked);

    m_operator->answer = Dialogs::Answer::Yes;
    QVERIFY(!m_tool->findChild<QAction *>(qs("mnuundorep"))->isEnabled());
    run("mnurepfiles", sl({"orvita", "Tabulon"}));
    QCOMPARE(m_operator->told.last(),
             qs("Changed 2 files.\n\nLeft alone: 1\n") + path("bin/orvita.exe") + qs(": a binary file, left alone"));
    QCOMPARE(read(path("Orvita.ini")), QByteArray("[db]\r\nname=Tabulon\r\n"));
    QCOMPARE(read(path(".orvita/cache.ini")), QByteArray("orvita"));

    // The next replacement that finds nothing keeps the copies of this one.
    run("mnurepfiles", sl({"nowhere", "x"}));
    undo("mnuundorep");
    QCOMPARE(m_operator->told.last(), qs("Put back 2 files."));
    QCOMPARE(read(path("Orvita.ini")), QByteArray("[db]\r\nname=orvita\r\n"));
    QCOMPARE(read(path("reports/orvita_1.rpt")), QByteArray("Orvita report"));

    // A folder chosen below: its files are named from the folder the window shows. A file that
    // is not UTF-8 is changed only once its encoding is chosen.
    write(path("reports/legacy.rpt"), "orvita \x83\x5C");
    choose("reports");
    m_operator->answer = Dialogs::Answer::No;
    auto *encoding = m_tool->findChild<QComboBox *>(qs("cboencoding"));
    QCOMPARE(encoding->currentText(), qs("UTF-8"));
    const int sjis = encoding->findData(qs("Shift_JIS"));
    if (sjis < 0)
        QSKIP("this system cannot convert Shift-JIS");
    encoding->setCurrentIndex(sjis);
    run("mnurepfiles", sl({"orvita", "Tabulon"}));
    QCOMPARE(m_operator->asked.last(), qs("Replace 2 occurrences of \"orvita\" with \"Tabulon\" in 2 files?\n\n"
                                          "reports/legacy.rpt (1)\n    1: orvita \u30BD\n"
                                          "reports/orvita_1.rpt (1)\n    1: Orvita report"));
}

void TestRenameFolders::undoReplaceKeepsTheCopiesNotPutBack()
{
    const QByteArray big = "orvita" + QByteArray(4000, 'x');
    write(path("big.ini"), big);
    QVERIFY(openTool());
    run("mnurepfiles", sl({"orvita", "T"}));
    QCOMPARE(m_operator->told.last().left(16), qs("Changed 3 files."));

    {
        // Files may not grow past the new big.ini for a while: the old one cannot be written back.
        const FileSizeLimit limit(rlim_t(big.size() - 1));
        QVERIFY(limit.isSet());
        m_tool->findChild<QAction *>(qs("mnuundorep"))->trigger();
    }
    const QString told = m_operator->told.last();
    QVERIFY2(told.startsWith(qs("Put back 2 files.\n\nLeft alone: 1\n") + path("big.ini") + qs(": ")) &&
                 told.endsWith(qs("\n\nKept the copies of 1 file not put back: Undo Replace in Files can try again.")),
             qPrintable(told));
    QCOMPARE(read(path("Orvita.ini")), QByteArray("[db]\r\nname=orvita\r\n"));
    QCOMPARE(read(path("big.ini")), "T" + QByteArray(4000, 'x'));

    undo("mnuundorep");
    QCOMPARE(m_operator->told.last(), qs("Put back 1 file."));
    QCOMPARE(read(path("big.ini")), big);
}

void TestRenameFolders::deleteMovesToTheTrashAndBack()
{
    QFile::setPermissions(path("reports/orvita_2.rpt"), QFile::ReadOwner);
    QVERIFY(openTool());
    tree()->clearSelection();
    itemNamed(tree(), qs("reports"))->setSelected(true);
    itemNamed(tree(), qs("orvita_1.rpt"))->setSelected(true);
    itemNamed(tree(), qs("bin"))->setSelected(true);
    m_operator->answer = Dialogs::Answer::No;
    run("mnuDelete");
    QCOMPARE(m_operator->prompts.last().icon, Dialogs::Icon::Exclamation);
    QCOMPARE(m_operator->asked.last(),
             qs("Delete 2 folders and 4 files?\n\nbin\nreports\n\nFolders go with everything inside them."));
    QVERIFY(QFile::exists(path("bin/orvita.exe")));

    m_operator->answer = Dialogs::Answer::Yes;
    run("mnuDelete");
    QCOMPARE(m_operator->told.last(), qs("Moved 2 items to the trash."));
    QCOMPARE(visibleNames(tree()), sl({"Orvita.ini"}));

    undo("mnuundodel");
    QCOMPARE(m_operator->told.last(), qs("Brought back 2 items."));
    QCOMPARE(visibleNames(tree()).size(), 7);
    QCOMPARE(read(path("bin/orvita.exe")), QByteArray("MZ\0orvita", 9));

    // Without a trash (none can be made under a file) a deletion asks again, and only Yes to that
    // deletes for good.
    write(m_settingsDir.filePath(qs("plain")), "a file");
    qputenv("XDG_DATA_HOME", QFile::encodeName(m_settingsDir.filePath(qs("plain/data"))));
    choose("reports");
    m_operator->answers = {Dialogs::Answer::Yes, Dialogs::Answer::No};
    run("mnuDelete");
    const QString again = m_operator->asked.last();
    QVERIFY2(again.startsWith(qs("1 item cannot go to the trash (")) &&
                 again.endsWith(qs("):\n\nreports\n\nDelete it for good? There is no bringing it back.")),
             qPrintable(again));
    QVERIFY(QFile::exists(path("reports/orvita_1.rpt")));
    QVERIFY2(m_operator->told.last().startsWith(qs("Moved 0 items to the trash.\n\nLeft alone: 1\n") + path("reports") +
                                                qs(": not deleted: ")),
             qPrintable(m_operator->told.last()));

    choose("reports");
    m_operator->answers = {Dialogs::Answer::Yes, Dialogs::Answer::Yes};
    run("mnuDelete");
    QCOMPARE(m_operator->told.last(), qs("Deleted 2 items for good.\n\nLeft alone: 2\n") +
                                          path("reports/orvita_2.rpt") + qs(": read-only\n") + path("reports") +
                                          qs(": something inside it was kept"));
    QCOMPARE(visibleNames(tree()), sl({"bin", "  orvita.exe", "reports", "  orvita_2.rpt", "Orvita.ini"}));
    QVERIFY(!m_tool->findChild<QAction *>(qs("mnuundodel"))->isEnabled());
}

// clang-format off
void TestRenameFolders::nothingToActOn_data()
{
    QTest::addColumn<QString>("command"); // a pop-up command, or "typed" for a path typed and Enter
    QTest::addColumn<QString>("chosen");  // the tree item made current ("" the installation folder)
    QTest::addColumn<QStringList>("typed");
    QTest::addColumn<QString>("told");

    QTest::newRow("rename names, none chosen") << "mnureplacestr" << "" << QStringList() << "Choose the folders or files to rename first.";
    QTest::newRow("rename one, none chosen") << "mnuren" << "" << QStringList() << "Choose a folder or file to rename first.";
    QTest::newRow("delete, none chosen") << "mnuDelete" << "" << QStringList() << "Choose the folders or files to delete first.";
    QTest::newRow("rename names, text in no name") << "mnureplacestr" << "bin" << sl({"zzz", "y"}) << "No item name holds \"zzz\".";
    QTest::newRow("replace in files, text in no file") << "mnurepfiles" << "" << sl({"zzz", "y"}) << "No text file holds \"zzz\".";
    QTest::newRow("installation folder missing") << "missing" << "" << QStringList() << "\"%1\" is not a folder.";
    QTest::newRow("typed path is no folder") << "typed" << "" << QStringList() << "\"%1\" is not a folder.";
}
// clang-format on

void TestRenameFolders::nothingToActOn()
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
        openMain(gone);
        m_main->enableAllMenus();
    }
    RenameFolders *w = openTool();
    QVERIFY(w);
    if (command == qs("missing")) {
        QCOMPARE(m_operator->told, QStringList{told.arg(QDir::toNativeSeparators(gone))});
        QCOMPARE(tree()->topLevelItem(0)->childCount(), 0);
        QCOMPARE(disk(), before);
        return;
    }
    tree()->clearSelection();
    if (chosen.isEmpty())
        tree()->setCurrentItem(tree()->topLevelItem(0));
    else
        choose(qPrintable(chosen));
    if (command == qs("typed")) {
        auto *box = w->findChild<QLineEdit *>(qs("txtfolder"));
        box->setText(aFile);
        QTest::keyClick(box, Qt::Key_Return);
        QCOMPARE(w->folder(), QDir(m_dir.path()).absolutePath()); // still the folder it showed
    } else {
        run(qPrintable(command), typed);
    }
    QCOMPARE(m_operator->told.value(m_operator->told.size() - 1), told.arg(aFile));
    QCOMPARE(m_operator->told.size(), typed.isEmpty() ? 1 : 3); // the input prompts come first
    QCOMPARE(m_operator->asked, QStringList());
    QCOMPARE(disk(), before);
}

QTEST_MAIN(TestRenameFolders)
#include "test_renamefolders.moc"
