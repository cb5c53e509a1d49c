// The restore tool: a three-page wizard (the archive, the target database, the tables) that
// loads the table files of a backup archive into a database of the operator's naming over a
// connection of its own, table by table or for one client's rows.
#pragma once

#include "db/dberror.h"

#include <QDialog>
#include <QStringList>

#include <memory>

class QCheckBox;
class QComboBox;
class QFrame;
class QLineEdit;
class QListWidget;
class QPushButton;

namespace tabulon {

class DatabaseSession;
class FolderLists;
class KeyPreview;
class TableChecklist;
class ToolHost;

class Restore final : public QDialog {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Restore)
public:
    explicit Restore(ToolHost &host, QWidget *parent = nullptr);
    ~Restore() override;

    TableChecklist *checklist() const { return m_list; }
    FolderLists *folderLists() const { return m_lists; }
    // The tool's own connection to the target database (closed until the database page's Next).
    DatabaseSession &target() const { return *m_target; }
    QString extractionFolder() const { return m_extracted; }

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void filePageNext();
    // Checks and takes out the chosen archive; false (the operator told why) when it is refused.
    bool extractArchive();
    void removeExtracted();
    void databasePageNext();
    void databasePageBack();
    void tablePageBack();
    void restorePressed();
    void runTableRestore();
    void runClientRestore();
    // The code the client's rows are restored under, after the look-up in the target and the
    // operator's answers; empty when the operator went back to the table page.
    QString chooseClientCode();
    // The existence test and its question; false to skip the table. `*stop` ends the loop.
    bool tableExists(const QString &table, bool *stop);
    void showTablePage();

    ToolHost &m_host;
    std::unique_ptr<DatabaseSession> m_target;
    FolderLists *m_lists;
    QFrame *m_filePage;
    QLineEdit *m_path;
    QPushButton *m_exit;
    QFrame *m_databasePage;
    QLineEdit *m_database;
    QCheckBox *m_clientOnly;
    QCheckBox *m_deleteAll;
    QListWidget *m_extractedFiles;
    QComboBox *m_targetTables;
    TableChecklist *m_list;
    KeyPreview *m_keys;

    QString m_extracted;          // the extraction folder
    QStringList m_extractedNames; // files this tool put there
    bool m_createdFolder = false;
    bool m_ended = false; // an untrapped error ended the program
};

} // namespace tabulon
