#include "service/accounts/AccountSecrets.h"

#include "kelCloud/Config.h"
#include "orvCommon/LocalSecret.h"

namespace Orv::Service {

using Orv::Common::LocalSecret;

bool AccountSecrets::isSecret(const QString& key)
{
    for (const char* secret : Kel::Cloud::Config::SecretKeys)
        if (key == QLatin1String(secret))
            return true;
    return false;
}

bool AccountSecrets::seal(QJsonObject* params, const QJsonObject& previous, QString* error)
{
    const LocalSecret secret;
    for (auto it = params->begin(); it != params->end(); ++it) {
        if (!isSecret(it.key()) || !it.value().isString())
            continue;
        const QString value = it.value().toString();
        if (value == QLatin1String(Mask)) {
            it.value() = previous.value(it.key());
            continue;
        }
        if (value.isEmpty())
            continue;
        const QString sealed = secret.encrypt(value.toUtf8(), error);
        if (sealed.isEmpty())
            return false;
        it.value() = sealed;
    }
    return true;
}

bool AccountSecrets::open(QJsonObject* params, QString* error)
{
    const LocalSecret secret;
    for (auto it = params->begin(); it != params->end(); ++it) {
        if (!isSecret(it.key()) || !LocalSecret::isEncrypted(it.value().toString()))
            continue;
        const std::optional<QByteArray> plain = secret.decrypt(it.value().toString(), error);
        if (!plain)
            return false;
        it.value() = QString::fromUtf8(*plain);
    }
    return true;
}

QJsonObject AccountSecrets::masked(const QJsonObject& params)
{
    QJsonObject result = params;
    for (auto it = result.begin(); it != result.end(); ++it)
        if (isSecret(it.key()) && !it.value().toString().isEmpty())
            it.value() = QLatin1String(Mask);
    return result;
}

} // namespace Orv::Service
