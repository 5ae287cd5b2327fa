#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QUuid>

namespace Orv::Info::Storage {

// One storage account as the service reports it: the members named in
// Commands::Format::Storage::GetConnection::Reply. Both programs read and
// write records through it, so the record has one shape.
class Connection
{
public:
    Connection() = default;
    // Members of the wrong kind read as empty; an object without a valid ID
    // gives a null connection (isValid() false).
    static Connection fromRecord(const QJsonObject& record);
    QJsonObject toRecord() const;

    bool isValid() const { return !m_id.isNull(); }
    QUuid id() const { return m_id; }
    void setId(const QUuid& id) { m_id = id; }
    QString displayName() const { return m_displayName; }
    void setDisplayName(const QString& name) { m_displayName = name; }
    // The provider type's integer value (Kel::Cloud::Type).
    int type() const { return m_type; }
    void setType(int type) { m_type = type; }
    // The root folder, bucket or container path.
    QString path() const { return m_path; }
    void setPath(const QString& path) { m_path = path; }
    QString prefix() const { return m_prefix; }
    void setPrefix(const QString& prefix) { m_prefix = prefix; }
    QStringList prefixArray() const { return m_prefixArray; }
    void setPrefixArray(const QStringList& prefixes) { m_prefixArray = prefixes; }
    qint64 spaceLimit() const { return m_spaceLimit; }
    void setSpaceLimit(qint64 bytes) { m_spaceLimit = bytes; }
    qint64 spaceUsed() const { return m_spaceUsed; }
    void setSpaceUsed(qint64 bytes) { m_spaceUsed = bytes; }
    // The account configuration (Kel::Cloud::Config keys).
    QJsonObject detailParams() const { return m_detailParams; }
    void setDetailParams(const QJsonObject& params) { m_detailParams = params; }
    // True while the service synchronises the account with its storage.
    bool syncStatus() const { return m_syncStatus; }
    void setSyncStatus(bool running) { m_syncStatus = running; }

private:
    QUuid m_id;
    QString m_displayName;
    int m_type = 0;
    QString m_path;
    QString m_prefix;
    QStringList m_prefixArray;
    qint64 m_spaceLimit = 0;
    qint64 m_spaceUsed = 0;
    QJsonObject m_detailParams;
    bool m_syncStatus = false;
};

} // namespace Orv::Info::Storage
