#pragma once

#include "orvCommon/Communication/V2Command.h"

#include <QDateTime>
#include <QJsonArray>
#include <QStringList>

namespace Orv::Common::Communication::V2::Repository {

// The request of every repository command: which account, and as far down
// the tree (bunch, generation, restore point, path) as the command needs.
// Members a command does not use are left empty.
class RepositoryRequest : public Command::Request
{
public:
    void setConnectionId(const QUuid& id) { m_connectionId = id; }
    QUuid connectionId() const { return m_connectionId; }
    void setBunchId(const QString& id) { m_bunchId = id; }
    QString bunchId() const { return m_bunchId; }
    void setGenerationId(const QString& id) { m_generationId = id; }
    QString generationId() const { return m_generationId; }
    // A restore point by its id, or by its start time when the id is empty
    // (the first point that started within that minute).
    void setRestorePointId(const QString& id) { m_pointId = id; }
    QString restorePointId() const { return m_pointId; }
    void setRestorePointTime(const QDateTime& time) { m_pointTime = time; }
    QDateTime restorePointTime() const { return m_pointTime; }
    // GetContent: the folder to list ("/" or empty for the top), and the page.
    void setPath(const QString& path) { m_path = path; }
    QString path() const { return m_path; }
    void setLimit(int limit) { m_limit = limit; }
    int limit() const { return m_limit; }
    void setOffset(int offset) { m_offset = offset; }
    int offset() const { return m_offset; }
    // GetRestorePointPaths: the paths asked about.
    void setPaths(const QStringList& paths) { m_paths = paths; }
    QStringList paths() const { return m_paths; }
    // StartDeepSync: the generation's password, when it is encrypted.
    void setPassword(const QString& password) { m_password = password; }
    QString password() const { return m_password; }

    QJsonObject toJson() const override;
    bool fromJson(const QJsonObject& object) override;

private:
    QUuid m_connectionId;
    QString m_bunchId;
    QString m_generationId;
    QString m_pointId;
    QDateTime m_pointTime;
    QString m_path;
    int m_limit = 0;
    int m_offset = 0;
    QStringList m_paths;
    QString m_password;
};

// A response holding a list of objects (Orv::Info::Repository's classes as
// JSON), and for GetContent the offset reached and whether more follow.
class ListResponse : public Command::Response
{
public:
    void setItems(const QJsonArray& items) { m_items = items; }
    QJsonArray items() const { return m_items; }
    void setOffset(int offset) { m_offset = offset; }
    int offset() const { return m_offset; }
    void setHasMore(bool more) { m_more = more; }
    bool hasMore() const { return m_more; }

    QJsonObject toJson() const override;
    bool fromJson(const QJsonObject& object) override;

private:
    QJsonArray m_items;
    int m_offset = 0;
    bool m_more = false;
};

class DoneResponse : public Command::Response
{
public:
    QJsonObject toJson() const override { return {}; }
    bool fromJson(const QJsonObject&) override { return true; }
};

#define ORV_REPOSITORY_COMMAND(Name, ResponseType)                                                 \
    class Name                                                                                     \
    {                                                                                              \
    public:                                                                                        \
        static const QUuid CommandId;                                                              \
        using Request = RepositoryRequest;                                                         \
        using Response = ResponseType;                                                             \
        using Command = TypedCommand<Request, Response>;                                           \
    };

// Bunches of the account: items are Bunch objects.
ORV_REPOSITORY_COMMAND(GetBunchList, ListResponse)
// Generations of a bunch that hold restore points, oldest first: Generation objects.
ORV_REPOSITORY_COMMAND(GetGenerationList, ListResponse)
// Restore points of one generation, oldest first: RestorePoint objects.
ORV_REPOSITORY_COMMAND(GetRestorePointList, ListResponse)
// Restore points of every generation of a bunch, oldest first.
ORV_REPOSITORY_COMMAND(GetBunchRestorePointList, ListResponse)
// One page of a folder of a restore point: ContentObject objects; offset is
// where the next page starts, hasMore whether there is one.
ORV_REPOSITORY_COMMAND(GetContent, ListResponse)
// Which of the paths exist in the restore point: items are the paths found.
ORV_REPOSITORY_COMMAND(GetRestorePointPaths, ListResponse)
// Rebuilds a generation's local data from the storage; answered when done.
ORV_REPOSITORY_COMMAND(StartDeepSync, DoneResponse)
// Removes a bunch, or one generation, from the storage.
ORV_REPOSITORY_COMMAND(RemoveDataBunch, DoneResponse)
ORV_REPOSITORY_COMMAND(RemoveDataGeneration, DoneResponse)

#undef ORV_REPOSITORY_COMMAND

} // namespace Orv::Common::Communication::V2::Repository
