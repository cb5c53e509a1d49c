// The backup tool: a path page (drive, folder, the chosen path, client backup or not), the
// table checklist, and the loop that writes one table file per ticked table, or the rows of
// one client, into the day's zip archive in the chosen folder.
#pragma once

#include "backup/tablebackup.h"

#include <QDialog>
#include <QHash>
#include <QSet>
#include <QStringList>

class QCheckBox;
class QFrame;
class QLineEdit;

namespace tabulon {

class FolderLists;
class KeyPreview;
class TableChecklist;
class ToolHost;

class DatabaseSession;

class BackUp final : public QDialog {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(BackUp)
public:
    explicit BackUp(ToolHost &host, QWidget *parent = nullptr);
    ~BackUp() override;

    TableChecklist *checklist() const { return m_list; }
    FolderLists *folderLists() const { return m_lists; }

private:
    void nextPressed();
    // Prepares the day's backup set; false when the window closed or the operator must act.
    bool prepare();
    void backPressed();
    void backupPressed();
    void runTableBackup();
    void runClientBackup();
    // Learns the views and the reserved names among the ticked tables before the loop; false
    // (the operator told why, the window closed) when the server could not say.
    bool learnNames(DatabaseSession &session);
    // Leaves out a table the archive must not hold (a view, a name a restore cannot take, the
    // case twin of a table already in it); true when it did.
    bool leftOut(const QString &table);
    // A table the backup could not read: the earlier archive of the day may keep its copy.
    void unreadable(const QString &table, const DbError &why);
    // True once an error ends the backup: one of the loop's own, or the packing of the files
    // written so far failed.
    bool ended();
    // After the loop: the archive, or the error that ended it, then the window closes.
    void complete(bool finished);

    ToolHost &m_host;
    FolderLists *m_lists;
    QFrame *m_pathPage;
    QLineEdit *m_path;
    QCheckBox *m_clientOnly;
    TableChecklist *m_list;
    KeyPreview *m_keys;
    bool m_tablePageShown = false;

    TableBackup::BackupSet m_set;
    bool m_replace = false;  // the operator agreed to replace the day's earlier archive
    QStringList m_missing;   // "table: why" for every ticked table the archive lacks
    QStringList m_unread;    // tables that could not be read
    QStringList m_unreadWhy; // "table: why" for each of them
    QSet<QString> m_views;
    QStringList m_reserved;
    QHash<QString, QString> m_taken; // lower-case name -> the table of that name in the archive
    DbError m_fatal;
    // Compresses each table as its rows arrive.
    std::unique_ptr<BackupArchive::Packer> m_packer;
};

} // namespace tabulon
