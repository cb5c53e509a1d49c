// The demo tables: definitions, the per-client row generators and the batched multi-row
// INSERTs that write them. The content is the same on every run and platform.
#include "demo/demotables.h"

#include <QByteArray>
#include <QDate>

#include <array>
#include <utility>

namespace tabulon {

namespace {

// A fixed 64-bit LCG (Knuth's MMIX constants): the same numbers on every platform and library,
// which std::rand() and the <random> distributions do not promise.
class Lcg final {
public:
    explicit Lcg(quint64 start) : m_state(start)
    {
        next();
        next();
    }
    quint32 next()
    {
        m_state = m_state * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<quint32>(m_state >> 33);
    }
    int below(int n) { return static_cast<int>(next() % static_cast<quint32>(n)); }
    int between(int lo, int hi) { return lo + below(hi - lo + 1); }
    bool percent(int p) { return below(100) < p; }
    template <typename T, size_t N> const T &pick(const std::array<T, N> &list)
    {
        return list[static_cast<size_t>(below(static_cast<int>(N)))];
    }

private:
    quint64 m_state;
};

// Each table and client gets its own stream, so a client's rows do not depend on how many
// clients are generated or in which order the tables are filled.
Lcg streamFor(int table, int client)
{
    return Lcg((static_cast<quint64>(table) + 1) * 0x9E3779B97F4A7C15ULL ^ (static_cast<quint64>(client) << 20));
}

constexpr auto firstNames = std::to_array<const char *>(
    {"Łukasz", "Maria", "Seán", "Zoë",  "José",  "Øyvind", "Ingrid", "Ahmet", "Chloé",      "Björn",
     "Priya",  "Tomás", "Anna", "John", "Fatma", "Émile",  "Kasia",  "Liam",  "Małgorzata", "Mehmet"});
constexpr auto surnames = std::to_array<const char *>(
    {"O'Brien", "Müller", "Çelik", "Nowak",    "García",    "D'Angelo",  "Smith",   "Jensen", "Kowalski",   "Rossi",
     "Yılmaz",  "Dubois", "Novák", "Schröder", "Fernández", "Andersson", "O'Neill", "Brown",  "Wiśniewski", "Lee"});
constexpr auto cities = std::to_array<const char *>(
    {"Zürich", "Kraków", "İzmir", "Cork", "Lyon", "Göteborg", "Porto", "Oslo", "München", "Łódź", "Sevilla", "Dublin"});
constexpr auto streets =
    std::to_array<const char *>({"Main Street", "St. Mary's Road", "Königstraße", "Rue de l'Église", "Ulica Długa",
                                 "Church Lane", "Harbour View", "Kirkegata"});
constexpr auto remarks = std::to_array<const char *>({
    "Prefers appointments after 4 p.m.",
    "Allergic to penicillin.",
    "Called about the invoice; promised payment by Friday.",
    "Spoke with Mrs. O'Neill, she'll bring the documents.",
    "Address changed, see owner record.",
    "Überweisung erhalten.",
    "Requested a copy of the records (C:\\Orvita\\export\\).",
    "Wheelchair access needed; use side entrance.",
});
constexpr auto findings = std::to_array<const char *>({
    "Routine check, no concerns.",
    "Blood pressure slightly raised; recheck in 2 weeks.",
    "Mild sprain, rest advised.",
    "Patient's cough persists; X-ray ordered.",
    "Wound healing well.",
    "Vaccination given, no reaction.",
});
constexpr auto staffNames =
    std::to_array<const char *>({"Dr. Anna Nowak", "Dr. Seán O'Brien", "Dr. Jürgen Weiß", "Dr. Ayşe Çelik",
                                 "Dr. Priya Rao", "Dr. Tomás Ruiz", "Nurse Zoë Martin", "Nurse Łucja Król"});
constexpr auto staffRoles = std::to_array<const char *>(
    {"Physician", "Physician", "Surgeon", "Physician", "Physician", "Dentist", "Nurse", "Nurse"});
constexpr auto drugs = std::to_array<const char *>(
    {"Amoxicillin", "Ibuprofen", "Paracetamol", "Metformin", "Omeprazole", "Cetirizine", "Atorvastatin", "Salbutamol"});
constexpr auto insurers =
    std::to_array<const char *>({"Allianz", "AXA", "Vhi Healthcare", "Techniker Krankenkasse", "PZU Zdrowie",
                                 "Anadolu Sigorta", "Irish Life Health", "Mutuelle Générale"});
constexpr auto payMethods = std::to_array<const char *>({"cash", "card", "transfer", "cheque"});
constexpr auto relations =
    std::to_array<const char *>({"spouse", "parent", "child", "sibling", "neighbour", "employer"});
constexpr auto rooms = std::to_array<const char *>({"A1", "A2", "B1", "B2", "C3"});
constexpr auto reasons =
    std::to_array<const char *>({"Check-up", "Follow-up", "Vaccination", "Blood test", "Consultation"});
constexpr auto docTitles =
    std::to_array<const char *>({"Referral letter", "Lab results", "X-ray", "Consent form", "Invoice copy", "ID scan"});
constexpr auto docTypes = std::to_array<const char *>({"pdf", "jpg", "tif", "doc"});
constexpr auto ledgerItems =
    std::to_array<const char *>({"Consultation", "Injection", "Bandage", "Lab fee", "X-ray", "Medication"});

QString dateText(int year0, int year1, Lcg &rng)
{
    const QDate from(year0, 1, 1);
    const QDate date = from.addDays(rng.below(static_cast<int>(from.daysTo(QDate(year1, 12, 31))) + 1));
    return date.toString(Qt::ISODate);
}

// Office hours only: with the server in a zone that keeps summer time, a TIMESTAMP in the
// skipped night hour would be moved and the data would depend on the server's zone.
QString timeText(Lcg &rng, int stepMinutes = 1)
{
    const int minutes = rng.between(8 * 60, 18 * 60 - 1) / stepMinutes * stepMinutes;
    return QStringLiteral("%1:%2:%3")
        .arg(minutes / 60, 2, 10, QLatin1Char('0'))
        .arg(minutes % 60, 2, 10, QLatin1Char('0'))
        .arg(stepMinutes == 1 ? rng.below(60) : 0, 2, 10, QLatin1Char('0'));
}

QString dateTimeText(int year0, int year1, Lcg &rng)
{
    const QString date = dateText(year0, year1, rng);
    return date + QLatin1Char(' ') + timeText(rng);
}

QString personName(Lcg &rng)
{
    const QString first = QString::fromUtf8(rng.pick(firstNames));
    return first + QLatin1Char(' ') + QString::fromUtf8(rng.pick(surnames));
}

QString phoneText(Lcg &rng)
{
    return QStringLiteral("+353 %1 %2").arg(rng.between(21, 99)).arg(rng.between(100000, 9999999));
}

// One INSERT statement at a time for one table: rows are appended as literals and sent once the
// batch is full.
class Batch final {
public:
    Batch(DatabaseSession &session, const QString &qualifiedTable, int batchRows)
        : m_session(session), m_head("INSERT INTO " + qualifiedTable.toUtf8() + " VALUES "),
          m_batchRows(batchRows < 1 ? 1 : batchRows)
    {
    }

    Batch &row()
    {
        if (m_error)
            return *this;
        if (m_inBatch == 0)
            m_sql = m_head;
        else
            m_sql += ',';
        m_sql += '(';
        m_first = true;
        return *this;
    }
    Batch &num(qint64 v) { return raw(QByteArray::number(v)); }
    Batch &real(double v, int decimals) { return raw(QByteArray::number(v, 'f', decimals)); }
    Batch &text(const QString &v) { return raw('\'' + m_session.escape(v.toUtf8()) + '\''); }
    Batch &text(const char *utf8) { return raw('\'' + m_session.escape(QByteArrayView(utf8)) + '\''); }
    Batch &bytes(const QByteArray &v) { return raw(v.isEmpty() ? QByteArray("''") : "0x" + v.toHex()); }
    Batch &null() { return raw("NULL"); }
    // The row is complete: counts it and sends the statement when the batch is full.
    void end()
    {
        if (m_error)
            return;
        m_sql += ')';
        ++m_rows;
        if (++m_inBatch == m_batchRows)
            flush();
    }
    void flush()
    {
        if (m_error || m_inBatch == 0)
            return;
        m_inBatch = 0;
        m_error = m_session.execute(QString::fromUtf8(m_sql));
        m_sql.clear();
    }

    qint64 nextId() { return ++m_lastId; }
    qint64 rows() const { return m_rows; }
    const DbError &error() const { return m_error; }

private:
    Batch &raw(const QByteArray &literal)
    {
        if (m_error)
            return *this;
        if (!m_first)
            m_sql += ',';
        m_first = false;
        m_sql += literal;
        return *this;
    }

    DatabaseSession &m_session;
    const QByteArray m_head;
    const int m_batchRows;
    QByteArray m_sql;
    int m_inBatch = 0;
    bool m_first = true;
    qint64 m_rows = 0;
    qint64 m_lastId = 0;
    DbError m_error;
};

struct Client final {
    int number;
    QString codeNo;
    QString code;
};

using Generator = void (*)(const Client &, Lcg &, Batch &);

struct TableDef final {
    DemoTable table;
    const char *columns; // inside CREATE TABLE (...)
    Generator rows;      // called once per client; nullptr for the staff list
};

void mainInfoRows(const Client &c, Lcg &rng, Batch &b)
{
    // Cycling through the name lists guarantees every name, apostrophes and non-ASCII letters
    // included, turns up in even a small database.
    const int n = c.number - 1;
    b.row()
        .text(c.codeNo)
        .text(c.code)
        .text(firstNames[static_cast<size_t>(n * 7) % firstNames.size()])
        .text(surnames[static_cast<size_t>(n) % surnames.size()]);
    if (rng.percent(10))
        b.null();
    else
        b.text(rng.percent(50) ? "F" : "M");
    b.text(dateText(1935, 2020, rng))
        .text(QStringLiteral("%1 %2").arg(rng.between(1, 180)).arg(QString::fromUtf8(rng.pick(streets))))
        .text(cities[static_cast<size_t>(n) % cities.size()]);
    if (rng.percent(20))
        b.null();
    else
        b.text(phoneText(rng));
    if (n % 4 == 3)
        b.null();
    else
        b.text(c.codeNo.toLower() + QStringLiteral("@example.org"));
    b.text(dateTimeText(2000, 2024, rng)).num(rng.percent(90) ? 1 : 0).real(rng.between(-50000, 200000) / 100.0, 2);
    if (n % 3 == 0)
        b.null();
    else
        b.text(rng.pick(remarks));
    b.end();
}

void ownerRows(const Client &c, Lcg &rng, Batch &b)
{
    const int n = c.number - 1;
    // An owner with a code of its own is a different person from the client.
    const QString owner = c.code == c.codeNo
                              ? QString::fromUtf8(firstNames[static_cast<size_t>(n * 7) % firstNames.size()]) +
                                    QLatin1Char(' ') +
                                    QString::fromUtf8(surnames[static_cast<size_t>(n) % surnames.size()])
                              : personName(rng);
    b.row()
        .text(c.code)
        .text(c.codeNo)
        .text(owner)
        .text(QStringLiteral("%1 %2").arg(rng.between(1, 180)).arg(QString::fromUtf8(rng.pick(streets))))
        .text(rng.pick(cities))
        .text(QStringLiteral("%1").arg(rng.between(1000, 99999)));
    if (rng.percent(15))
        b.null();
    else
        b.text(phoneText(rng));
    b.num(rng.between(0, 50) * 100).text(dateText(1990, 2024, rng)).end();
}

void billRows(const Client &c, Lcg &rng, Batch &b)
{
    for (int i = rng.between(0, 4); i > 0; --i) {
        const int cents = rng.between(1500, 250000);
        b.row().num(b.nextId()).text(c.code).text(dateText(2015, 2024, rng)).real(cents / 100.0, 2);
        b.real(cents * 23 / 100 / 100.0, 2).num(rng.percent(70) ? 1 : 0);
        if (rng.percent(25))
            b.null();
        else
            b.text(QStringLiteral("%1 (%2)").arg(QString::fromUtf8(rng.pick(ledgerItems))).arg(c.code));
        b.end();
    }
}

void ledgerRows(const Client &c, Lcg &rng, Batch &b)
{
    for (int i = rng.between(1, 4); i > 0; --i) {
        b.row()
            .text(c.code)
            .text(dateText(2010, 2024, rng))
            .text(rng.pick(ledgerItems))
            .num(rng.between(1, 12))
            .real(rng.between(50, 4000) / 4.0, 2);
        if (rng.percent(60))
            b.null();
        else
            b.text(rng.pick(remarks));
        b.end();
    }
}

void visitRows(const Client &c, Lcg &rng, Batch &b)
{
    for (int i = rng.between(0, 5); i > 0; --i) {
        b.row()
            .num(b.nextId())
            .text(c.codeNo)
            .text(dateTimeText(2012, 2024, rng))
            .num(rng.between(5, 90))
            .real(rng.between(300, 1300) / 10.0, 1)
            .real(rng.between(355, 405) / 10.0, 1)
            .text(rng.pick(staffNames));
        if (rng.percent(30))
            b.null();
        else
            b.text(rng.pick(findings));
        b.end();
    }
}

void paymentRows(const Client &c, Lcg &rng, Batch &b)
{
    for (int i = rng.between(0, 4); i > 0; --i) {
        const QString day = dateText(2015, 2024, rng);
        b.row().num(b.nextId()).text(c.code).text(day).real(rng.between(500, 150000) / 100.0, 2);
        b.text(rng.pick(payMethods));
        // Beyond 2^53, where a value read through a double changes.
        if (rng.percent(20))
            b.null();
        else {
            const qint64 high = rng.next();
            b.num(4611686018427387904LL + (high << 24) + rng.below(1 << 24));
        }
        b.text(day + QLatin1Char(' ') + timeText(rng)).end();
    }
}

void contactRows(const Client &c, Lcg &rng, Batch &b)
{
    for (int i = rng.between(0, 3); i > 0; --i) {
        b.row().text(c.code).text(personName(rng)).text(rng.pick(relations));
        if (rng.percent(20))
            b.null();
        else
            b.text(phoneText(rng));
        if (rng.percent(50))
            b.null();
        else
            b.text(QStringLiteral("contact%1.%2@example.net").arg(c.number).arg(i));
        b.num(i == 1 ? 1 : 0).end();
    }
}

void noteRows(const Client &c, Lcg &rng, Batch &b)
{
    for (int i = rng.between(0, 3); i > 0; --i) {
        b.row().text(c.codeNo).text(dateTimeText(2005, 2024, rng)).text(rng.pick(staffNames)).text(rng.pick(remarks));
        b.end();
    }
}

void documentRows(const Client &c, Lcg &rng, Batch &b)
{
    for (int i = rng.between(0, 3); i > 0; --i) {
        const int id = static_cast<int>(b.nextId());
        const char *type = rng.pick(docTypes);
        b.row()
            .num(id)
            .text(c.codeNo)
            .text(rng.pick(docTitles))
            .text(QStringLiteral("C:\\Orvita\\scans\\%1-%2.%3").arg(c.codeNo).arg(id).arg(QLatin1String(type)))
            .text(type)
            .num(rng.between(1024, 5000000))
            .text(dateTimeText(2010, 2024, rng));
        if (rng.percent(30)) {
            b.null();
        } else {
            // A file header followed by binary bytes, NUL and quote included.
            QByteArray content = "%PDF-1.4\n%";
            for (int k = rng.between(8, 40); k > 0; --k)
                content += static_cast<char>(rng.below(256));
            content += '\'';
            content += '\0';
            b.bytes(content);
        }
        b.end();
    }
}

void appointmentRows(const Client &c, Lcg &rng, Batch &b)
{
    for (int i = rng.between(0, 4); i > 0; --i) {
        b.row()
            .num(b.nextId())
            .text(c.codeNo)
            .text(dateText(2020, 2025, rng))
            .text(timeText(rng, 15))
            .num(rng.pick(std::array<int, 4>{15, 30, 45, 60}))
            .text(rng.pick(rooms))
            .num(rng.percent(75) ? 1 : 0);
        if (rng.percent(20))
            b.null();
        else
            b.text(rng.pick(reasons));
        b.end();
    }
}

void prescriptionRows(const Client &c, Lcg &rng, Batch &b)
{
    for (int i = rng.between(0, 3); i > 0; --i) {
        b.row()
            .text(c.code)
            .text(dateText(2015, 2024, rng))
            .text(rng.pick(drugs))
            .real(rng.between(1, 40) * 12.5, 1)
            .num(rng.between(1, 4))
            .num(rng.between(3, 90));
        if (rng.percent(40))
            b.null();
        else
            b.text(rng.percent(50) ? "Take with food; don't drive." : "Nach dem Essen einnehmen.");
        b.end();
    }
}

void insuranceRows(const Client &c, Lcg &rng, Batch &b)
{
    for (int i = rng.between(0, 2); i > 0; --i) {
        const int from = rng.between(2010, 2024);
        b.row()
            .text(QStringLiteral("P%1-%2").arg(c.number, 6, 10, QLatin1Char('0')).arg(i))
            .text(c.code)
            .text(rng.pick(insurers))
            .text(QStringLiteral("%1-01-01").arg(from));
        if (rng.percent(50))
            b.null();
        else
            b.text(QStringLiteral("%1-12-31").arg(from + rng.between(0, 5)));
        b.real(rng.between(50, 100) / 100.0, 2).real(rng.between(0, 20) * 25.0, 2);
        b.real(rng.between(200, 4000) / 4.0, 2).end();
    }
}

void staffRows(Batch &b)
{
    Lcg rng = streamFor(99, 0);
    for (size_t i = 0; i < staffNames.size(); ++i) {
        b.row()
            .num(static_cast<qint64>(i + 1))
            .text(staffNames[i])
            .text(staffRoles[i])
            .text(dateText(1995, 2022, rng))
            .text(timeText(rng, 30))
            .real(rng.between(3000, 12000) / 100.0, 2)
            .end();
    }
}

const std::vector<TableDef> &tableDefs()
{
    static const std::vector<TableDef> defs = {
        {{QStringLiteral("main_info1"), QStringLiteral("MyISAM"), QStringLiteral("code_no")},
         "code_no VARCHAR(10) NOT NULL, code VARCHAR(10) NOT NULL, first_name VARCHAR(40) NOT NULL, "
         "surname VARCHAR(40) NOT NULL, sex CHAR(1) NULL, birth_date DATE, address VARCHAR(80), city VARCHAR(40), "
         "phone VARCHAR(20) NULL, email VARCHAR(80) NULL, registered DATETIME, status TINYINT NOT NULL DEFAULT 1, "
         "balance DECIMAL(10,2), remarks TEXT NULL, PRIMARY KEY (code_no), KEY (code)",
         mainInfoRows},
        {{QStringLiteral("owner1"), QStringLiteral("MyISAM"), QStringLiteral("code")},
         "code VARCHAR(10) NOT NULL, code_no VARCHAR(10) NOT NULL, owner_name VARCHAR(80) NOT NULL, "
         "address VARCHAR(80), city VARCHAR(40), postcode CHAR(8), phone VARCHAR(20) NULL, credit_limit INT, "
         "since DATE, PRIMARY KEY (code), KEY (code_no)",
         ownerRows},
        {{QStringLiteral("bill"), QStringLiteral("InnoDB"), QStringLiteral("name")},
         "bill_no INT NOT NULL, name VARCHAR(10) NOT NULL, bill_date DATE NOT NULL, amount DECIMAL(10,2) NOT NULL, "
         "tax DECIMAL(8,2), paid TINYINT NOT NULL DEFAULT 0, description VARCHAR(100) NULL, PRIMARY KEY (bill_no), "
         "KEY (name)",
         billRows},
        // The old ledger: no key at all, as it came.
        {{QStringLiteral("table4"), QStringLiteral("MyISAM"), QStringLiteral("name")},
         "name VARCHAR(10) NOT NULL, entry_date DATE, item VARCHAR(40), qty SMALLINT, rate DOUBLE, "
         "remark VARCHAR(100) NULL",
         ledgerRows},
        {{QStringLiteral("visits"), QStringLiteral("InnoDB"), QStringLiteral("code_no")},
         "visit_id INT NOT NULL AUTO_INCREMENT, code_no VARCHAR(10) NOT NULL, visited DATETIME NOT NULL, "
         "duration_min SMALLINT, weight_kg FLOAT, temperature DECIMAL(4,1), doctor VARCHAR(40), findings TEXT NULL, "
         "PRIMARY KEY (visit_id), KEY (code_no)",
         visitRows},
        {{QStringLiteral("payments"), QStringLiteral("InnoDB"), QStringLiteral("code")},
         "payment_id INT NOT NULL AUTO_INCREMENT, code VARCHAR(10) NOT NULL, paid_on DATE, amount DECIMAL(10,2), "
         "method VARCHAR(12), reference BIGINT NULL, recorded TIMESTAMP NULL DEFAULT NULL, "
         "PRIMARY KEY (payment_id), KEY (code)",
         paymentRows},
        {{QStringLiteral("contacts"), QStringLiteral("MyISAM"), QStringLiteral("code")},
         "code VARCHAR(10) NOT NULL, contact_name VARCHAR(60), relation VARCHAR(20), phone VARCHAR(20) NULL, "
         "email VARCHAR(80) NULL, is_primary TINYINT, KEY (code)",
         contactRows},
        {{QStringLiteral("notes"), QStringLiteral("MyISAM"), QStringLiteral("code_no")},
         "code_no VARCHAR(10) NOT NULL, written DATETIME, author VARCHAR(40), note TEXT",
         noteRows},
        {{QStringLiteral("documents"), QStringLiteral("InnoDB"), QStringLiteral("code_no")},
         "doc_id INT NOT NULL AUTO_INCREMENT, code_no VARCHAR(10) NOT NULL, title VARCHAR(80), path VARCHAR(160), "
         "file_type CHAR(3), size_bytes BIGINT, scanned TIMESTAMP NULL DEFAULT NULL, content BLOB NULL, "
         "PRIMARY KEY (doc_id), KEY (code_no)",
         documentRows},
        {{QStringLiteral("appointments"), QStringLiteral("InnoDB"), QStringLiteral("code_no")},
         "appt_id INT NOT NULL AUTO_INCREMENT, code_no VARCHAR(10) NOT NULL, appt_date DATE, start_time TIME, "
         "length_min SMALLINT, room CHAR(3), confirmed TINYINT NOT NULL DEFAULT 0, reason VARCHAR(80) NULL, "
         "PRIMARY KEY (appt_id), KEY (code_no)",
         appointmentRows},
        {{QStringLiteral("prescriptions"), QStringLiteral("MyISAM"), QStringLiteral("code")},
         "code VARCHAR(10) NOT NULL, issued DATE, drug VARCHAR(60), dose_mg FLOAT, times_per_day TINYINT, "
         "days SMALLINT, instructions TEXT NULL",
         prescriptionRows},
        {{QStringLiteral("insurance"), QStringLiteral("InnoDB"), QStringLiteral("code")},
         "policy_no VARCHAR(20) NOT NULL, code VARCHAR(10) NOT NULL, insurer VARCHAR(60), valid_from DATE, "
         "valid_to DATE NULL, cover_ratio DOUBLE, excess DECIMAL(8,2), premium FLOAT, PRIMARY KEY (policy_no), "
         "KEY (code)",
         insuranceRows},
        {{QStringLiteral("staff"), QStringLiteral("MyISAM"), QString()},
         "staff_id SMALLINT NOT NULL, full_name VARCHAR(60) NOT NULL, role VARCHAR(30), hired DATE, shift_start TIME, "
         "rate_hour DECIMAL(6,2), PRIMARY KEY (staff_id)",
         nullptr},
    };
    return defs;
}

} // namespace

namespace DemoTables {

const std::vector<DemoTable> &list()
{
    static const std::vector<DemoTable> tables = [] {
        std::vector<DemoTable> out;
        for (const TableDef &def : tableDefs())
            out.push_back(def.table);
        return out;
    }();
    return tables;
}

QString columns(size_t index)
{
    return QString::fromUtf8(tableDefs().at(index).columns);
}

DbResult<qint64> writeRows(DatabaseSession &session, size_t index, const QString &qualifiedTable, int clients,
                           int batchRows)
{
    const TableDef &def = tableDefs().at(index);
    Batch batch(session, qualifiedTable, batchRows);
    if (def.rows) {
        for (int n = 1; n <= clients && !batch.error(); ++n) {
            Lcg rng = streamFor(static_cast<int>(index), n);
            def.rows(Client{n, DemoDatabase::codeNo(n), DemoDatabase::code(n)}, rng, batch);
        }
    } else {
        staffRows(batch);
    }
    batch.flush();
    if (batch.error())
        return batch.error();
    return batch.rows();
}

} // namespace DemoTables

} // namespace tabulon
