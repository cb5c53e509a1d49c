// The restore tool: a three-page wizard (the archive, the target database, the tables) that
// loads the table files of a backup archive into a database of the operator's naming over a
// connection of its own, table by table or for one client's rows.
#pragma once

#include "backup/restorecheck.h"
#include "backup/tablerestore.h"
#include "db/dberror.h"
#include "ui/tablechecklist.h"

#include <QDialog>
#include <QHash>
#include <QStringList>

#include <memory>
#include <optional>

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
    // One table of either restore (`client` set: the client's rows under its code): the
    // existence test, the table file checked against the table, the deletes, the inserts.
    void restoreTable(const QString &table, const TableRestore::ClientCode *client);
    // A failed statement: the table restore's run-time report that ends the program; the client
    // restore counts it and goes on. True to go on.
    bool failed(const DbError &error, bool counted);
    // Ends the loop at the table in hand; the reason is told when the loop is over.
    void stop(const QString &reason);
    // After the loop: the closing message, and the window closes.
    void finishRun(TableChecklist::Run run);
    // The check before the first statement over every ticked table (and, for the client
    // restore, the client's rows of each file); nothing when the operator was told why the
    // restore does not start.
    std::optional<RestoreCheck::Findings> checkTables(bool deletes, bool client);
    // Writes the safety copy of the ticked tables of the target, and of `cascaded` that their
    // deletes reach, before `command` changes them; false (the operator told why) when the
    // restore must not go on.
    bool keepSafetyCopy(const QString &command, const QStringList &cascaded);
    // A delete that would cascade into another ticked table is kept from acting for the run:
    // that table's rows are restored from its own file. False (told) when the server refuses.
    bool holdCascades(const RestoreCheck::Findings &found);
    void releaseCascades();
    // The exact-value check of the ticked tables' files against their targets, and the
    // operator's choice when some values would not be restored exactly (m_exact). False after
    // Cancel: nothing is sent.
    bool chooseExactValues(const QString &clientCode);
    // Both restores after their own questions: the checks and the operator's choice, the
    // safety copy, the cascades held, then `restoreOne` for every ticked table in the write
    // mode, and the closing message. An empty `clientCode` is the table restore.
    void runChecked(const QString &command, bool deletes, const QString &clientCode,
                    const TableChecklist::TableAction &restoreOne);
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

    // The run in hand.
    bool m_ended = false;   // an untrapped error ended the program
    bool m_stopped = false; // the loop ends at the table in hand
    QString m_stopReason;   // told after the loop ("" after No to the missing table's question)
    int m_failures = 0;     // the client restore's failed statements
    bool m_exact = false;   // rows the usual values would change go with exact values
    DbError m_firstFailure;
    QString m_clientCode;                                  // the code the archive's rows are under
    QHash<QString, RestoreCheck::ClientRows> m_clientRows; // per ticked table
    qint64 m_otherRows = 0;                                // rows left out as not the client's
    bool m_cascadesHeld = false;
};

} // namespace tabulon
