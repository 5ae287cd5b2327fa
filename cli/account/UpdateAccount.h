#pragma once

#include "kelCloud/Types.h"

#include <QJsonObject>
#include <QObject>
#include <QUuid>

namespace Orv::CLI {

// Saves one account through the service (SaveStorage): a new one, or the one
// with the same id. The exchange ends with finished() or error(message).
class UpdateAccount : public QObject
{
    Q_OBJECT
public:
    // A non-empty errorText makes the save fail at once with that text.
    UpdateAccount(const QUuid& id, Kel::Cloud::Type type, const QJsonObject& config,
                  const QString& displayName, const QString& prefix, const QString& errorText,
                  QObject* parent = nullptr);

    void exec();

signals:
    void finished();
    void error(const QString& message);

private slots:
    void onSaveResult();

private:
    QUuid m_id;
    Kel::Cloud::Type m_type;
    QJsonObject m_config;
    QString m_displayName;
    QString m_prefix;
    QString m_errorText;
};

} // namespace Orv::CLI
