#pragma once

#include "orvInfo/Plan/Backup.h"

#include <QStringList>

namespace Orv::Info::Plan {

// A backup of files and folders. A fresh plan has no sources, no exclusions
// and no file masks; it leaves out hidden files, backs up files in use and
// does not keep empty folders.
class BackupFile : public Backup
{
public:
    // How the file masks of filter() apply.
    enum class FilterType
    {
        // No mask filter ("all").
        NoFilter = 0,
        // Only files that match a mask are backed up ("backup").
        BackupMatching = 1,
        // Files that match a mask are left out ("skip").
        SkipMatching = 2,
    };

    BackupFile() : Backup(PlanSubtype::File) {}
    BackupFile(const BackupFile&) = default;
    BackupFile& operator=(const BackupFile&) = default;

    QStringList items() const { return m_items; }
    void setItems(const QStringList& items) { m_items = items; }
    QStringList excludeItems() const { return m_excludeItems; }
    void setExcludeItems(const QStringList& items) { m_excludeItems = items; }
    // Folder-name masks.
    QStringList excludeFolderList() const { return m_excludeFolderList; }
    void setExcludeFolderList(const QStringList& masks) { m_excludeFolderList = masks; }
    // File masks.
    QStringList filter() const { return m_filter; }
    void setFilter(const QStringList& masks) { m_filter = masks; }
    FilterType filterType() const { return m_filterType; }
    void setFilterType(FilterType type) { m_filterType = type; }
    bool excludeSystemAndHidden() const { return m_excludeSystemAndHidden; }
    void setExcludeSystemAndHidden(bool exclude) { m_excludeSystemAndHidden = exclude; }
    bool skipInUseFiles() const { return m_skipInUseFiles; }
    void setSkipInUseFiles(bool skip) { m_skipInUseFiles = skip; }
    bool backupEmptyFolders() const { return m_backupEmptyFolders; }
    void setBackupEmptyFolders(bool backup) { m_backupEmptyFolders = backup; }

    // "backup", "skip", "all".
    static const WordTable<FilterType>& filterWords();

private:
    QStringList m_items;
    QStringList m_excludeItems;
    QStringList m_excludeFolderList;
    QStringList m_filter;
    FilterType m_filterType = FilterType::NoFilter;
    bool m_excludeSystemAndHidden = true;
    bool m_skipInUseFiles = false;
    bool m_backupEmptyFolders = false;
};

} // namespace Orv::Info::Plan
