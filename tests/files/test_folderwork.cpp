// The folders and files tool's disk work on real temporary folders: what a listing holds,
// renames that must never overwrite, deletion that keeps read-only files and never follows a
// link, and text replacement that keeps every file's encoding and leaves binaries alone.
#include "files/filetext.h"
#include "files/folderwork.h"
#include "filetree.h"
#include "testdb.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

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

class CountingProgress final : public Progress {
public:
    void begin(int total) override { totals << total; }
    void step(const QString &) override
    {
        ++steps;
        if (stopAfter > 0 && steps >= stopAfter)
            stop = true;
    }
    void end() override { ++ends; }
    bool stopRequested() const override { return stop; }
    QList<int> totals;
    int steps = 0;
    int ends = 0;
    int stopAfter = 0;
    bool stop = false;
};

} // namespace

class TestFolderWork final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();

    void listingKeepsInsideTheFolder();
    void replaceInNames_data();
    void replaceInNames();
    void renamesNeverOverwrite();
    void deleteKeepsReadOnlyAndLinkTargets();
    void textForms_data();
    void textForms();
    void replaceInFilesLeavesTheAwkwardOnesAlone();
    void replaceInFilesKeepsPermissionsAndStops();

private:
    QString path(const char *relative) const { return m_dir->filePath(qs(relative)); }
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<QTemporaryDir> m_outside;
};

void TestFolderWork::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_outside = std::make_unique<QTemporaryDir>();
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

    CountingProgress progress;
    progress.stopAfter = 1;
    const Listing stopped = listFolder(m_dir->path(), progress);
    QVERIFY(stopped.stopped);
    QCOMPARE(progress.ends, 1);
}

void TestFolderWork::replaceInNames_data()
{
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<QString>("find");
    QTest::addColumn<QString>("with");
    QTest::addColumn<bool>("matchCase");
    QTest::addColumn<QStringList>("after");
    QTest::addColumn<QStringList>("reasons");

    const QStringList none;
    QTest::newRow("ignoring case, every occurrence")
        << QStringList{qs("Old_old.txt")} << qs("OLD") << qs("new") << false << QStringList{qs("new_new.txt")} << none;
    QTest::newRow("matching case") << QStringList{qs("Old_old.txt")} << qs("old") << qs("new") << true
                                   << QStringList{qs("Old_new.txt")} << none;
    QTest::newRow("taken name is kept apart")
        << QStringList{qs("a1.txt"), qs("b1.txt")} << qs("a") << qs("b") << false
        << QStringList{qs("a1.txt"), qs("b1.txt")} << QStringList{qs("a file or folder of that name already exists")};
    QTest::newRow("two names meeting in one")
        << QStringList{qs("xa"), qs("ya")} << qs("x") << qs("y") << false << QStringList{qs("xa"), qs("ya")}
        << QStringList{qs("a file or folder of that name already exists")};
    QTest::newRow("two new names meeting")
        << QStringList{qs("xB"), qs("xb")} << qs("b") << qs("c") << false << QStringList{qs("xb"), qs("xc")}
        << QStringList{qs("another entry of the same folder gets that name")};
    QTest::newRow("emptied name") << QStringList{qs("abc")} << qs("abc") << QString() << false << QStringList{qs("abc")}
                                  << QStringList{qs("the new name is empty")};
    QTest::newRow("slash in the new name")
        << QStringList{qs("abc")} << qs("b") << qs("/") << false << QStringList{qs("abc")}
        << QStringList{qs("a name cannot hold any of / \\ : * ? \" < > | or control characters")};
    QTest::newRow("folder and its content together")
        << QStringList{qs("old/"), qs("old/old.txt")} << qs("old") << qs("new") << false
        << QStringList{qs("new/"), qs("new/new.txt")} << none;
}

void TestFolderWork::replaceInNames()
{
    QFETCH(QStringList, before);
    QFETCH(QString, find);
    QFETCH(QString, with);
    QFETCH(bool, matchCase);
    QFETCH(QStringList, after);
    QFETCH(QStringList, reasons);
    QStringList paths;
    for (const QString &name : before) {
        if (name.endsWith(QLatin1Char('/')))
            QDir().mkpath(m_dir->filePath(name));
        else
            write(m_dir->filePath(name), name.toUtf8());
        paths << QDir::cleanPath(m_dir->filePath(name));
    }
    const RenamePlan plan = planReplaceInNames(paths, find, with, matchCase ? Qt::CaseSensitive : Qt::CaseInsensitive);
    NoProgress quiet;
    const Outcome outcome = applyRenames(plan, quiet);
    QStringList got;
    for (const Skipped &s : outcome.skipped)
        got << s.reason;
    QCOMPARE(got, reasons);
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
    const RenamePlan plan = planReplaceInNames({path("dir_a"), path("file_a")}, qs("_a"), qs("_b"), Qt::CaseSensitive);
    QCOMPARE(int(plan.renames.size()), 2);
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
    QCOMPARE(applyRenames(planRename(path("link_a"), qs("link_b")), quiet).changed, 1);
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
    const QStringList chosen{path("app"), path("app/bin/run.exe")};
    QCOMPARE(outermostPaths(chosen), QStringList{path("app")});
    const DeleteCount count = countForDelete(chosen);
    QCOMPARE(count.folders, 3);
    QCOMPARE(count.files, 4);

    CountingProgress progress;
    const Outcome outcome = deleteEntries(chosen, progress);
    QCOMPARE(progress.totals, QList<int>{7});
    QCOMPARE(outcome.changed, 4); // bin/run.exe, bin, free.dat, the link
    QCOMPARE(tree(m_dir->path()), QStringList({qs("app/"), qs("app/data/"), qs("app/data/locked.dat")}));
    QCOMPARE(read(m_outside->filePath(qs("secret.txt"))), QByteArray("Orvita outside"));
    QStringList reasons;
    for (const Skipped &s : outcome.skipped)
        reasons << QDir(m_dir->path()).relativeFilePath(s.path) + qs(": ") + s.reason;
    QCOMPARE(reasons, QStringList({qs("app/data/locked.dat: read-only"), qs("app/data: something inside it was kept"),
                                   qs("app: something inside it was kept")}));
}

void TestFolderWork::textForms_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("form"); // -1: binary
    QTest::addColumn<QByteArray>("replaced");

    QTest::newRow("utf-8, CRLF kept") << QByteArray("Orvita\r\nStra\xc3\x9f"
                                                    "e Orvita\r\n")
                                      << int(TextForm::Utf8)
                                      << QByteArray("Tabby\r\nStra\xc3\x9f"
                                                    "e Tabby\r\n");
    QTest::newRow("utf-8 with mark") << QByteArray("\xEF\xBB\xBFOrvita") << int(TextForm::Utf8Bom)
                                     << QByteArray("\xEF\xBB\xBFTabby");
    QTest::newRow("utf-16 little end") << QByteArray("\xFF\xFEO\0r\0v\0i\0t\0a\0\r\0\n\0", 16) << int(TextForm::Utf16LE)
                                       << QByteArray("\xFF\xFET\0a\0b\0b\0y\0\r\0\n\0", 14);
    QTest::newRow("utf-16 big end") << QByteArray("\xFE\xFF\0O\0r\0v\0i\0t\0a", 14) << int(TextForm::Utf16BE)
                                    << QByteArray("\xFE\xFF\0T\0a\0b\0b\0y", 12);
    QTest::newRow("single byte kept byte for byte")
        << QByteArray("caf\xe9 Orvita \x80\xff") << int(TextForm::SingleByte) << QByteArray("caf\xe9 Tabby \x80\xff");
    QTest::newRow("zero byte: binary") << QByteArray("Orvita\0\x01", 8) << -1 << QByteArray();
    QTest::newRow("odd utf-16: binary") << QByteArray("\xFF\xFEO\0r", 5) << -1 << QByteArray();
    QTest::newRow("control bytes: binary") << QByteArray("Orvita\x01\x02\x03\x04") << -1 << QByteArray();
}

void TestFolderWork::textForms()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, form);
    QFETCH(QByteArray, replaced);
    std::optional<TextFile> text = decodeText(bytes);
    QCOMPARE(text ? int(text->form) : -1, form);
    if (!text)
        return;
    QCOMPARE(encodeText(*text).value_or("<none>"), bytes);
    text->text.replace(qs("Orvita"), qs("Tabby"));
    QCOMPARE(encodeText(*text).value_or("<none>"), replaced);
}

void TestFolderWork::replaceInFilesLeavesTheAwkwardOnesAlone()
{
    write(path("cfg/a.ini"), "server=orvita\nname=Orvita\n");
    write(path("cfg/none.ini"), "nothing here");
    write(path("cfg/locked.ini"), "Orvita");
    makeReadOnly(path("cfg/locked.ini"));
    write(path("cfg/latin.txt"), "caf\xe9 Orvita");
    write(path("bin/tool.dll"), QByteArray("MZ\0\0Orvita\0", 12));
    write(path("bin/other.dll"), QByteArray("MZ\0\0", 4));
    QVERIFY(QFile::link(m_outside->filePath(qs("secret.txt")), path("cfg/link.txt")));

    CountingProgress progress;
    const ContentPlan plan =
        planReplaceInFiles(m_dir->path(), qs("orvita"), qs("Tabulon \u2713"), Qt::CaseInsensitive, progress);
    QCOMPARE(plan.occurrences, 2);
    QCOMPARE(int(plan.files.size()), 1);
    QCOMPARE(plan.files[0].path, path("cfg/a.ini"));
    QStringList reasons;
    for (const Skipped &s : plan.skipped)
        reasons << QDir(m_dir->path()).relativeFilePath(s.path) + qs(": ") + s.reason;
    reasons.sort();
    QCOMPARE(reasons, QStringList({qs("bin/tool.dll: a binary file, left alone"),
                                   qs("cfg/latin.txt: the new text does not fit the file's encoding"),
                                   qs("cfg/link.txt: a link: what it points at is left alone"),
                                   qs("cfg/locked.ini: read-only")}));

    const Outcome outcome =
        applyReplaceInFiles(plan, qs("orvita"), qs("Tabulon \u2713"), Qt::CaseInsensitive, progress);
    QCOMPARE(outcome.changed, 1);
    QCOMPARE(read(path("cfg/a.ini")), QByteArray("server=Tabulon \xe2\x9c\x93\nname=Tabulon \xe2\x9c\x93\n"));
    QCOMPARE(read(path("cfg/locked.ini")), QByteArray("Orvita"));
    QCOMPARE(read(path("cfg/latin.txt")), QByteArray("caf\xe9 Orvita"));
    QCOMPARE(read(m_outside->filePath(qs("secret.txt"))), QByteArray("Orvita outside"));
    QCOMPARE(read(path("bin/tool.dll")), QByteArray("MZ\0\0Orvita\0", 12));
}

void TestFolderWork::replaceInFilesKeepsPermissionsAndStops()
{
    const QFile::Permissions mode = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup;
    for (const char *name : {"one.bat", "two.bat", "three.bat"}) {
        write(path(name), "echo old");
        QFile::setPermissions(path(name), mode);
    }
    NoProgress quiet;
    ContentPlan plan = planReplaceInFiles(path("one.bat"), qs("old"), qs("new"), Qt::CaseSensitive, quiet);
    QCOMPARE(int(plan.files.size()), 1);
    // Changed again between the count and the change: the text now there is what counts.
    write(path("one.bat"), "echo old old");
    QCOMPARE(applyReplaceInFiles(plan, qs("old"), qs("new"), Qt::CaseSensitive, quiet).changed, 1);
    QCOMPARE(read(path("one.bat")), QByteArray("echo new new"));
    QCOMPARE(QFile::permissions(path("one.bat")) & ~(QFile::ReadUser | QFile::WriteUser | QFile::ExeUser), mode);

    plan = planReplaceInFiles(m_dir->path(), qs("old"), qs("new"), Qt::CaseSensitive, quiet);
    QCOMPARE(int(plan.files.size()), 2);
    CountingProgress stopping;
    stopping.stopAfter = 1;
    const Outcome outcome = applyReplaceInFiles(plan, qs("old"), qs("new"), Qt::CaseSensitive, stopping);
    QVERIFY(outcome.stopped);
    QCOMPARE(outcome.changed, 1);
    QCOMPARE(stopping.ends, 1);
}

QTEST_GUILESS_MAIN(TestFolderWork)
#include "test_folderwork.moc"
