// Replacing a text inside the files below a folder, keeping each file's encoding, byte order
// mark and line ends; binary files, files in an encoding not known, read-only files and links
// are left alone.
#pragma once

#include "files/filecopies.h"
#include "files/folderwork.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace tabulon::Files {

// How a text file is stored. A file with a byte order mark is in the encoding the mark names.
// Without one it is UTF-8 (pure ASCII included), or in the encoding the operator chose for such
// files. Any other file is in an encoding not known: a byte of a two-byte character read as a
// letter of its own would be changed with it.
enum class TextForm { Utf8, Utf8Bom, Utf16LE, Utf16BE, Chosen };

struct TextFile final {
    TextForm form = TextForm::Utf8;
    QString text;
    QString encoding; // the chosen encoding's name, for TextForm::Chosen
};

// The names of the encodings that can be chosen for files without a byte order mark, those
// this system can convert.
QStringList choosableEncodings();

// The text of a file's bytes, or why there is none.
struct Decoded final {
    std::optional<TextFile> text;
    bool binary = false; // no text: binary (else: not in a known encoding)
};
// Decodes a file's bytes. Binary: a zero byte or many control bytes without a UTF-16 byte order
// mark, or a body that does not decode in the encoding its mark names. Files without a mark are
// read in `encoding` when one is given (and only when they come back byte for byte), otherwise
// as UTF-8.
Decoded decodeText(const QByteArray &bytes, const QString &encoding = {});
// The bytes of the text in its form; nothing when the text holds a character the form cannot
// store.
std::optional<QByteArray> encodeText(const TextFile &file);

// Files larger than this are not read.
inline constexpr qint64 kMaxTextFileBytes = 64 * 1024 * 1024;

// What to replace by what, and where to look.
struct TextReplacement final {
    QString find;
    QString with;
    Qt::CaseSensitivity cs = Qt::CaseInsensitive;
    bool hidden = false; // hidden files, and everything inside hidden folders, too
    QString encoding;    // of the files without a byte order mark; "" for UTF-8 only
};

// A line that holds the text: its number (from 1) and its text, without the line end.
struct MatchedLine final {
    int number = 0;
    QString text;
};
// How many of a file's matching lines a plan keeps for the preview.
inline constexpr int kLinesPerFile = 3;

struct FileChange final {
    QString path;
    int occurrences = 0;
    std::vector<MatchedLine> lines; // the first kLinesPerFile lines that hold the text
    int matchedLines = 0;           // how many lines hold it in all
};
struct ContentPlan final {
    QString root;                  // the chosen folder every changed file lies below
    std::vector<FileChange> files; // the files that hold the text, with how often
    std::vector<Skipped> skipped;  // files that hold it but cannot be changed, and files not read
    int occurrences = 0;
    bool stopped = false;
};

// The files to change: `target` itself when it is a file (hidden or not: it was chosen), else
// every file below it (links and what they point at excepted, hidden ones only when asked for);
// a file not below `root` is left alone. One progress step per file.
ContentPlan planReplaceInFiles(const QString &root, const QString &target, const TextReplacement &replacement,
                               Progress &progress);
// Replaces the text in the planned files, each checked again to lie below the plan's root, read
// again and written whole in place of the old one (its permissions kept). A file is changed only
// once `copies` holds its old content, so that the change can be taken back. `changed` counts
// the files written.
Outcome applyReplaceInFiles(const ContentPlan &plan, const TextReplacement &replacement, FileCopies &copies,
                            Progress &progress);

} // namespace tabulon::Files
