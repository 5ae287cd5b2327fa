#pragma once

#include <QJsonObject>
#include <QString>
#include <optional>

namespace Orv::Common {

// The client's proxy, kept apart from the settings store in the instance's
// config/proxy.conf, a JSON object with the fields "Type" ("None", "Http" or
// "Socks5"), "Address", "Port", "User", "Password", "UseAuth" and
// "IsPasswordEncrypted", all text. The password is kept encrypted with the
// local secret; a record written by hand may hold it in clear, marked so.
struct ProxyRecord
{
    enum class Type
    {
        None,
        Http,
        Socks5
    };

    Type type = Type::None;
    QString address;
    int port = 0;
    QString user;
    QString password;
    bool useAuth = false;
    bool isPasswordEncrypted = false;

    bool enabled() const { return type != Type::None; }
    // The password as typed; no value when an encrypted one cannot be read back.
    std::optional<QString> plainPassword(QString* error = nullptr) const;
    // Keeps the password encrypted; false, with the reason, when it cannot be.
    bool setPlainPassword(const QString& plain, QString* error = nullptr);

    QJsonObject toJson() const;
    static ProxyRecord fromJson(const QJsonObject& object);
};

// The stored record; a missing or damaged file reads as no proxy.
ProxyRecord proxySettings();
// Writes the whole record atomically.
bool setProxySettings(const ProxyRecord& record);

} // namespace Orv::Common
