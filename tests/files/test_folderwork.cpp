// The folders and files tool's disk work on real temporary folders: what a listing holds,
// renames that must never overwrite, changes that stay below the chosen folder, deletion that
// keeps read-only files and never follows a link, the trash and its file system, text
// replacement that keeps every file's encoding and leaves binaries and unknown encodings alone,
// and taking each change back.
#include "countingprogress.h"
#include "files.h"
#include "files/filecopies.h"
#include "files/filetext.h"
#include "files/folderwork.h"
#include "files/trash.h"
#include "testdb.h"

#include <QTemporaryDir>

#include <sys/mount.h>

using namespace tabulon;
using namespace tabulon::Files;
using namespace tabulon::test;

namespace {

void makeReadOnly(const QString &path)
{
    QFile::setPermissions(path, QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther);
}

// The entries below `root` as relative paths, folders marked with a trailing slash, links with "@".
QStringList tree(const QString &root)
{
    NoProgress quiet;
    QStringList out;
    for (const Entry &e : listFolder(root, quiet).entries)
        out << QDir(root).relativeFilePath(e.path) + (e.folder ? qs("/") : QString()) + (e.link ? qs("@") : QString());
    return out;
}

// Unmounts every file system mounted below `folder`, wherever a change has taken it.
void unmountBelow(const QString &folder)
{
    QFile mounts(qs("/proc/self/mounts"));
    if (!mounts.open(QIODevice::ReadOnly))
        return;
    const QList<QByteArray> lines = mounts.readAll().split('\n');
    for (auto line = lines.crbegin(); line != lines.crend(); ++line) {
        const QList<QByteArray> fields = line->split(' ');
        if (fields.size() > 1 && fields[1].startsWith(QByteArray(QFile::encodeName(folder) + '/')))
            ::umount2(fields[1].constData(), MNT_DETACH);
    }
}

} // namespace

class TestFolderWork final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();

    void listingKeepsInsideTheFolder();
    void replaceInNames_data();
    void replaceInNames();
    void renamesNeverOverwrite();
    void changesStayBelowTheChosenFolder();
    void deleteKeepsReadOnlyAndLinkTargets();
    void replaceInFilesLeavesTheAwkwardOnesAlone();
    void textFormsAndEncodings_data();
    void textFormsAndEncodings();
    void replaceInFilesReadsAgainAndStops();
    void matchedLines_data();
    void matchedLines();
    void hiddenChosenItselfIsChanged();
    void undoRenamesGivesOldNamesBack();
    void copiesPutFilesBackUnlessChangedAgain();
    void trashTakesEntriesAndGivesThemBack();
    void trashStaysOnTheChosenFileSystem();

private:
    QString path(const char *relative) const { return m_dir->filePath(qs(relative)); }
    QString root() const { return chosenFolder(m_dir->path()); }
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<QTemporaryDir> m_outside;
    std::unique_ptr<QTemporaryDir> m_dataHome; // the trash's
};

void TestFolderWork::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_outside = std::make_unique<QTemporaryDir>();
    m_dataHome = std::make_unique<QTemporaryDir>();
    qputenv("XDG_DATA_HOME", QFile::encodeName(m_dataHome->path()));
    QVERIFY(m_dir->isValid() && m_outside->isValid());
    write(m_outside->filePath(qs("secret.txt")), "Orvita outside");
}

void TestFolderWork::listingKeepsInsideTheFolder()
{
    write(path("b.txt"), "b");
    write(path("A/z.ini"), "z");
    write(path(".hidden"), "h");
    QVERIFY(QFile::link(m_outside->path(), path("out")));
    QVERIFY(QFile::link(path("gone"), path("dangling")));
    QCOMPARE(tree(m_dir->path()),
             QStringList({qs("A/"), qs("A/z.ini"), qs(".hidden"), qs("b.txt"), qs("dangling@"), qs("out@")}));
    QStringList files = itemsBelow(m_dir->path(), Kind::Files);
    for (QString &f : files)
        f = QDir(m_dir->path()).relativeFilePath(f);
    QCOMPARE(files, QStringList({qs("A/z.ini"), qs(".hidden"), qs("b.txt"), qs("dangling"), qs("out")}));

    CountingProgress progress(1);
    const Listing stopped = listFolder(m_dir->path(), progress);
    QVERIFY(stopped.stopped);
    QCOMPARE(progress.ends, 1);
}

// clang-format off
void TestFolderWork::replaceInNames_data()
{
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<QString>("find");
    QTest::addColumn<QString>("with");
    QTest::addColumn<bool>("matchCase");
    QTest::addColumn<QStringList>("after");
    QTest::addColumn<QStringList>("reasons");

    const QStringList none;
    QTest::newRow("ignoring case, every occurrence") << sl({"Old_old.txt"}) << qs("OLD") << qs("new") << false << sl({"new_new.txt"}) << none;
    QTest::newRow("matching case") << sl({"Old_old.txt"}) << qs("old") << qs("new") << true << sl({"Old_new.txt"}) << none;
    QTest::newRow("taken name is kept apart") << sl({"a1.txt", "b1.txt"}) << qs("a") << qs("b") << false << sl({"a1.txt", "b1.txt"}) << sl({"a file or folder of that name already exists"});
    QTest::newRow("two new names meeting") << sl({"xB", "xb"}) << qs("b") << qs("c") << false << sl({"xb", "xc"}) << sl({"another entry of the same folder gets that name"});
    QTest::newRow("emptied name") << sl({"abc"}) << qs("abc") << QString() << false << sl({"abc"}) << sl({"the new name is empty"});
    QTest::newRow("slash in the new name") << sl({"abc"}) << qs("b") << qs("/") << false << sl({"abc"}) << sl({"a name cannot hold any of / \\ : * ? \" < > | or control characters"});
    QTest::newRow("folder and its content together") << sl({"old/", "old/old.txt"}) << qs("old") << qs("new") << false << sl({"new/", "new/new.txt"}) << none;
}
// clang-format on

void TestFolderWork::replaceInNames()
{
    QFETCH(QStringList, before);
    QFETCH(QString, find);
    QFETCH(QString, with);
    QFETCH(bool, matchCase);
    QFETCH(QStringList, after);
    QStringList paths;
    for (const QString &name : before) {
        if (name.endsWith(QLatin1Char('/')))
            QDir().mkpath(m_dir->filePath(name));
        else
            write(m_dir->filePath(name), name.toUtf8());
        paths << QDir::cleanPath(m_dir->filePath(name));
    }
    const RenamePlan plan =
        planReplaceInNames(root(), paths, find, with, matchCase ? Qt::CaseSensitive : Qt::CaseInsensitive);
    NoProgress quiet;
    const Outcome outcome = applyRenames(plan, quiet);
    QStringList got;
    for (const Skipped &s : outcome.skipped)
        got << s.reason;
    QTEST(got, "reasons");
    QCOMPARE(tree(m_dir->path()), after);
    // No file lost its content to another.
    for (const QString &name : after) {
        if (!name.endsWith(QLatin1Char('/')) && before.contains(name))
            QCOMPARE(read(m_dir->filePath(name)), name.toUtf8());
    }
}

void TestFolderWork::renamesNeverOverwrite()
{
    // Something takes the new names between the preview and the change: an empty folder, which
    // a plain rename would silently replace, and a file.
    QDir().mkpath(path("dir_a"));
    write(path("dir_a/keep.txt"), "kept");
    write(path("file_a"), "first");
    const RenamePlan plan =
        planReplaceInNames(root(), {path("dir_a"), path("file_a")}, qs("_a"), qs("_b"), Qt::CaseSensitive);
    QDir().mkpath(path("dir_b"));
    write(path("file_b"), "second");
    NoProgress quiet;
    const Outcome outcome = applyRenames(plan, quiet);
    QCOMPARE(outcome.changed, 0);
    QCOMPARE(int(outcome.skipped.size()), 2);
    QCOMPARE(read(path("file_b")), QByteArray("second"));
    QCOMPARE(read(path("dir_a/keep.txt")), QByteArray("kept"));

    // A link is renamed as itself; what it points at keeps its name.
    QVERIFY(QFile::link(m_outside->filePath(qs("secret.txt")), path("link_a")));
    QCOMPARE(applyRenames(planRename(root(), path("link_a"), qs("link_b")), quiet).changed, 1);
    QVERIFY(QFileInfo(path("link_b")).isSymLink());
    QCOMPARE(read(m_outside->filePath(qs("secret.txt"))), QByteArray("Orvita outside"));

    const QString summary = summaryText(qs("Renamed"), qs("item"), outcome, 1);
    QCOMPARE(summary, qs("Renamed 0 items.\n\nLeft alone: 2\n") + path("dir_a") +
                          qs(": a file or folder of that name already exists\n... and 1 more"));
}

void TestFolderWork::deleteKeepsReadOnlyAndLinkTargets()
{
    write(path("app/bin/run.exe"), "MZ");
    write(path("app/data/locked.dat"), "keep me");
    write(path("app/data/free.dat"), "x");
    makeReadOnly(path("app/data/locked.dat"));
    QVERIFY(QFile::link(m_outside->path(), path("app/outside")));
    // "app x" sorts between "app" and "app/bin": it must not hide that run.exe is inside "app".
    write(path("app x"), "sibling");
    const QStringList chosen{path("app"), path("app/bin/run.exe"), path("app x")};
    QCOMPARE(outermostPaths(chosen), QStringList({path("app"), path("app x")}));
    const DeleteCount count = countForDelete(chosen);
    QCOMPARE(count.folders, 3);
    QCOMPARE(count.files, 5);

    CountingProgress progress;
    const Outcome outcome = deleteEntries(chosen, progress);
    QCOMPARE(progress.totals, QList<int>{8});
    QCOMPARE(outcome.changed, 5); // bin/run.exe, bin, free.dat, the link, app x
    QCOMPARE(tree(m_dir->path()), QStringList({qs("app/"), qs("app/data/"), qs("app/data/locked.dat")}));
    QCOMPARE(read(m_outside->filePath(qs("secret.txt"))), QByteArray("Orvita outside"));
    QStringList reasons;
    for (const Skipped &s : outcome.skipped)
        reasons << QDir(m_dir->path()).relativeFilePath(s.path) + qs(": ") + s.reason;
    QCOMPARE(reasons, QStringList({qs("app/data/locked.dat: read-only"), qs("app/data: something inside it was kept"),
                                   qs("app: something inside it was kept")}));
}

void TestFolderWork::changesStayBelowTheChosenFolder()
{
    write(path("app/orvita.ini"), "orvita");
    write(path("app/sub/orvita.rpt"), "orvita");
    write(path("orvita.txt"), "orvita");
    QVERIFY(QFile::link(path("app"), path("applink")));
    // Chosen through the link, the folder is where it leads.
    const QString app = chosenFolder(path("applink"));
    QCOMPARE(app, chosenFolder(path("app")));
    QVERIFY(!QFileInfo(app).isSymLink());
    QVERIFY(liesBelow(app, path("applink/orvita.ini")));
    QVERIFY(!liesBelow(app, path("orvita.txt")));
    QVERIFY(!liesBelow(app, path("app/..")));
    QVERIFY(!liesBelow(app, path("app/../orvita.txt")));
    QVERIFY(!liesBelow(app, path("app")));

    NoProgress quiet;
    const QString outside = outsideReason();
    RenamePlan plan =
        planReplaceInNames(app, {path("orvita.txt"), path("app/orvita.ini")}, qs("orvita"), qs("x"), Qt::CaseSensitive);
    QCOMPARE(int(plan.renames.size()), 1);
    QCOMPARE(plan.skipped[0].path, path("orvita.txt"));
    QCOMPARE(plan.skipped[0].reason, outside);
    QCOMPARE(planRename(app, path("orvita.txt"), qs("x")).skipped[0].reason, outside);
    const TextReplacement replacement{qs("orvita"), qs("x"), Qt::CaseSensitive, false, {}};
    QCOMPARE(planReplaceInFiles(app, path("orvita.txt"), replacement, quiet).skipped[0].reason, outside);
    const TrashOutcome trashed = moveToTrash(app, {path("orvita.txt")}, quiet);
    QCOMPARE(trashed.outcome.skipped[0].reason, outside);

    // A folder turned into a link after the preview: the change would land where it leads.
    plan = planReplaceInNames(app, {path("app/sub/orvita.rpt")}, qs("orvita"), qs("x"), Qt::CaseSensitive);
    ContentPlan content = planReplaceInFiles(app, path("app/sub"), replacement, quiet);
    QCOMPARE(int(content.files.size()), 1);
    QVERIFY(QDir(path("app/sub")).removeRecursively());
    write(m_outside->filePath(qs("orvita.rpt")), "orvita");
    QVERIFY(QFile::link(m_outside->path(), path("app/sub")));
    FileCopies copies;
    QCOMPARE(applyReplaceInFiles(content, replacement, copies, quiet).skipped[0].reason, outside);
    const Outcome renamed = applyRenames(plan, quiet);
    QCOMPARE(renamed.changed, 0);
    QCOMPARE(renamed.skipped[0].reason, outside);
    QCOMPARE(read(m_outside->filePath(qs("orvita.rpt"))), QByteArray("orvita"));
    QCOMPARE(read(path("orvita.txt")), QByteArray("orvita"));
}

void TestFolderWork::replaceInFilesLeavesTheAwkwardOnesAlone()
{
    write(path("cfg/a.ini"), "server=orvita\nname=Orvita\n");
    write(path("cfg/none.ini"), "nothing here");
    write(path("cfg/locked.ini"), "Orvita");
    makeReadOnly(path("cfg/locked.ini"));
    write(path("cfg/latin.txt"), "caf\xe9 Orvita");
    write(path("bin/other.dll"), QByteArray("MZ\0\0", 4));
    QVERIFY(QFile::link(m_outside->filePath(qs("secret.txt")), path("cfg/link.txt")));

    CountingProgress progress;
    const TextReplacement replacement{qs("orvita"), qs("Tabulon \u2713"), Qt::CaseInsensitive, false, {}};
    const ContentPlan plan = planReplaceInFiles(root(), m_dir->path(), replacement, progress);
    QCOMPARE(plan.occurrences, 2);
    QCOMPARE(int(plan.files.size()), 1);
    QCOMPARE(plan.files[0].path, path("cfg/a.ini"));
    QStringList reasons;
    for (const Skipped &s : plan.skipped)
        reasons << QDir(m_dir->path()).relativeFilePath(s.path) + qs(": ") + s.reason;
    reasons.sort();
    QCOMPARE(reasons, QStringList({qs("cfg/latin.txt: not text in a known encoding"),
                                   qs("cfg/link.txt: a link: what it points at is left alone"),
                                   qs("cfg/locked.ini: read-only")}));

    FileCopies copies;
    const Outcome outcome = applyReplaceInFiles(plan, replacement, copies, progress);
    QCOMPARE(outcome.changed, 1);
    QCOMPARE(read(path("cfg/a.ini")), QByteArray("server=Tabulon \xe2\x9c\x93\nname=Tabulon \xe2\x9c\x93\n"));
    QCOMPARE(read(path("cfg/locked.ini")), QByteArray("Orvita"));
    QCOMPARE(read(path("cfg/latin.txt")), QByteArray("caf\xe9 Orvita"));
    QCOMPARE(read(m_outside->filePath(qs("secret.txt"))), QByteArray("Orvita outside"));
}

// clang-format off
void TestFolderWork::textFormsAndEncodings_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("encoding"); // chosen for files without a mark
    QTest::addColumn<QString>("find");
    QTest::addColumn<QString>("with");
    QTest::addColumn<QByteArray>("after");
    QTest::addColumn<QString>("reason"); // why the file is left alone, "" when it is changed

    const QString orvita = qs("Orvita"), tabby = qs("Tabby"), none;
    const QString binary = qs("a binary file, left alone"), unknown = qs("not text in a known encoding");
    QTest::newRow("utf-8, CRLF kept") << QByteArray("Orvita\r\nStra\xc3\x9f" "e Orvita\r\n") << none << orvita << tabby << QByteArray("Tabby\r\nStra\xc3\x9f" "e Tabby\r\n") << none;
    QTest::newRow("utf-8 with mark") << QByteArray("\xEF\xBB\xBFOrvita") << none << orvita << tabby << QByteArray("\xEF\xBB\xBFTabby") << none;
    QTest::newRow("utf-16 little end, a choice does not count") << QByteArray("\xFF\xFEO\0r\0v\0i\0t\0a\0\r\0\n\0", 16) << qs("Shift_JIS") << orvita << tabby << QByteArray("\xFF\xFET\0a\0b\0b\0y\0\r\0\n\0", 14) << none;
    QTest::newRow("utf-16 big end") << QByteArray("\xFE\xFF\0O\0r\0v\0i\0t\0a", 14) << none << orvita << tabby << QByteArray("\xFE\xFF\0T\0a\0b\0b\0y", 12) << none;
    QTest::newRow("pure ascii, nothing chosen") << QByteArray("name=Orvita") << none << orvita << tabby << QByteArray("name=Tabby") << none;
    QTest::newRow("latin-1 chosen: byte for byte") << QByteArray("caf\xe9 Orvita \x80\xff") << qs("ISO-8859-1") << orvita << tabby << QByteArray("caf\xe9 Tabby \x80\xff") << none;
    QTest::newRow("latin-1 chosen, new text without a place in it") << QByteArray("caf\xe9 Orvita") << qs("ISO-8859-1") << orvita << qs("\u2713") << QByteArray("caf\xe9 Orvita") << qs("the new text does not fit the file's encoding");
    // In Shift-JIS the second byte of "\x83\x5C" is no backslash of its own.
    const QByteArray sjis("dir=C:\\app\\\x83\x5C\r\n");
    QTest::newRow("shift-jis, nothing chosen") << sjis << none << qs("\\") << qs("/") << sjis << unknown;
    QTest::newRow("shift-jis chosen") << sjis << qs("Shift_JIS") << qs("\\") << qs("/") << QByteArray("dir=C:/app/\x83\x5C\r\n") << none;
    QTest::newRow("not what was chosen") << QByteArray("\x83 Orvita") << qs("Shift_JIS") << orvita << tabby << QByteArray("\x83 Orvita") << qs("not text in Shift_JIS");
    QTest::newRow("zero byte: binary") << QByteArray("Orvita\0\x01", 8) << none << orvita << tabby << QByteArray("Orvita\0\x01", 8) << binary;
    QTest::newRow("odd utf-16: binary") << QByteArray("\xFF\xFEOrvita!") << none << orvita << tabby << QByteArray("\xFF\xFEOrvita!") << binary;
    QTest::newRow("control bytes: binary") << QByteArray("Orvita\x01\x02\x03\x04") << none << orvita << tabby << QByteArray("Orvita\x01\x02\x03\x04") << binary;
}
// clang-format on

// Each file is written back in the form it was read in (mark, UTF-16 byte order, line ends, the
// chosen encoding byte for byte) or left alone, with the reason.
void TestFolderWork::textFormsAndEncodings()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, encoding);
    QFETCH(QString, find);
    QFETCH(QString, with);
    if (!encoding.isEmpty() && !choosableEncodings().contains(encoding))
        QSKIP("this system cannot convert the encoding");
    write(path("file.ini"), bytes);
    NoProgress quiet;
    const TextReplacement replacement{find, with, Qt::CaseSensitive, false, encoding};
    const ContentPlan plan = planReplaceInFiles(root(), m_dir->path(), replacement, quiet);
    QTEST(plan.skipped.empty() ? QString() : plan.skipped[0].reason, "reason");
    FileCopies copies;
    applyReplaceInFiles(plan, replacement, copies, quiet);
    QTEST(read(path("file.ini")), "after");
}

void TestFolderWork::replaceInFilesReadsAgainAndStops()
{
    for (const char *name : {"one.bat", "two.bat", "three.bat"})
        write(path(name), "echo old");
    NoProgress quiet;
    FileCopies copies;
    const TextReplacement replacement{qs("old"), qs("new"), Qt::CaseSensitive, false, {}};
    ContentPlan plan = planReplaceInFiles(root(), path("one.bat"), replacement, quiet);
    QCOMPARE(int(plan.files.size()), 1);
    // Changed again between the count and the change: the text now there is what counts.
    write(path("one.bat"), "echo old old");
    QCOMPARE(applyReplaceInFiles(plan, replacement, copies, quiet).changed, 1);
    QCOMPARE(read(path("one.bat")), QByteArray("echo new new"));

    plan = planReplaceInFiles(root(), m_dir->path(), replacement, quiet);
    QCOMPARE(int(plan.files.size()), 2);
    CountingProgress stopping(1);
    const Outcome outcome = applyReplaceInFiles(plan, replacement, copies, stopping);
    QVERIFY(outcome.stopped);
    QCOMPARE(outcome.changed, 1);
    QCOMPARE(stopping.ends, 1);
}

// clang-format off
void TestFolderWork::matchedLines_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QStringList>("lines"); // "number: text" as the preview shows them
    QTest::addColumn<int>("matched");

    QTest::newRow("ignoring case, line ends and margins dropped") << QByteArray("[db]\r\n  name=Orvita \r\nhost=x\r\nuser=ORVITA\r\n") << sl({"2: name=Orvita", "4: user=ORVITA"}) << 2;
    QTest::newRow("a few lines of many") << QByteArray("orvita\norvita\n\norvita\norvita orvita\n") << sl({"1: orvita", "2: orvita", "4: orvita"}) << 4;
    QTest::newRow("utf-16 counted by lines too") << QByteArray("\xFF\xFEx\0\n\0o\0r\0v\0i\0t\0a\0", 18) << sl({"2: orvita"}) << 1;
}
// clang-format on

void TestFolderWork::matchedLines()
{
    QFETCH(QByteArray, bytes);
    write(path("file.ini"), bytes);
    NoProgress quiet;
    const ContentPlan plan =
        planReplaceInFiles(root(), path("file.ini"), {qs("orvita"), qs("x"), Qt::CaseInsensitive, false, {}}, quiet);
    QCOMPARE(int(plan.files.size()), 1);
    QStringList got;
    for (const MatchedLine &line : plan.files[0].lines)
        got << QStringLiteral("%1: %2").arg(line.number).arg(line.text);
    QTEST(got, "lines");
    QTEST(plan.files[0].matchedLines, "matched");
}

// Hidden files are left out unless asked for (the window's test ticks and unticks that over a
// whole folder), but a hidden file or folder chosen itself is what the operator asked for.
void TestFolderWork::hiddenChosenItselfIsChanged()
{
    write(path(".orvita.ini"), "Orvita");
    write(path(".svn/entries"), "Orvita");
    NoProgress quiet;
    const TextReplacement replacement{qs("orvita"), qs("x"), Qt::CaseInsensitive, false, {}};
    for (const auto &[chosen, file] : {std::pair{".orvita.ini", ".orvita.ini"}, std::pair{".svn", ".svn/entries"}}) {
        const ContentPlan plan = planReplaceInFiles(root(), path(chosen), replacement, quiet);
        QCOMPARE(int(plan.files.size()), 1);
        QCOMPARE(plan.files[0].path, path(file));
    }
}

void TestFolderWork::undoRenamesGivesOldNamesBack()
{
    write(path("old/old.txt"), "content");
    write(path("old/old_2.txt"), "second");
    NoProgress quiet;
    const Outcome renamed =
        applyRenames(planReplaceInNames(root(), {path("old"), path("old/old.txt"), path("old/old_2.txt")}, qs("old"),
                                        qs("new"), Qt::CaseSensitive),
                     quiet);
    QCOMPARE(renamed.changed, 3);
    QCOMPARE(tree(m_dir->path()), sl({"new/", "new/new.txt", "new/new_2.txt"}));

    // Meanwhile one renamed file went, and an old name was taken by a new file.
    QVERIFY(QFile::remove(path("new/new_2.txt")));
    const Outcome undone = undoRenames(renamed.moved, quiet);
    QCOMPARE(undone.changed, 2);
    QCOMPARE(tree(m_dir->path()), sl({"old/", "old/old.txt"}));
    QCOMPARE(read(path("old/old.txt")), QByteArray("content"));
    QCOMPARE(int(undone.skipped.size()), 1);
    QCOMPARE(undone.skipped[0].reason, qs("no longer there"));

    const Outcome again = applyRenames(planRename(root(), path("old/old.txt"), qs("renamed.txt")), quiet);
    write(path("old/old.txt"), "taken meanwhile");
    const Outcome refused = undoRenames(again.moved, quiet);
    QCOMPARE(refused.changed, 0);
    QCOMPARE(refused.skipped[0].reason, qs("a file or folder of that name already exists"));
    QCOMPARE(read(path("old/old.txt")), QByteArray("taken meanwhile"));
    QCOMPARE(read(path("old/renamed.txt")), QByteArray("content"));
}

void TestFolderWork::copiesPutFilesBackUnlessChangedAgain()
{
    const QByteArray utf16("\xFF\xFEO\0r\0v\0i\0t\0a\0", 14);
    write(path("a.ini"), utf16);
    write(path("b.ini"), "orvita\r\n");
    write(path("c.ini"), "orvita");
    QFile::setPermissions(path("a.ini"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    NoProgress quiet;
    const TextReplacement replacement{qs("orvita"), qs("Tabulon"), Qt::CaseInsensitive, false, {}};
    const ContentPlan plan = planReplaceInFiles(root(), m_dir->path(), replacement, quiet);
    FileCopies copies;
    QCOMPARE(applyReplaceInFiles(plan, replacement, copies, quiet).changed, 3);
    QCOMPARE(read(path("b.ini")), QByteArray("Tabulon\r\n"));
    // The change keeps each file's mode, and so does putting it back.
    QCOMPARE(QFile::permissions(path("a.ini")) & (QFile::ExeOwner | QFile::ReadGroup), QFile::ExeOwner);

    write(path("c.ini"), "edited by hand");
    const Outcome restored = copies.restore(quiet);
    QCOMPARE(restored.changed, 2);
    QCOMPARE(read(path("a.ini")), utf16);
    QCOMPARE(read(path("b.ini")), QByteArray("orvita\r\n"));
    QCOMPARE(QFile::permissions(path("a.ini")) & (QFile::ExeOwner | QFile::ReadGroup), QFile::ExeOwner);
    QCOMPARE(read(path("c.ini")), QByteArray("edited by hand"));
    QCOMPARE(int(restored.skipped.size()), 1);
    QCOMPARE(restored.skipped[0].reason, qs("changed again since, left as it is"));
    // Only the copy of the file not put back is left, and it still holds the old text.
    QCOMPARE(copies.size(), 1);
    write(path("c.ini"), "Tabulon");
    QCOMPARE(copies.restore(quiet).changed, 1);
    QCOMPARE(read(path("c.ini")), QByteArray("orvita"));
    QCOMPARE(copies.size(), 0);
}

void TestFolderWork::trashTakesEntriesAndGivesThemBack()
{
    write(path("app/reports/one.rpt"), "one");
    write(path("app/locked.ini"), "locked");
    makeReadOnly(path("app/locked.ini"));
    write(path("readme.txt"), "text");
    QVERIFY(QFile::link(m_outside->filePath(qs("secret.txt")), path("link")));

    CountingProgress progress;
    const TrashOutcome trashed =
        moveToTrash(root(), {path("app"), path("app/reports"), path("readme.txt"), path("link")}, progress);
    QCOMPARE(progress.totals, QList<int>{3});
    QCOMPARE(trashed.outcome.changed, 3);
    QVERIFY(trashed.notTrashed.isEmpty());
    QCOMPARE(tree(m_dir->path()), QStringList());
    QCOMPARE(read(m_outside->filePath(qs("secret.txt"))), QByteArray("Orvita outside"));
    const QString trash = m_dataHome->filePath(qs("Trash"));
    QCOMPARE(QDir(trash + qs("/files")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System).size(), 3);
    QCOMPARE(QDir(trash + qs("/info")).entryList(QDir::Files).size(), 3);
    QCOMPARE(read(trash + qs("/files/app/locked.ini")), QByteArray("locked"));

    // The old place of one entry was taken meanwhile: it stays in the trash, the rest come back.
    write(path("readme.txt"), "new text");
    const Outcome back = restoreFromTrash(trashed.outcome.moved, progress);
    QCOMPARE(back.changed, 2);
    QCOMPARE(tree(m_dir->path()),
             sl({"app/", "app/reports/", "app/reports/one.rpt", "app/locked.ini", "link@", "readme.txt"}));
    QCOMPARE(read(path("readme.txt")), QByteArray("new text"));
    QCOMPARE(QDir(trash + qs("/info")).entryList(QDir::Files), sl({"readme.txt.trashinfo"}));
    QCOMPARE(read(trash + qs("/files/readme.txt")), QByteArray("text"));
}

void TestFolderWork::trashStaysOnTheChosenFileSystem()
{
    QDir().mkpath(path("app/mnt"));
    QDir().mkpath(path("mnt"));
    if (::mount("tmpfs", QFile::encodeName(path("mnt")).constData(), "tmpfs", 0, "size=1m") != 0)
        QSKIP("no file system can be mounted here");
    if (::mount("tmpfs", QFile::encodeName(path("app/mnt")).constData(), "tmpfs", 0, "size=1m") != 0) {
        unmountBelow(m_dir->path());
        QFAIL("the second file system could not be mounted");
    }
    write(path("mnt/other.txt"), "other");
    write(path("app/mnt/deep.txt"), "deep");
    write(path("app/own.txt"), "own");
    write(path("own.txt"), "own");

    NoProgress quiet;
    const TrashOutcome trashed = moveToTrash(root(), {path("mnt/other.txt"), path("app"), path("own.txt")}, quiet);
    const QStringList mounted = tree(m_dir->path());
    unmountBelow(m_dir->path());
    unmountBelow(m_dataHome->path());
    QCOMPARE(trashed.outcome.changed, 1);
    QCOMPARE(trashed.outcome.moved[0].from, path("own.txt"));
    QVERIFY(trashed.notTrashed.isEmpty());
    QStringList reasons;
    for (const Skipped &s : trashed.outcome.skipped)
        reasons << QDir(m_dir->path()).relativeFilePath(s.path) + qs(": ") + s.reason;
    QCOMPARE(reasons, sl({"app: mnt inside it is on another file system than the chosen folder, left alone",
                          "mnt/other.txt: on another file system than the chosen folder, left alone"}));
    // Nothing went anywhere, and no trash was made on the other file systems.
    QCOMPARE(mounted, sl({"app/", "app/mnt/", "app/mnt/deep.txt", "app/own.txt", "mnt/", "mnt/other.txt"}));
}

QTEST_GUILESS_MAIN(TestFolderWork)
#include "test_folderwork.moc"
