#pragma once

#include <QJsonArray>
#include <QObject>

namespace Orv::CLI {

// Fetches every account record from the service ("StorageGetConnection").
// The exchange ends with finished() or error(message); the object deletes
// itself afterwards. Account files the service had to skip are named on
// standard error.
class AccountList : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // Sends the request; false, with error() already emitted, when it cannot
    // be sent.
    bool exec();
    QJsonArray accountList() const { return m_accounts; }

signals:
    void finished();
    void error(const QString& message);

private slots:
    void onAccountListResult();

private:
    static void warnAboutDamagedFiles(const QJsonArray& files);

    QJsonArray m_accounts;
};

} // namespace Orv::CLI
