#include "orvCommon/ProxyRecord.h"

#include "kelCore/AtomicFile.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/LocalSecret.h"

#include <QFile>
#include <QJsonDocument>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcProxy, "orv.proxy")

namespace Orv::Common {

namespace {

constexpr qint64 kMaxFileSize = 64 * 1024;

const char* typeName(ProxyRecord::Type type)
{
    switch (type) {
    case ProxyRecord::Type::Http:
        return "Http";
    case ProxyRecord::Type::Socks5:
        return "Socks5";
    case ProxyRecord::Type::None:
        break;
    }
    return "None";
}

ProxyRecord::Type typeFromName(const QString& name)
{
    if (name.compare(QLatin1String("Http"), Qt::CaseInsensitive) == 0)
        return ProxyRecord::Type::Http;
    if (name.compare(QLatin1String("Socks5"), Qt::CaseInsensitive) == 0)
        return ProxyRecord::Type::Socks5;
    return ProxyRecord::Type::None;
}

QString flag(bool on)
{
    return on ? QStringLiteral("true") : QStringLiteral("false");
}

bool isOn(const QJsonObject& object, const char* field)
{
    return object.value(QLatin1String(field)).toString() == QLatin1String("true");
}

} // namespace

std::optional<QString> ProxyRecord::plainPassword(QString* error) const
{
    if (!isPasswordEncrypted)
        return password;
    const std::optional<QByteArray> plain = LocalSecret().decrypt(password, error);
    if (!plain)
        return std::nullopt;
    return QString::fromUtf8(*plain);
}

bool ProxyRecord::setPlainPassword(const QString& plain, QString* error)
{
    const QString sealed = LocalSecret().encrypt(plain.toUtf8(), error);
    if (sealed.isEmpty())
        return false;
    password = sealed;
    isPasswordEncrypted = true;
    return true;
}

QJsonObject ProxyRecord::toJson() const
{
    return {
        {QStringLiteral("Type"), QLatin1String(typeName(type))},
        {QStringLiteral("Address"), address},
        {QStringLiteral("Port"), QString::number(port)},
        {QStringLiteral("User"), user},
        {QStringLiteral("Password"), password},
        {QStringLiteral("UseAuth"), flag(useAuth)},
        {QStringLiteral("IsPasswordEncrypted"), flag(isPasswordEncrypted)},
    };
}

ProxyRecord ProxyRecord::fromJson(const QJsonObject& object)
{
    ProxyRecord record;
    record.type = typeFromName(object.value(QLatin1String("Type")).toString());
    record.address = object.value(QLatin1String("Address")).toString();
    const int port = object.value(QLatin1String("Port")).toString().toInt();
    record.port = port >= 0 && port <= 65535 ? port : 0;
    record.user = object.value(QLatin1String("User")).toString();
    record.password = object.value(QLatin1String("Password")).toString();
    record.useAuth = isOn(object, "UseAuth");
    record.isPasswordEncrypted = isOn(object, "IsPasswordEncrypted");
    return record;
}

ProxyRecord proxySettings()
{
    QFile file(Defines::AppPath::to().proxyFile());
    if (!file.exists())
        return {};
    if (!file.open(QIODevice::ReadOnly) || file.size() > kMaxFileSize) {
        qCWarning(lcProxy) << "The proxy record" << file.fileName() << "cannot be read";
        return {};
    }
    const QByteArray data = file.readAll();
    if (data.trimmed().isEmpty())
        return {};
    const QJsonDocument document = QJsonDocument::fromJson(data);
    if (!document.isObject()) {
        qCWarning(lcProxy) << "The proxy record" << file.fileName() << "is damaged";
        return {};
    }
    return ProxyRecord::fromJson(document.object());
}

bool setProxySettings(const ProxyRecord& record)
{
    const QString path = Defines::AppPath::to().proxyFile();
    const QString failure = Kel::Core::AtomicFile::write(
        path, QJsonDocument(record.toJson()).toJson(QJsonDocument::Indented));
    if (failure.isEmpty())
        return true;
    qCWarning(lcProxy) << "Cannot write the proxy record" << path << ":" << failure;
    return false;
}

} // namespace Orv::Common
