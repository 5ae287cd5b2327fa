#pragma once

#include "orvInfo/Plan/WordTable.h"

#include <QtGlobal>

namespace Orv::Info::Plan {

// Which versions of a backup plan's files are kept (Backup::RetentionPolicy).
//
// A fresh policy is Default: the service takes the values from the global
// retention settings at each run and the plan's own values below are kept but
// unused. Those values start as: delete versions older than 1 month (off),
// counted from the file's modification date; keep the last version (on);
// keep 3 versions (off); delete locally deleted files after 30 days (off).
class BackupRetentionPolicy
{
public:
    enum class Type
    {
        Default = 0,
        Custom = 1,
    };

    // An age: a count of periods.
    class FileAge
    {
    public:
        // The command line's AgeType: 0 to 3.
        enum class Unit
        {
            Day = 0,
            Week = 1,
            Month = 2,
            Year = 3,
        };

        FileAge() = default;
        FileAge(qint32 count, Unit unit) : m_count(count), m_unit(unit) {}
        qint32 count() const { return m_count; }
        void setCount(qint32 count) { m_count = count; }
        Unit unit() const { return m_unit; }
        void setUnit(Unit unit) { m_unit = unit; }

        // "Day", "Week", "Month", "Year".
        static const WordTable<Unit>& words();

        bool operator==(const FileAge& other) const
        {
            return m_count == other.m_count && m_unit == other.m_unit;
        }
        bool operator!=(const FileAge& other) const { return !(*this == other); }

    private:
        qint32 m_count = 1;
        Unit m_unit = Unit::Month;
    };

    Type type() const { return m_type; }
    void setType(Type type) { m_type = type; }
    bool useDeleteOlder() const { return m_useDeleteOlder; }
    void setUseDeleteOlder(bool use) { m_useDeleteOlder = use; }
    FileAge deleteFileAge() const { return m_deleteFileAge; }
    void setDeleteFileAge(const FileAge& age) { m_deleteFileAge = age; }
    // The age counts from the backup date (true) or the file's modification date.
    bool useBackupDate() const { return m_useBackupDate; }
    void setUseBackupDate(bool use) { m_useBackupDate = use; }
    bool useKeepLastVersion() const { return m_useKeepLastVersion; }
    void setUseKeepLastVersion(bool use) { m_useKeepLastVersion = use; }
    bool useKeepVersion() const { return m_useKeepVersion; }
    void setUseKeepVersion(bool use) { m_useKeepVersion = use; }
    int keepVersion() const { return m_keepVersion; }
    void setKeepVersion(int count) { m_keepVersion = count; }
    bool useDeleteLocaly() const { return m_useDeleteLocaly; }
    void setUseDeleteLocaly(bool use) { m_useDeleteLocaly = use; }
    // Days.
    int deleteLocalyAfter() const { return m_deleteLocalyAfter; }
    void setDeleteLocalyAfter(int days) { m_deleteLocalyAfter = days; }

    // "Default", "Custom".
    static const WordTable<Type>& words();

private:
    Type m_type = Type::Default;
    bool m_useDeleteOlder = false;
    FileAge m_deleteFileAge;
    bool m_useBackupDate = false;
    bool m_useKeepLastVersion = true;
    bool m_useKeepVersion = false;
    int m_keepVersion = 3;
    bool m_useDeleteLocaly = false;
    int m_deleteLocalyAfter = 30;
};

} // namespace Orv::Info::Plan
