#pragma once

#include "orvInfo/Plan/Restore.h"

#include <QStringList>

namespace Orv::Info::Plan {

// A restore of files and folders. A fresh plan restores nothing yet, to the
// original location, skips files that exist there, and also restores files
// that had been deleted at the source.
class RestoreFile : public Restore
{
public:
    RestoreFile() : Restore(PlanSubtype::File) {}
    RestoreFile(const RestoreFile&) = default;
    RestoreFile& operator=(const RestoreFile&) = default;

    QStringList restoreItems() const { return m_restoreItems; }
    void setRestoreItems(const QStringList& items) { m_restoreItems = items; }
    // The target folder when not restoring to the original location.
    QString destination() const { return m_destination; }
    void setDestination(const QString& destination) { m_destination = destination; }
    bool restoreToOriginalLocation() const { return m_toOriginalLocation; }
    void setRestoreToOriginalLocation(bool original) { m_toOriginalLocation = original; }
    bool onlyNewFiles() const { return m_onlyNewFiles; }
    void setOnlyNewFiles(bool only) { m_onlyNewFiles = only; }
    bool skipExistingFiles() const { return m_skipExistingFiles; }
    void setSkipExistingFiles(bool skip) { m_skipExistingFiles = skip; }
    bool restoreDeletedFiles() const { return m_restoreDeletedFiles; }
    void setRestoreDeletedFiles(bool restore) { m_restoreDeletedFiles = restore; }

private:
    QStringList m_restoreItems;
    QString m_destination;
    bool m_toOriginalLocation = true;
    bool m_onlyNewFiles = false;
    bool m_skipExistingFiles = true;
    bool m_restoreDeletedFiles = true;
};

} // namespace Orv::Info::Plan
