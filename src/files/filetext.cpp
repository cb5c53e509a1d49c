#include "files/filetext.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
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

struct Read final {
    std::optional<TextFile> text;
    QString problem; // set when the file could not be read
    QByteArray bytes;
};

Read readTextFile(const QString &path)
{
    QFile file(path);
    if (file.size() > kMaxTextFileBytes)
        return {std::nullopt, QStringLiteral("larger than %1 MB, not read").arg(kMaxTextFileBytes / (1024 * 1024)), {}};
    if (!file.open(QIODevice::ReadOnly))
        return {std::nullopt, file.errorString(), {}};
    QByteArray bytes = file.readAll();
    std::optional<TextFile> text = decodeText(bytes);
    return {std::move(text), {}, std::move(bytes)};
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

std::optional<TextFile> decodeText(const QByteArray &bytes)
{
    const auto withBom = [&bytes](TextForm form, QStringConverter::Encoding encoding,
                                  qsizetype bom) -> std::optional<TextFile> {
        const QByteArrayView body = QByteArrayView(bytes).sliced(bom);
        if (encoding != QStringConverter::Utf8 && body.size() % 2 != 0)
            return std::nullopt;
        if (auto text = decodeStrictly(encoding, body))
            return TextFile{form, *std::move(text)};
        return std::nullopt;
    };
    if (bytes.startsWith(kUtf8Bom))
        return withBom(TextForm::Utf8Bom, QStringConverter::Utf8, kUtf8Bom.size());
    if (bytes.startsWith(kUtf16LEBom))
        return withBom(TextForm::Utf16LE, QStringConverter::Utf16LE, kUtf16LEBom.size());
    if (bytes.startsWith(kUtf16BEBom))
        return withBom(TextForm::Utf16BE, QStringConverter::Utf16BE, kUtf16BEBom.size());
    if (looksBinary(bytes))
        return std::nullopt;
    if (auto text = decodeStrictly(QStringConverter::Utf8, bytes))
        return TextFile{TextForm::Utf8, *std::move(text)};
    return TextFile{TextForm::SingleByte, QString::fromLatin1(bytes)};
}

std::optional<QByteArray> encodeText(const TextFile &file)
{
    switch (file.form) {
    case TextForm::Utf8: return file.text.toUtf8();
    case TextForm::Utf8Bom: return kUtf8Bom + file.text.toUtf8();
    case TextForm::Utf16LE: return kUtf16LEBom + encodeWith(QStringConverter::Utf16LE, file.text);
    case TextForm::Utf16BE: return kUtf16BEBom + encodeWith(QStringConverter::Utf16BE, file.text);
    case TextForm::SingleByte:
        for (const QChar c : file.text) {
            if (c.unicode() > 0xFF)
                return std::nullopt;
        }
        return file.text.toLatin1();
    }
    return std::nullopt;
}

ContentPlan planReplaceInFiles(const QString &target, const TextReplacement &replacement, Progress &progress)
{
    ContentPlan plan;
    const auto &[find, with, cs, hidden] = replacement;
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
        const Read read = readTextFile(path);
        if (!read.problem.isEmpty()) {
            plan.skipped.push_back(Skipped{path, read.problem});
            continue;
        }
        if (!read.text) {
            // Binary files are many in an installation; only those that seem to hold the text
            // are worth a line of the report.
            QFile file(path);
            if (file.open(QIODevice::ReadOnly) &&
                (cs == Qt::CaseSensitive ? file.readAll() : file.readAll().toLower()).contains(findUtf8))
                plan.skipped.push_back(Skipped{path, QStringLiteral("a binary file, left alone")});
            continue;
        }
        const int occurrences = int(read.text->text.count(find, cs));
        if (occurrences == 0)
            continue;
        if (isReadOnly(path)) {
            plan.skipped.push_back(Skipped{path, QStringLiteral("read-only")});
            continue;
        }
        if (!encodeText(TextFile{read.text->form, with})) {
            plan.skipped.push_back(Skipped{path, QStringLiteral("the new text does not fit the file's encoding")});
            continue;
        }
        FileChange change{path, occurrences, {}, 0};
        matchLines(change, read.text->text, find, cs);
        plan.occurrences += occurrences;
        plan.files.push_back(std::move(change));
    }
    progress.end();
    return plan;
}

Outcome applyReplaceInFiles(const ContentPlan &plan, const TextReplacement &replacement, FileCopies &copies,
                            Progress &progress)
{
    const auto &[find, with, cs, hidden] = replacement;
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
        Read read = readTextFile(change.path);
        if (!read.problem.isEmpty() || !read.text) {
            out.skipped.push_back(
                Skipped{change.path, read.problem.isEmpty() ? QStringLiteral("no longer a text file") : read.problem});
            continue;
        }
        read.text->text.replace(find, with, cs);
        const std::optional<QByteArray> bytes = encodeText(*read.text);
        if (!bytes) {
            out.skipped.push_back(
                Skipped{change.path, QStringLiteral("the new text does not fit the file's encoding")});
            continue;
        }
        if (const QString problem = copies.keep(change.path, read.bytes, *bytes); !problem.isEmpty()) {
            out.skipped.push_back(Skipped{change.path, problem});
            continue;
        }
        // Written beside the file and put in its place in one step: a failure leaves it as it was.
        QSaveFile file(change.path);
        if (!file.open(QIODevice::WriteOnly) || file.write(*bytes) != bytes->size() || !file.commit()) {
            copies.forgetLast();
            out.skipped.push_back(Skipped{change.path, file.errorString()});
            continue;
        }
        ++out.changed;
    }
    progress.end();
    return out;
}

} // namespace tabulon::Files
