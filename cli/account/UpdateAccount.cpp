#include "UpdateAccount.h"

#include "CommandChannel.h"
#include "orvCommon/Communication/V2/SaveStorage.h"

namespace Orv::CLI {

using SaveStorage = Orv::Common::Communication::V2::Storage::SaveStorage;

UpdateAccount::UpdateAccount(const QUuid& id, Kel::Cloud::Type type, const QJsonObject& config,
                             const QString& displayName, const QString& prefix,
                             const QString& errorText, QObject* parent)
    : QObject(parent), m_id(id), m_type(type), m_config(config), m_displayName(displayName),
      m_prefix(prefix), m_errorText(errorText)
{
}

void UpdateAccount::exec()
{
    try {
        if (!m_errorText.isEmpty())
            throw m_errorText;
        auto request = QSharedPointer<SaveStorage::Request>::create();
        QVariantMap params;
        for (auto it = m_config.constBegin(); it != m_config.constEnd(); ++it)
            params.insert(it.key(), it.value().toVariant());
        request->setParams(params);
        request->setProfile(QString::fromLocal8Bit(qgetenv("USER")));
        request->setId(m_id);
        request->setDisplayName(m_displayName);
        request->setPrefix(m_prefix);
        request->setType(static_cast<int>(m_type));
        CommandChannel::sendTyped(SaveStorage::CommandId, request, this,
                                  &UpdateAccount::onSaveResult,
                                  QStringLiteral("Communication command is not registered"));
    } catch (const QString& message) {
        emit error(message);
    }
}

void UpdateAccount::onSaveResult()
{
    QScopedPointer<CommandChannel::TypedCommand, QScopedPointerDeleteLater> command(
        qobject_cast<CommandChannel::TypedCommand*>(sender()));
    try {
        CommandChannel::throwIfOutcomeUnknown(command.data());
        if (!CommandChannel::typedResponse<SaveStorage::Response>(command.data(), this,
                                                                  [this] { exec(); }))
            return;
    } catch (const QString& message) {
        emit error(message);
        return;
    }
    emit finished();
}

} // namespace Orv::CLI
