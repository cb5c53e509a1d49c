// The backup archive: the dated name, plain table names, archives that appear only complete,
// and hostile archives that are all refused with nothing written anywhere.
#include "backup/backuparchive.h"
#include "backupfixture.h"
#include "testdb.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QLocale>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <zip.h>

using namespace tabulon;
using namespace tabulon::test;

namespace {

struct Entry {
    QByteArray name;
    QByteArray content;
    mode_t mode = 0; // unix file type and permissions; 0 leaves libzip's default
};

// A zip written by libzip itself, stored uncompressed so tests can damage known bytes.
bool makeZip(const QString &path, const QList<Entry> &entries)
{
    QFile::remove(path);
    int code = 0;
    zip_t *archive = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE, &code);
    if (!archive)
        return false;
    for (const Entry &e : entries) {
        zip_source_t *source = zip_source_buffer(archive, e.content.constData(), zip_uint64_t(e.content.size()), 0);
        const zip_int64_t index = zip_file_add(archive, e.name.constData(), source, ZIP_FL_ENC_UTF_8);
        if (index < 0) {
            zip_source_free(source);
            zip_discard(archive);
            return false;
        }
        zip_set_file_compression(archive, zip_uint64_t(index),
                                 e.content.size() > 100000 ? ZIP_CM_DEFLATE : ZIP_CM_STORE, 0);
        if (e.mode)
            zip_file_set_external_attributes(archive, zip_uint64_t(index), 0, ZIP_OPSYS_UNIX,
                                             zip_uint32_t(e.mode) << 16);
    }
    return zip_close(archive) == 0;
}

// Every file and folder under `root`, hidden ones included, as sorted relative paths.
QStringList listing(const QString &root)
{
    QStringList out;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        out << QDir(root).relativeFilePath(it.next());
    out.sort();
    return out;
}

} // namespace

class TestBackupArchive final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void datedName_data();
    void datedName();
    void tableNames_data();
    void tableNames();
    void packAndExtract();
    void hostile_data();
    void hostile();
    void carryOver();

private:
    QTemporaryDir m_dir;
    QByteArray m_good;  // a good table file
    QByteArray m_other; // another one
};

void TestBackupArchive::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY(writeGridFile(m_dir.filePath(qs("g1")), {sl({"id", "name"}), sl({"1", "O'Brien, \"x\"\n"})}));
    QVERIFY(writeGridFile(m_dir.filePath(qs("g2")), {sl({"code"}), sl({"C00001"}), sl({""})}));
    m_good = read(m_dir.filePath(qs("g1")));
    m_other = read(m_dir.filePath(qs("g2")));
}

void TestBackupArchive::datedName_data()
{
    QTest::addColumn<QDate>("date");
    QTest::addColumn<QString>("locale");
    QTest::addColumn<QString>("name");
    // clang-format off
    QTest::newRow("example")             << QDate(2026, 11, 15) << "en_US" << "15-Nov-26";
    QTest::newRow("padded day and year") << QDate(2009, 1, 5)   << "en_GB" << "05-Jan-09";
    QTest::newRow("German locale")       << QDate(2026, 3, 1)   << "de_DE" << "01-Mar-26";
    QTest::newRow("turn of the century") << QDate(2100, 5, 20)  << "ja_JP" << "20-May-00";
    // clang-format on
}

void TestBackupArchive::datedName()
{
    QFETCH(QDate, date);
    QFETCH(QString, locale);
    const QLocale before;
    QLocale::setDefault(QLocale(locale));
    const QString name = BackupArchive::datedName(date);
    QLocale::setDefault(before);
    QTEST(name, "name");
}

// A name passes only when the restore's unquoted statements read it as one table name.
void TestBackupArchive::tableNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("passes");
    // clang-format off
    QTest::newRow("table")                      << "main_info1"                 << true;
    QTest::newRow("dollar and digit first")     << "$x2"                        << true;
    QTest::newRow("letters beyond ASCII")       << "Grüße_2024"                 << true;
    QTest::newRow("digits then letters")        << "12ab"                       << true;
    QTest::newRow("hex digits then a letter")   << "0x1fg"                      << true;
    QTest::newRow("capital X is no hex")        << "0X1f"                       << true;
    QTest::newRow("binary with a 2")            << "0b012"                      << true;
    QTest::newRow("longest")                    << QString(64, QLatin1Char('t')) << true;
    QTest::newRow("comment")                    << "main_info1 #"               << false;
    QTest::newRow("dash comment")               << "t--"                        << false;
    QTest::newRow("statement end")              << "t;"                         << false;
    QTest::newRow("quote")                      << "t'"                         << false;
    QTest::newRow("backquote")                  << "`t`"                        << false;
    QTest::newRow("bracket")                    << "t(1)"                       << false;
    QTest::newRow("dot")                        << "db.t"                       << false;
    QTest::newRow("separator")                  << "a/b"                        << false;
    QTest::newRow("newline")                    << "a\nb"                       << false;
    QTest::newRow("letter beyond the BMP")      << QString::fromUtf8("t\U0001D400") << false;
    QTest::newRow("digits only")                << "123"                        << false;
    QTest::newRow("exponent")                   << "1e5"                        << false;
    QTest::newRow("exponent then letters")      << "12E3abc"                    << false;
    QTest::newRow("hex literal")                << "0x1f"                       << false;
    QTest::newRow("binary literal")             << "0b01"                       << false;
    QTest::newRow("empty")                      << ""                           << false;
    QTest::newRow("too long")                   << QString(65, QLatin1Char('t')) << false;
    // clang-format on
}

void TestBackupArchive::tableNames()
{
    QFETCH(QString, name);
    QTEST(BackupArchive::isTableName(name), "passes");
}

// Packed table files come out byte for byte under their names, deflated, also when they span
// many of the packer's buffers; the archive never shows at its path unfinished, an existing one
// is replaced only when asked and only by a whole one, and a small archive unpacks on a nearly
// full disk. A file the packer cannot read stops it with an error naming the file; a packer
// ended midway leaves no part and no thread.
void TestBackupArchive::packAndExtract()
{
    QTemporaryDir root;
    const QString work = root.filePath(qs("15-Nov-26"));
    QVERIFY(QDir().mkpath(work));
    QList<QStringList> rows{sl({"id", "text"})};
    QRandomGenerator random(7);
    for (int i = 0; i < 60000; ++i)
        rows << QStringList{QString::number(i), QString::number(random.generate64(), 36).repeated(1 + i % 3)};
    QVERIFY(writeGridFile(work + qs("/big"), rows));
    const QByteArray big = read(work + qs("/big"));
    QVERIFY(big.size() > 3 * 256 * 1024);
    write(work + qs("/Main_Info1"), m_other);
    write(work + qs("/stray"), "not packed");
    const QString archive = root.filePath(qs("15-Nov-26.zip"));
    QVERIFY_DB(BackupArchive::pack(work, sl({"big", "Main_Info1"}), archive));
    QCOMPARE(listing(root.path()),
             sl({"15-Nov-26", "15-Nov-26.zip", "15-Nov-26/Main_Info1", "15-Nov-26/big", "15-Nov-26/stray"}));
    int code = 0;
    zip_t *zip = zip_open(QFile::encodeName(archive).constData(), ZIP_RDONLY | ZIP_CHECKCONS, &code);
    QVERIFY(zip);
    QCOMPARE(zip_get_num_entries(zip, 0), 2);
    for (zip_uint64_t i = 0; i < 2; ++i) {
        zip_stat_t st;
        QCOMPARE(zip_stat_index(zip, i, 0, &st), 0);
        QCOMPARE(st.comp_method, zip_uint16_t(ZIP_CM_DEFLATE));
        QVERIFY(st.comp_size < st.size);
    }
    zip_discard(zip);
    QStringList tables;
    QVERIFY_DB(BackupArchive::extract(archive, root.filePath(qs("x")), &tables));
    QCOMPARE(tables, sl({"big", "Main_Info1"}));
    QCOMPARE(read(root.filePath(qs("x/big"))), big);
    QCOMPARE(read(root.filePath(qs("x/Main_Info1"))), m_other);

    const DbError again = BackupArchive::pack(work, sl({"Main_Info1"}), archive);
    QVERIFY2(again.isFileError() && again.description.contains(archive), qPrintable(again.description));
    const DbError unwritable = BackupArchive::pack(work, sl({"Main_Info1"}), root.filePath(qs("no/x.zip")));
    QVERIFY2(unwritable.isFileError() && unwritable.description.contains(QLatin1String("x.zip")),
             qPrintable(unwritable.description));
    const QByteArray earlier = read(archive);
    QVERIFY(BackupArchive::pack(work, sl({"gone"}), archive, BackupArchive::Existing::Replace).isFileError());
    QCOMPARE(read(archive), earlier);
    QVERIFY_DB(BackupArchive::pack(work, sl({"Main_Info1"}), archive, BackupArchive::Existing::Replace));
    BackupArchive::Limits nearlyFull;
    nearlyFull.freeBytes = qint64(1) << 20;
    QVERIFY_DB(BackupArchive::extract(archive, root.filePath(qs("replaced")), &tables, nearlyFull));
    QCOMPARE(tables, sl({"Main_Info1"}));
    // An empty selection still gives an archive that opens.
    QVERIFY_DB(BackupArchive::pack(work, {}, root.filePath(qs("empty.zip"))));
    QVERIFY_DB(BackupArchive::extract(root.filePath(qs("empty.zip")), root.filePath(qs("empty")), &tables));
    QCOMPARE(tables, QStringList());

    const QStringList packed = listing(root.path());
    {
        BackupArchive::Packer packer(work);
        packer.add(qs("missing"));
        packer.add(qs("Main_Info1"));
        QTRY_VERIFY(packer.failure());
        const DbError error = packer.finish(root.filePath(qs("a.zip")));
        QVERIFY2(error.isFileError() && error.description.contains(qs("missing")), qPrintable(error.description));
    }
    QCOMPARE(listing(root.path()), packed);
    {
        BackupArchive::Packer packer(work);
        for (int i = 0; i < 50; ++i)
            packer.add(qs("big"));
        QTRY_COMPARE(threadsNamed(BackupArchive::Packer::kThreadName), 1);
    }
    QCOMPARE(listing(root.path()), packed);
    // Joined, not left running: gone within moments, long before 50 files could be compressed.
    QTRY_COMPARE_WITH_TIMEOUT(threadsNamed(BackupArchive::Packer::kThreadName), 0, 200);
}

// clang-format off
void TestBackupArchive::hostile_data()
{
    QTest::addColumn<QList<Entry>>("entries");
    QTest::addColumn<int>("damage"); // 0 none, 1 flip a stored byte, 2 chop the end, 3 rename bbbb to aaaa,
                                     // 4 room on the disk for the first entry only
    QTest::addColumn<QString>("reason");
    const QByteArray g = m_good;
    const QByteArray truncated = g.left(g.size() - 3);
    QTest::newRow("path traversal") << QList<Entry>{{"bill", g}, {"../evil", g}} << 0 << "not a table name";
    QTest::newRow("absolute path") << QList<Entry>{{"/tmp/evil", g}} << 0 << "not a table name";
    QTest::newRow("backslash traversal") << QList<Entry>{{"..\\evil", g}} << 0 << "not a table name";
    QTest::newRow("comment in a name") << QList<Entry>{{"bill", g}, {"main_info1 #", g}} << 0 << "not a table name";
    QTest::newRow("folder entry") << QList<Entry>{{"bill", g}, {"dir/", {}}} << 0 << "not a table name";
    QTest::newRow("symbolic link") << QList<Entry>{{"bill", "/etc/passwd", S_IFLNK | 0777}} << 0 << "link";
    QTest::newRow("exact duplicate") << QList<Entry>{{"aaaa", g}, {"bbbb", m_other}} << 3 << "exists";
    QTest::newRow("duplicate by case") << QList<Entry>{{"bill", g}, {"BILL", m_other}} << 0 << "more than once";
    QTest::newRow("damaged CRC") << QList<Entry>{{"bill", g}, {"owner1", m_other}} << 1 << "damaged";
    QTest::newRow("truncated archive") << QList<Entry>{{"bill", g}} << 2 << "";
    QTest::newRow("truncated table file") << QList<Entry>{{"bill", g}, {"owner1", truncated}} << 0 << "truncated";
    QTest::newRow("not a table file") << QList<Entry>{{"notes", "id,name\n1,x\n"}} << 0 << "not a grid file";
    QTest::newRow("zip bomb") << QList<Entry>{{"bill", g}, {"bomb", QByteArray(48 << 20, '\0')}} << 0 << "more than the";
    QTest::newRow("less free space than its files take") << QList<Entry>{{"bill", g}, {"owner1", m_other}} << 4 << "bytes of disk space";
}
// clang-format on

// Each is refused with a reason, and the folder around the archive holds exactly what it held; an
// archive that needs more room than the disk has is refused before a byte is written.
void TestBackupArchive::hostile()
{
    QFETCH(QList<Entry>, entries);
    QFETCH(int, damage);
    QFETCH(QString, reason);
    QTemporaryDir root;
    const QString archive = root.filePath(qs("15-Nov-26.zip"));
    QVERIFY(makeZip(archive, entries));
    QByteArray bytes = read(archive);
    if (damage == 1)
        bytes[bytes.indexOf("O'Brien")] ^= 0x20;
    else if (damage == 2)
        bytes.chop(30);
    else if (damage == 3)
        bytes.replace("bbbb", "aaaa");
    write(archive, bytes);
    const QStringList before = listing(root.path());

    QStringList tables{qs("untouched")};
    BackupArchive::Limits limits;
    limits.maxUnpackedBytes = 16 << 20;
    if (damage == 4)
        limits.freeBytes = BackupArchive::spaceToUnpack({quint64(entries.first().content.size())});
    const DbError error = BackupArchive::extract(archive, root.filePath(qs("15-Nov-26")), &tables, limits);
    QVERIFY2(error.isFileError() && error.description.contains(archive), qPrintable(error.description));
    QVERIFY2(error.description.contains(reason, Qt::CaseInsensitive), qPrintable(error.description));
    QCOMPARE(listing(root.path()), before);
    QCOMPARE(tables, sl({"untouched"}));
    QVERIFY(!QFileInfo::exists(qs("/tmp/evil")));
}

// The earlier archive's entries come out byte for byte, each checked: a damaged one stays behind
// with its reason, one the archive lacks is skipped.
void TestBackupArchive::carryOver()
{
    QTemporaryDir root;
    const QString archive = root.filePath(qs("15-Nov-26.zip"));
    QVERIFY(makeZip(archive, {{"bill", m_good}, {"owner1", m_other}, {"staff", m_other}}));
    QByteArray bytes = read(archive);
    bytes[bytes.indexOf("C00001")] ^= 0x20; // owner1's content
    write(archive, bytes);
    const QString work = root.filePath(qs("work"));
    QVERIFY(QDir().mkpath(work));
    QStringList carried;
    QStringList damaged;
    QVERIFY_DB(BackupArchive::carryOver(archive, sl({"bill", "owner1", "absent"}), work, &carried, &damaged));
    QCOMPARE(carried, sl({"bill"}));
    QCOMPARE(damaged.size(), 1);
    QVERIFY2(damaged.first().contains(qs("\"owner1\" is damaged")), qPrintable(damaged.first()));
    QCOMPARE(listing(work), sl({"bill"}));
    QCOMPARE(read(work + qs("/bill")), m_good);
    QVERIFY(
        BackupArchive::carryOver(root.filePath(qs("none.zip")), sl({"bill"}), work, &carried, &damaged).isFileError());
}

QTEST_GUILESS_MAIN(TestBackupArchive)
#include "test_backuparchive.moc"
