// Replacing a text inside the files below a folder, keeping each file's encoding, byte order
// mark and line ends; binary files, read-only files and links are left alone.
#pragma once

#include "files/filecopies.h"
#include "files/folderwork.h"

#include <QByteArray>
#include <QString>

#include <optional>
#include <vector>

namespace tabulon::Files {

// How a text file is stored. Files without a byte order mark are UTF-8 when they decode as
// UTF-8 and otherwise single-byte text, whose bytes are kept as they are.
enum class TextForm { Utf8, Utf8Bom, Utf16LE, Utf16BE, SingleByte };

struct TextFile final {
    TextForm form = TextForm::Utf8;
    QString text;
};

// The text of a file's bytes; nothing for a binary file (a zero byte without a UTF-16 byte
// order mark, or UTF-16 of an odd length).
std::optional<TextFile> decodeText(const QByteArray &bytes);
// The bytes of the text in its form; nothing when the text holds a character the form cannot
// store (single-byte files hold only the first 256 code points).
std::optional<QByteArray> encodeText(const TextFile &file);

// Files larger than this are not read.
inline constexpr qint64 kMaxTextFileBytes = 64 * 1024 * 1024;

// What to replace by what, and where to look.
struct TextReplacement final {
    QString find;
    QString with;
    Qt::CaseSensitivity cs = Qt::CaseInsensitive;
    bool hidden = false; // hidden files, and everything inside hidden folders, too
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
    std::vector<FileChange> files; // the files that hold the text, with how often
    std::vector<Skipped> skipped;  // files that hold it but cannot be changed, and files not read
    int occurrences = 0;
    bool stopped = false;
};

// The files to change: `target` itself when it is a file (hidden or not: it was chosen), else
// every file below it (links and what they point at excepted, hidden ones only when asked for).
// One progress step per file.
ContentPlan planReplaceInFiles(const QString &target, const TextReplacement &replacement, Progress &progress);
// Replaces the text in the planned files, each read again and written whole in place of the
// old one (its permissions kept). A file is changed only once `copies` holds its old content,
// so that the change can be taken back. `changed` counts the files written.
Outcome applyReplaceInFiles(const ContentPlan &plan, const TextReplacement &replacement, FileCopies &copies,
                            Progress &progress);

} // namespace tabulon::Files
