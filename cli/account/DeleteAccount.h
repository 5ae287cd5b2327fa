#pragma once

#include <QObject>
#include <QUuid>

namespace Orv::CLI {

// Deletes one account through the service ("StorageDeleteFileSystem"). The
// backup data in its storage stays where it is. The exchange ends with
// finished() or error(message); the object deletes itself afterwards.
class DeleteAccount : public QObject
{
    Q_OBJECT
public:
    explicit DeleteAccount(const QString& nameOrId, QObject* parent = nullptr);
    explicit DeleteAccount(const QUuid& id, QObject* parent = nullptr);

    void exec();

signals:
    void finished();
    void error(const QString& message);

private:
    QString m_nameOrId;
};

} // namespace Orv::CLI
