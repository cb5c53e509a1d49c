// TLS on every connection the program opens: the session's modes against a server with TLS and
// one without, the main window's status bar and setup messages, the restore's own connection
// and import_db. The TLS server is the one TABULON_TEST_TLS_SERVER names (its certificates in
// TABULON_TEST_TLS_DIR), or one this test starts with the project's script on a free port.
#include "app/mdiform1.h"
#include "app/toolcatalog.h"
#include "backup/restore.h"
#include "db/connectionstring.h"
#include "files.h"
#include "operator.h"
#include "testdb.h"

#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace tabulon;
using namespace tabulon::test;

namespace {

// A port nothing listens on now (the kernel's pick for a socket bound to port 0).
int freePort()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof a;
    int port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr *>(&a), &size) == 0)
        port = ntohs(a.sin_port);
    ::close(fd);
    return port;
}

QString run(const QString &program, const QStringList &arguments, int *exitCode = nullptr)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(program, arguments);
    p.waitForFinished(300000);
    if (exitCode)
        *exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    return QString::fromUtf8(p.readAll());
}

QString sslCipher(DatabaseSession &session)
{
    auto rs = session.openQuery(qs("SHOW STATUS LIKE 'Ssl_cipher'"));
    return rs.ok() && rs->recordCount() == 1 ? rs->text(0, 1) : qs("(not read)");
}

TlsConfig config(const QString &mode, const QString &ca = QString())
{
    TlsConfig c;
    c.mode = Tls::modeFromText(mode).value_or(TlsMode::Off);
    c.ca = ca;
    return c;
}

} // namespace

class TestTls final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init() { SessionTls::setProgramDefault(std::nullopt); }
    void sessionFollowsMode_data();
    void sessionFollowsMode();
    void mainWindowAndRestore_data();
    void mainWindowAndRestore();
    void importDbFollowsSettings_data();
    void importDbFollowsSettings();

private:
    QString address(const QString &server) const;
    QString tlsFile(const char *name) const { return QDir(m_tlsDir).filePath(qs(name)); }
    // The program's settings file: the server, the database when given, the TLS mode and our CA.
    void writeSettings(const QString &ini, const QString &server, const QString &mode,
                       const char *database = nullptr) const
    {
        QSettings s(ini, QSettings::IniFormat);
        s.setValue(qs("Software/Corvane/Tabulon/Server"), address(server));
        if (database)
            s.setValue(qs("Software/Corvane/Tabulon/Database"), qs(database));
        s.setValue(qs("Software/Corvane/Tabulon/TlsMode"), mode);
        s.setValue(qs("Software/Corvane/Tabulon/TlsCa"), tlsFile("ca.pem"));
    }

    QTemporaryDir m_work;
    std::unique_ptr<QTemporaryDir> m_serverDir;
    QString m_tlsServer; // 127.0.0.1:port
    QString m_tlsDir;
    bool m_plainHasTls = false;
};

void TestTls::initTestCase()
{
    QVERIFY(m_work.isValid());
    m_tlsServer = qEnvironmentVariable("TABULON_TEST_TLS_SERVER");
    m_tlsDir = qEnvironmentVariable("TABULON_TEST_TLS_DIR");
    if (m_tlsServer.isEmpty()) {
        // A short folder: the server's socket path has a length limit.
        m_serverDir = std::make_unique<QTemporaryDir>(QDir::tempPath() + qs("/tabulon-tls-XXXXXX"));
        QVERIFY(m_serverDir->isValid());
        QString output;
        for (int attempt = 0; attempt < 3 && m_tlsServer.isEmpty(); ++attempt) {
            const QString port = QString::number(freePort());
            int code = 0;
            output = run(qs("bash"), {qs(TABULON_MARIADB_SCRIPT), qs("start"), m_serverDir->path(), port, qs("--tls")},
                         &code);
            if (code == 0)
                m_tlsServer = qs("127.0.0.1:") + port;
            else // the port was taken meanwhile
                run(qs("bash"), {qs(TABULON_MARIADB_SCRIPT), qs("stop"), m_serverDir->path()});
        }
        QVERIFY2(!m_tlsServer.isEmpty(), qPrintable(output));
        m_tlsDir = m_serverDir->filePath(qs("tls"));
    }
    // A CA that signed nothing of the server's.
    int code = 0;
    const QString out = run(qs("openssl"),
                            {qs("req"), qs("-x509"), qs("-newkey"), qs("rsa:2048"), qs("-nodes"), qs("-days"), qs("1"),
                             qs("-subj"), qs("/CN=Another CA"), qs("-keyout"), m_work.filePath(qs("other-key.pem")),
                             qs("-out"), m_work.filePath(qs("other-ca.pem"))},
                            &code);
    QVERIFY2(code == 0, qPrintable(out));

    // A user the server admits only with a client certificate its CA signed.
    DatabaseSession admin;
    admin.setTls(config(qs("required")));
    QVERIFY_DB(admin.open(ConnectionString::mysql(m_tlsServer, qs("dbop"), QString(), QString())));
    QVERIFY_DB(admin.execute(qs("CREATE USER IF NOT EXISTS 'dbop_x509'@'127.0.0.1' REQUIRE X509")));

    DatabaseSession plain;
    QVERIFY_DB(openSession(plain, QString()));
    auto haveSsl = plain.openQuery(qs("SELECT @@have_ssl"));
    QVERIFY(haveSsl.ok());
    m_plainHasTls = haveSsl->text(0, 0) == qs("YES");
}

void TestTls::cleanupTestCase()
{
    SessionTls::setProgramDefault(std::nullopt);
    if (m_serverDir)
        run(qs("bash"), {qs(TABULON_MARIADB_SCRIPT), qs("stop"), m_serverDir->path()});
}

// "tls": the TLS server by address; "tls-name": by the name its certificate holds; "plain": the
// test command's server, without TLS.
QString TestTls::address(const QString &server) const
{
    if (server == qs("plain"))
        return serverAddress();
    if (server == qs("tls-name"))
        return qs("localhost") + m_tlsServer.mid(m_tlsServer.indexOf(u':'));
    return m_tlsServer;
}

// clang-format off
void TestTls::sessionFollowsMode_data()
{
    QTest::addColumn<QString>("mode"); // "": the session is given none, the program's is required
    QTest::addColumn<QString>("server");
    QTest::addColumn<QString>("ca"); // the CA file: ours, another that signed nothing of the server's, none
    QTest::addColumn<bool>("clientCertificate");
    QTest::addColumn<QString>("outcome"); // "encrypted", "plain" or the refusal
    // The modes the main window's test connects with (required, verify-identity by name, off,
    // preferred and required without TLS offered) are left to it; off is here for its sibling.
    const QString ours = tlsFile("ca.pem"), other = m_work.filePath(qs("other-ca.pem"));

    QTest::newRow("preferred, TLS offered") << "preferred" << "tls" << "" << false << "encrypted";
    QTest::newRow("off, TLS offered") << "off" << "tls" << "" << false << "plain";
    QTest::newRow("none of its own: the program's") << "" << "tls" << "" << false << "encrypted";
    QTest::newRow("verify-ca by address") << "verify-ca" << "tls" << ours << false << "encrypted";
    QTest::newRow("client certificate") << "required" << "tls" << "" << true << "encrypted";

    QTest::newRow("verify-ca, another CA") << "verify-ca" << "tls" << other << false << "untrusted";
    QTest::newRow("verify-identity, another CA") << "verify-identity" << "tls-name" << other << false << "untrusted";
    QTest::newRow("verify-identity by address") << "verify-identity" << "tls" << ours << false << "host";
    QTest::newRow("verify-ca, no TLS offered") << "verify-ca" << "plain" << ours << false << "no TLS";
    QTest::newRow("verify-identity, no TLS offered") << "verify-identity" << "plain" << ours << false << "no TLS";
    QTest::newRow("CA file missing") << "verify-ca" << "tls" << m_work.filePath(qs("no-such-ca.pem")) << false << "file";
    QTest::newRow("verify-ca without a CA") << "verify-ca" << "tls" << "" << false << "no CA";
}
// clang-format on

void TestTls::sessionFollowsMode()
{
    QFETCH(QString, mode);
    QFETCH(QString, server);
    QFETCH(QString, ca);
    QFETCH(bool, clientCertificate);
    QFETCH(QString, outcome);
    if (server == qs("plain") && m_plainHasTls)
        QSKIP("the test command's server offers TLS");

    TlsConfig tls = config(mode, ca);
    if (clientCertificate) {
        tls.cert = tlsFile("client-cert.pem");
        tls.key = tlsFile("client-key.pem");
    }
    SessionTls::setProgramDefault(config(qs("required")));
    DatabaseSession session;
    if (!mode.isEmpty())
        session.setTls(tls);
    const DbError e = session.open(
        ConnectionString::mysql(address(server), qs(clientCertificate ? "dbop_x509" : "dbop"), QString(), QString()));

    if (outcome == qs("encrypted") || outcome == qs("plain")) {
        QVERIFY_DB(e);
        const TlsState state = session.tlsState();
        QCOMPARE(state.encrypted(), outcome == qs("encrypted"));
        QCOMPARE(sslCipher(session), state.cipher); // the server agrees
        if (state.encrypted())
            QVERIFY2(state.version.startsWith(qs("TLSv")), qPrintable(state.version));
        // A sibling takes its session's configuration, not the program's.
        DatabaseSession sibling;
        QVERIFY_DB(session.openSibling(sibling));
        QCOMPARE(sibling.tlsState().encrypted(), state.encrypted());
        return;
    }
    QVERIFY(!session.isOpen());
    QVERIFY2(SessionTls::isRefusal(e), qPrintable(e.description));
    QString expected;
    if (outcome == qs("untrusted"))
        expected = SessionTls::untrustedText(tls, qs("self-signed certificate in certificate chain"));
    else if (outcome == qs("host"))
        expected = SessionTls::hostMismatchText(qs("127.0.0.1"));
    else if (outcome == qs("no TLS"))
        expected = SessionTls::noTlsText(tls);
    else if (outcome == qs("file"))
        expected = SessionTls::fileText(qs("TlsCa"), tls.ca, qs("No such file or directory"));
    else
        expected = qs("TlsMode verify-ca checks the server's certificate against the CA in TlsCa, which is empty. Set "
                      "TlsCa to the CA's certificate file.");
    QCOMPARE(e.description, expected);
}

// clang-format off
void TestTls::mainWindowAndRestore_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QString>("server");
    QTest::addColumn<QString>("status");  // "encrypted" for the session's own TLS version and cipher
    QTest::addColumn<QString>("refusal"); // the setup's and the restore's reason, "" when they connect

    QTest::newRow("required") << "required" << "tls" << "encrypted" << "";
    QTest::newRow("verify-identity") << "verify-identity" << "tls-name" << "encrypted" << "";
    QTest::newRow("preferred falls back") << "preferred" << "plain" << "Not encrypted: the server offers no TLS" << "";
    QTest::newRow("off") << "off" << "tls" << "Not encrypted: TlsMode is off" << "";
    QTest::newRow("required, no TLS offered") << "required" << "plain" << "Not connected"
        << "The server offers no TLS, and TlsMode is required. Enable TLS on the server, or set TlsMode to preferred to connect without it.";
    QTest::newRow("unknown mode") << "strict" << "tls" << "Not connected" << "unknown mode";
}
// clang-format on

void TestTls::mainWindowAndRestore()
{
    QFETCH(QString, mode);
    QFETCH(QString, server);
    QFETCH(QString, status);
    QFETCH(QString, refusal);
    if (server == qs("plain") && m_plainHasTls)
        QSKIP("the test command's server offers TLS");

    QTemporaryDir dir;
    const QString ini = dir.filePath(qs("Tabulon.ini"));
    writeSettings(ini, server, mode, "mysql");
    const bool unknownMode = refusal == qs("unknown mode");
    if (unknownMode)
        refusal = Settings(ini).readTls().problem;
    Operator op;
    AppEnvironment env;
    env.settingsPath = ini;
    QStringList started;
    env.serverStart.profilePath = dir.filePath(qs("my.ini"));
    env.serverStart.launch = [&started](const QString &p) {
        started << p;
        return true;
    };
    MDIForm1 w(env);
    registerTools(w);
    w.startUp();
    QCOMPARE(started, QStringList()); // a server that refuses for TLS reasons is running
    QCOMPARE(op.modals.size(), 1);
    op.modals.last()->findChild<QPushButton *>(qs("cmdok"))->click();

    QStringList told;
    if (unknownMode)
        told << refusal; // at start, before any connection
    if (!refusal.isEmpty())
        told << qs("Error connecting to Database.\n\n") + refusal;
    QCOMPARE(op.told, told);
    if (status == qs("encrypted")) {
        const TlsState tls = w.session()->tlsState();
        QVERIFY(!tls.cipher.isEmpty());
        QCOMPARE(sslCipher(*w.session()), tls.cipher);
        status = qs("Encrypted: %1, %2").arg(tls.version, tls.cipher);
    }
    QCOMPARE(w.findChild<QLabel *>(qs("lblTls"))->text(), status);

    // The restore's own connection, to the database the operator names, follows the same mode.
    w.runCommand(qs("mnurestore"));
    auto *restore = qobject_cast<Restore *>(op.modals.last());
    QVERIFY(restore);
    restore->findChild<QLineEdit *>(qs("txtdbpath"))->setText(qs("mysql"));
    op.told.clear();
    restore->findChild<QPushButton *>(qs("Command2"))->click();
    if (!refusal.isEmpty()) {
        QCOMPARE(op.told, QStringList{refusal});
        QVERIFY(!restore->target().isOpen());
    } else {
        const bool encrypted = status.startsWith(qs("Encrypted"));
        QCOMPARE(op.told, QStringList());
        QCOMPARE(!sslCipher(restore->target()).isEmpty(), encrypted);
        QCOMPARE(restore->target().tlsState().encrypted(), encrypted);
    }
    restore->close();
}

// clang-format off
void TestTls::importDbFollowsSettings_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QString>("server");
    QTest::newRow("verify-identity") << "verify-identity" << "tls-name";
    QTest::newRow("required, no TLS offered") << "required" << "plain";
}
// clang-format on

void TestTls::importDbFollowsSettings()
{
    QFETCH(QString, mode);
    QFETCH(QString, server);
    if (server == qs("plain") && m_plainHasTls)
        QSKIP("the test command's server offers TLS");

    // import_db reads the user's settings file, here that of a user whose configuration is in `home`.
    QTemporaryDir home;
    const QString program = home.filePath(qs("import_db"));
    QVERIFY(QFile::copy(qs(TABULON_IMPORT_DB), program));
    const QString target = qs("tabulon_t_tls_import");
    write(home.filePath(qs("import.sql")),
          qs("DROP DATABASE IF EXISTS %1;\nCREATE DATABASE %1;\nCREATE TABLE %1.cipher AS SELECT "
             "VARIABLE_VALUE AS v FROM information_schema.SESSION_STATUS WHERE VARIABLE_NAME = "
             "'SSL_CIPHER';\n")
              .arg(target)
              .toUtf8());
    writeSettings(home.filePath(qs("config/Corvane/Tabulon.ini")), server, mode);
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(qs("XDG_CONFIG_HOME"), home.filePath(qs("config")));
    p.setProcessEnvironment(env);
    p.start(program, {qs("--batch")});
    QVERIFY(p.waitForFinished(60000));
    const QString out = QString::fromUtf8(p.readAllStandardOutput() + p.readAllStandardError());
    if (server == qs("plain")) {
        QCOMPARE(p.exitCode(), 1);
        const QString expected =
            qs("\nCannot connect to %1: %2\n").arg(address(server), SessionTls::noTlsText(config(mode)));
        QVERIFY2(QString(qs("\n") + out).endsWith(expected), qPrintable(out));
        return;
    }
    QVERIFY2(p.exitCode() == 0, qPrintable(out));
    DatabaseSession admin;
    admin.setTls(config(qs("required")));
    QVERIFY_DB(admin.open(ConnectionString::mysql(m_tlsServer, qs("dbop"), QString(), target)));
    auto rs = admin.openQuery(qs("SELECT v FROM cipher"));
    QVERIFY(rs.ok() && rs->recordCount() == 1);
    QVERIFY2(rs->text(0, 0).startsWith(qs("TLS_")), qPrintable(rs->text(0, 0)));
    QVERIFY_DB(admin.execute(qs("DROP DATABASE ") + target));
}

QTEST_MAIN(TestTls)
#include "test_tls.moc"
