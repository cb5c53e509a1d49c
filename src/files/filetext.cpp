#include "files/filetext.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>
#include <QStringEncoder>

namespace tabulon::Files {

namespace {

const QByteArray kUtf8Bom("\xEF\xBB\xBF");
const QByteArray kUtf16LEBom("\xFF\xFE");
const QByteArray kUtf16BEBom("\xFE\xFF");

// Text files hold no zero bytes and hardly any other control characters; tabs, line ends,
// form feeds, escape and the old end-of-file mark excepted.
bool looksBinary(QByteArrayView bytes)
{
    qsizetype controls = 0;
    for (const char c : bytes) {
        const auto u = static_cast<unsigned char>(c);
        if (u == 0)
            return true;
        if (u < 0x20 && u != '\t' && u != '\n' && u != '\r' && u != '\f' && u != 0x1A && u != 0x1B)
            ++controls;
    }
    return controls * 1000 > bytes.size();
}

std::optional<QString> decodeStrictly(QStringConverter::Encoding encoding, QByteArrayView bytes)
{
    // A byte order mark inside the body is text of the file, not a mark to drop.
    QStringDecoder decoder(encoding, QStringConverter::Flag::ConvertInitialBom);
    QString text = decoder(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

QByteArray encodeWith(QStringConverter::Encoding encoding, const QString &text)
{
    QStringEncoder encoder(encoding);
    return encoder(text);
}

// The bytes of the text in a named encoding; nothing when a character has no bytes there, or
// when the bytes do not read back as the same text.
std::optional<QByteArray> encodeNamed(const QString &encoding, const QString &text)
{
    const QByteArray name = encoding.toLatin1();
    QStringEncoder encoder(name.constData());
    if (!encoder.isValid())
        return std::nullopt;
    QByteArray bytes = encoder(text);
    QStringDecoder decoder(name.constData());
    if (encoder.hasError() || QString(decoder(bytes)) != text || decoder.hasError())
        return std::nullopt;
    return bytes;
}

// The text of bytes in a named encoding; nothing when they do not decode, or when the text would
// not be written back as the very same bytes.
std::optional<QString> decodeNamed(const QString &encoding, QByteArrayView bytes)
{
    const QByteArray name = encoding.toLatin1();
    QStringDecoder decoder(name.constData());
    if (!decoder.isValid())
        return std::nullopt;
    QString text = decoder(bytes);
    if (decoder.hasError())
        return std::nullopt;
    const std::optional<QByteArray> back = encodeNamed(encoding, text);
    if (!back || *back != bytes)
        return std::nullopt;
    return text;
}

struct Read final {
    Decoded decoded;
    QString problem; // set when the file could not be read
    QByteArray bytes;
};

Read readTextFile(const QString &path, const QString &encoding)
{
    QFile file(path);
    if (file.size() > kMaxTextFileBytes)
        return {{}, QStringLiteral("larger than %1 MB, not read").arg(kMaxTextFileBytes / (1024 * 1024)), {}};
    if (!file.open(QIODevice::ReadOnly))
        return {{}, file.errorString(), {}};
    QByteArray bytes = file.readAll();
    Decoded decoded = decodeText(bytes, encoding);
    return {std::move(decoded), {}, std::move(bytes)};
}

QString unknownEncodingReason(const QString &encoding)
{
    return encoding.isEmpty() ? QStringLiteral("not text in a known encoding")
                              : QStringLiteral("not text in %1").arg(encoding);
}

// Notes the lines that hold the text, the first few with their text.
void matchLines(FileChange &change, const QString &text, const QString &find, Qt::CaseSensitivity cs)
{
    constexpr qsizetype kLongestLine = 120;
    int number = 0;
    for (QStringView line : QStringView(text).split(QLatin1Char('\n'))) {
        ++number;
        if (!line.contains(find, cs))
            continue;
        ++change.matchedLines;
        if (int(change.lines.size()) >= kLinesPerFile)
            continue;
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);
        QString shown = line.trimmed().toString();
        if (shown.size() > kLongestLine)
            shown = shown.left(kLongestLine) + QStringLiteral("...");
        change.lines.push_back(MatchedLine{number, shown});
    }
}

} // namespace

QStringList choosableEncodings()
{
    QStringList out;
    for (const char *name : {"ISO-8859-1", "windows-1252", "ISO-8859-15", "ISO-8859-2", "windows-1250", "windows-1251",
                             "KOI8-R", "Shift_JIS", "EUC-JP", "GBK", "Big5", "EUC-KR"}) {
        if (QStringDecoder(name).isValid())
            out << QLatin1String(name);
    }
    return out;
}

Decoded decodeText(const QByteArray &bytes, const QString &encoding)
{
    const auto withBom = [&bytes](TextForm form, QStringConverter::Encoding encoding, qsizetype bom) -> Decoded {
        const QByteArrayView body = QByteArrayView(bytes).sliced(bom);
        if (encoding != QStringConverter::Utf8 && body.size() % 2 != 0)
            return {std::nullopt, true};
        if (auto text = decodeStrictly(encoding, body))
            return {TextFile{form, *std::move(text), {}}, false};
        return {std::nullopt, true};
    };
    if (bytes.startsWith(kUtf8Bom))
        return withBom(TextForm::Utf8Bom, QStringConverter::Utf8, kUtf8Bom.size());
    if (bytes.startsWith(kUtf16LEBom))
        return withBom(TextForm::Utf16LE, QStringConverter::Utf16LE, kUtf16LEBom.size());
    if (bytes.startsWith(kUtf16BEBom))
        return withBom(TextForm::Utf16BE, QStringConverter::Utf16BE, kUtf16BEBom.size());
    if (looksBinary(bytes))
        return {std::nullopt, true};
    if (!encoding.isEmpty()) {
        if (auto text = decodeNamed(encoding, bytes))
            return {TextFile{TextForm::Chosen, *std::move(text), encoding}, false};
        return {std::nullopt, false};
    }
    if (auto text = decodeStrictly(QStringConverter::Utf8, bytes))
        return {TextFile{TextForm::Utf8, *std::move(text), {}}, false};
    return {std::nullopt, false};
}

std::optional<QByteArray> encodeText(const TextFile &file)
{
    switch (file.form) {
    case TextForm::Utf8: return file.text.toUtf8();
    case TextForm::Utf8Bom: return kUtf8Bom + file.text.toUtf8();
    case TextForm::Utf16LE: return kUtf16LEBom + encodeWith(QStringConverter::Utf16LE, file.text);
    case TextForm::Utf16BE: return kUtf16BEBom + encodeWith(QStringConverter::Utf16BE, file.text);
    case TextForm::Chosen: return encodeNamed(file.encoding, file.text);
    }
    return std::nullopt;
}

ContentPlan planReplaceInFiles(const QString &root, const QString &target, const TextReplacement &replacement,
                               Progress &progress)
{
    ContentPlan plan;
    plan.root = root;
    const auto &[find, with, cs, hidden, encoding] = replacement;
    if (find.isEmpty())
        return plan;
    const QFileInfo targetInfo(target);
    const QStringList files = targetInfo.isDir() && !targetInfo.isSymLink()
                                  ? itemsBelow(target, Kind::Files, hidden)
                                  : QStringList{targetInfo.absoluteFilePath()};
    const QByteArray findUtf8 = cs == Qt::CaseSensitive ? find.toUtf8() : find.toUtf8().toLower();
    progress.begin(int(files.size()));
    for (const QString &path : files) {
        if (progress.stopRequested()) {
            plan.stopped = true;
            break;
        }
        progress.step(QFileInfo(path).fileName());
        const QFileInfo info(path);
        if (info.isSymLink()) {
            plan.skipped.push_back(Skipped{path, QStringLiteral("a link: what it points at is left alone")});
            continue;
        }
        if (!info.isFile())
            continue; // devices, sockets and pipes are no text files
        if (!liesBelow(root, path)) {
            plan.skipped.push_back(Skipped{path, outsideReason()});
            continue;
        }
        const Read read = readTextFile(path, encoding);
        if (!read.problem.isEmpty()) {
            plan.skipped.push_back(Skipped{path, read.problem});
            continue;
        }
        const std::optional<TextFile> &text = read.decoded.text;
        if (!text && !read.decoded.binary) {
            // Whether it holds the text cannot be told without knowing how to read it.
            plan.skipped.push_back(Skipped{path, unknownEncodingReason(encoding)});
            continue;
        }
        if (!text) {
            // Binary files are many in an installation; only those that seem to hold the text
            // are worth a line of the report.
            QFile file(path);
            if (file.open(QIODevice::ReadOnly) &&
                (cs == Qt::CaseSensitive ? file.readAll() : file.readAll().toLower()).contains(findUtf8))
                plan.skipped.push_back(Skipped{path, QStringLiteral("a binary file, left alone")});
            continue;
        }
        const int occurrences = int(text->text.count(find, cs));
        if (occurrences == 0)
            continue;
        if (isReadOnly(path)) {
            plan.skipped.push_back(Skipped{path, QStringLiteral("read-only")});
            continue;
        }
        if (!encodeText(TextFile{text->form, with, text->encoding})) {
            plan.skipped.push_back(Skipped{path, QStringLiteral("the new text does not fit the file's encoding")});
            continue;
        }
        FileChange change{path, occurrences, {}, 0};
        matchLines(change, text->text, find, cs);
        plan.occurrences += occurrences;
        plan.files.push_back(std::move(change));
    }
    progress.end();
    return plan;
}

Outcome applyReplaceInFiles(const ContentPlan &plan, const TextReplacement &replacement, FileCopies &copies,
                            Progress &progress)
{
    const auto &[find, with, cs, hidden, encoding] = replacement;
    Q_UNUSED(hidden);
    Outcome out;
    out.skipped = plan.skipped;
    progress.begin(int(plan.files.size()));
    for (const FileChange &change : plan.files) {
        if (progress.stopRequested()) {
            out.stopped = true;
            break;
        }
        progress.step(QFileInfo(change.path).fileName());
        // Read again: the file may have changed since the count, and may have become a link.
        if (QFileInfo(change.path).isSymLink()) {
            out.skipped.push_back(Skipped{change.path, QStringLiteral("a link: what it points at is left alone")});
            continue;
        }
        if (!liesBelow(plan.root, change.path)) {
            out.skipped.push_back(Skipped{change.path, outsideReason()});
            continue;
        }
        Read read = readTextFile(change.path, encoding);
        std::optional<TextFile> &text = read.decoded.text;
        if (!read.problem.isEmpty() || !text) {
            out.skipped.push_back(
                Skipped{change.path, read.problem.isEmpty() ? QStringLiteral("no longer a text file") : read.problem});
            continue;
        }
        text->text.replace(find, with, cs);
        const std::optional<QByteArray> bytes = encodeText(*text);
        if (!bytes) {
            out.skipped.push_back(
                Skipped{change.path, QStringLiteral("the new text does not fit the file's encoding")});
            continue;
        }
        if (const QString problem = copies.keep(change.path, read.bytes, *bytes); !problem.isEmpty()) {
            out.skipped.push_back(Skipped{change.path, problem});
            continue;
        }
        if (const QString problem = writeWhole(change.path, *bytes); !problem.isEmpty()) {
            copies.forgetLast();
            out.skipped.push_back(Skipped{change.path, problem});
            continue;
        }
        ++out.changed;
    }
    progress.end();
    return out;
}

} // namespace tabulon::Files
