// The drive list, folder list and optional file list of the backup and restore wizards. On
// this platform the "drives" are the mounted volumes; the folder list shows the current folder's
// parent entry and subfolders and enters one on a double click or Enter.
#pragma once

#include <QObject>
#include <QString>

class QComboBox;
class QListWidget;
class QListWidgetItem;
class QWidget;

namespace tabulon {

class FolderLists final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(FolderLists)
public:
    // Creates Drive1 and Dir1 (and File2 listing files that match `filePattern`, when given)
    // as children of `parent`.
    FolderLists(QWidget *parent, const QString &filePattern = QString());

    QComboBox *drives() const { return m_drives; }
    QListWidget *folders() const { return m_folders; }
    QListWidget *files() const { return m_files; }

    QString folder() const { return m_folder; }
    // As setting the folder list's path: emits folderChanged when it differs.
    void setFolder(const QString &path);

Q_SIGNALS:
    void folderChanged(const QString &path);
    void fileClicked(const QString &name);

private:
    void driveChosen(int index);
    void folderActivated(QListWidgetItem *item);
    void refill();

    QComboBox *m_drives;
    QListWidget *m_folders;
    QListWidget *m_files = nullptr;
    QString m_pattern;
    QString m_folder;
};

} // namespace tabulon
