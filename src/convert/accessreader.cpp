// The program's side of the Access reader: starts the reader program, reads its frames, and
// hands the conversion and the import one table at a time.
#include "convert/accessfile.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <algorithm>

namespace tabulon {

namespace AccessFile {

namespace {
QString gReaderProgram;
} // namespace

void setReaderProgram(const QString &program)
{
    gReaderProgram = program;
}

QString readerProgram()
{
    if (!gReaderProgram.isEmpty())
        return gReaderProgram;
    const QString beside = QCoreApplication::applicationDirPath() + QStringLiteral("/tabulon-accessreader");
#ifdef TABULON_ACCESS_READER_BUILT
    // Programs of the build tree (tests, benchmarks) find the reader where the build put it.
    if (!QFileInfo::exists(beside))
        return QStringLiteral(TABULON_ACCESS_READER_BUILT);
#endif
    return beside;
}

DbResult<std::vector<SourceTable>> load(const QString &path, int timeoutSeconds)
{
    auto reader = AccessReader::start(path, timeoutSeconds);
    if (!reader.ok())
        return reader.error();
    std::vector<SourceTable> tables = (*reader)->catalog();
    for (std::size_t i = 0; i < tables.size(); ++i) {
        auto rows = (*reader)->table(i);
        if (!rows.ok())
            return rows.error();
        tables[i].rows = std::move(rows->rows);
    }
    return tables;
}

} // namespace AccessFile

AccessReader::AccessReader(const QString &path, int timeoutSeconds)
    : m_path(path), m_timeoutMs(std::max(timeoutSeconds, 1) * 1000)
{
}

AccessReader::~AccessReader()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.closeWriteChannel(); // the end of its input ends the reader
    if (!m_process.waitForFinished(2000)) {
        m_process.kill();
        m_process.waitForFinished(2000);
    }
}

DbResult<std::unique_ptr<AccessReader>> AccessReader::start(const QString &path, int timeoutSeconds)
{
    if (!QFileInfo(path).isFile())
        return DbError::file(path, QStringLiteral("No such file or directory"));
    std::unique_ptr<AccessReader> reader(new AccessReader(path, timeoutSeconds));
    QProcess &p = reader->m_process;
    p.setProgram(AccessFile::readerProgram());
    p.setArguments({QFileInfo(path).absoluteFilePath()});
    p.setStandardErrorFile(QProcess::nullDevice());
    p.start(QIODevice::ReadWrite | QIODevice::Unbuffered);
    if (!p.waitForStarted(reader->m_timeoutMs))
        return DbError::file(
            path, QStringLiteral("the Access reader %1 cannot be started: %2").arg(p.program(), p.errorString()));
    char kind = 0;
    QByteArray payload;
    do {
        if (DbError e = reader->frame(kind, payload))
            return e;
    } while (kind == 'P');
    if (kind != 'C')
        return reader->malformed();
    auto catalog = AccessFile::decode(payload);
    if (!catalog.ok())
        return DbError::file(path, catalog.error().description);
    reader->m_catalog = std::move(catalog.value());
    return reader;
}

DbError AccessReader::malformed() const
{
    return DbError::file(m_path, QStringLiteral("the Access reader's answer is malformed"));
}

DbError AccessReader::frame(char &kind, QByteArray &payload)
{
    auto need = [&](qsizetype bytes) -> DbError {
        while (m_pending.size() < bytes) {
            if (m_process.bytesAvailable() == 0 && !m_process.waitForReadyRead(m_timeoutMs)) {
                if (m_process.state() == QProcess::Running) {
                    m_process.kill();
                    m_process.waitForFinished(2000);
                    return DbError::file(m_path, QStringLiteral("reading the Access database stopped answering"));
                }
                if (m_process.exitStatus() == QProcess::CrashExit)
                    return DbError::file(m_path, QStringLiteral("the Access database is damaged (its reader ended "
                                                                "abnormally)"));
                return DbError::file(m_path, QStringLiteral("the Access database could not be read"));
            }
            m_pending.append(m_process.readAllStandardOutput());
        }
        return DbError::none();
    };
    if (DbError e = need(5))
        return e;
    kind = m_pending[0];
    // The length, little-endian, after the kind.
    const auto *head = reinterpret_cast<const unsigned char *>(m_pending.constData() + 1);
    const quint32 length = head[0] | (head[1] << 8) | (head[2] << 16) | (quint32(head[3]) << 24);
    if (kind != 'P' && kind != 'C' && kind != 'F' && kind != 'D' && kind != 'E')
        return malformed();
    if (DbError e = need(5 + static_cast<qsizetype>(length)))
        return e;
    payload = m_pending.mid(5, length);
    m_pending.remove(0, 5 + static_cast<qsizetype>(length));
    if (kind == 'E')
        return DbError::file(m_path, QString::fromUtf8(payload));
    return DbError::none();
}

DbResult<SourceTable> AccessReader::table(std::size_t index)
{
    if (index >= m_catalog.size())
        return malformed();
    if (m_process.state() != QProcess::Running)
        return DbError::file(m_path, QStringLiteral("the Access reader has ended"));
    m_process.write(QByteArray::number(static_cast<qulonglong>(index)) + '\n');
    QByteArray form;
    char kind = 0;
    QByteArray payload;
    for (;;) {
        if (DbError e = frame(kind, payload))
            return e;
        if (kind == 'D')
            break;
        if (kind == 'P')
            continue; // the reader is alive, reading a long table
        if (kind != 'F')
            return malformed();
        form += payload;
    }
    auto tables = AccessFile::decode(form);
    if (!tables.ok())
        return DbError::file(m_path, tables.error().description);
    if (tables->size() != 1 || tables->front().name != m_catalog[index].name)
        return malformed();
    return std::move(tables->front());
}

DbResult<std::unique_ptr<ConversionSource>> AccessSource::open(const QString &path)
{
    auto reader = AccessReader::start(path);
    if (!reader.ok())
        return reader.error();
    return std::unique_ptr<ConversionSource>(new AccessSource(std::move(reader.value())));
}

AccessSource::AccessSource(std::unique_ptr<AccessReader> reader) : m_reader(std::move(reader))
{
    // The tables in the order a provider's schema rowset lists them: by name, whatever the case.
    const std::vector<SourceTable> &catalog = m_reader->catalog();
    for (std::size_t i = 0; i < catalog.size(); ++i)
        m_order.push_back(i);
    std::stable_sort(m_order.begin(), m_order.end(), [&](std::size_t a, std::size_t b) {
        return catalog[a].name.compare(catalog[b].name, Qt::CaseInsensitive) < 0;
    });
}

AccessSource::~AccessSource() = default;

QStringList AccessSource::tableNames() const
{
    QStringList names;
    for (const std::size_t i : m_order)
        names << m_reader->catalog()[i].name;
    return names;
}

std::optional<std::size_t> AccessSource::find(const QString &table) const
{
    const std::vector<SourceTable> &catalog = m_reader->catalog();
    for (std::size_t i = 0; i < catalog.size(); ++i) {
        if (catalog[i].name.compare(table, Qt::CaseInsensitive) == 0)
            return i;
    }
    return std::nullopt;
}

DbResult<std::vector<SourceField>> AccessSource::readFields(const QString &table)
{
    if (const auto i = find(table))
        return m_reader->catalog()[*i].fields;
    return unknownSourceTable(table);
}

DbError AccessSource::readRows(const QString &table, const RowSink &row)
{
    const auto i = find(table);
    if (!i)
        return unknownSourceTable(table);
    // Only this table's rows are held, for as long as they are handed over.
    auto rows = m_reader->table(*i);
    if (!rows.ok())
        return rows.error();
    for (const SourceRow &r : rows->rows) {
        if (DbError e = row(r))
            return e;
    }
    return DbError::none();
}

} // namespace tabulon
