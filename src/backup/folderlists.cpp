#include "backup/folderlists.h"

#include <QComboBox>
#include <QDir>
#include <QListWidget>
#include <QStorageInfo>

namespace tabulon {

namespace {
const QString kParent = QStringLiteral("..");
}

FolderLists::FolderLists(QWidget *parent, const QString &filePattern)
    : QObject(parent), m_drives(new QComboBox(parent)), m_folders(new QListWidget(parent)), m_pattern(filePattern)
{
    m_drives->setObjectName(QStringLiteral("Drive1"));
    m_folders->setObjectName(QStringLiteral("Dir1"));
    if (!filePattern.isEmpty()) {
        m_files = new QListWidget(parent);
        m_files->setObjectName(QStringLiteral("File2"));
        connect(m_files, &QListWidget::itemClicked, this,
                [this](QListWidgetItem *item) { Q_EMIT fileClicked(item->text()); });
    }
    QStringList roots;
    for (const QStorageInfo &volume : QStorageInfo::mountedVolumes())
        if (volume.isValid() && volume.isReady() && !roots.contains(volume.rootPath()))
            roots << volume.rootPath();
    roots.sort();
    m_drives->addItems(roots);
    m_folder = QDir::currentPath();
    const int current = m_drives->findText(QStorageInfo(m_folder).rootPath());
    m_drives->setCurrentIndex(std::max(current, 0));
    refill();
    connect(m_drives, &QComboBox::currentIndexChanged, this, &FolderLists::driveChosen);
    connect(m_folders, &QListWidget::itemActivated, this, &FolderLists::folderActivated);
}

void FolderLists::setFolder(const QString &path)
{
    const QString clean = QDir::cleanPath(QDir(path).absolutePath());
    if (clean == m_folder)
        return;
    m_folder = clean;
    refill();
    Q_EMIT folderChanged(m_folder);
}

void FolderLists::driveChosen(int index)
{
    if (index >= 0)
        setFolder(m_drives->itemText(index));
}

void FolderLists::folderActivated(QListWidgetItem *item)
{
    const QDir dir(m_folder);
    setFolder(item->text() == kParent ? dir.absoluteFilePath(kParent) : dir.absoluteFilePath(item->text()));
}

void FolderLists::refill()
{
    const QDir dir(m_folder);
    m_folders->clear();
    if (!dir.isRoot())
        m_folders->addItem(kParent);
    m_folders->addItems(dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name | QDir::IgnoreCase));
    if (m_files) {
        m_files->clear();
        m_files->addItems(dir.entryList({m_pattern}, QDir::Files, QDir::Name | QDir::IgnoreCase));
    }
}

} // namespace tabulon
