#include "service/AccountCatalog.h"

#include "orvCommon/Communication/Format.h"

#include <QJsonDocument>

namespace Orv::Service {

namespace {

namespace Reply = Orv::Common::Communication::Commands::Format::Storage::GetConnection::Reply;

std::optional<QJsonObject> accountRecord(const QByteArray& contents, QString* error)
{
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(contents, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        *error = parseError.errorString();
        return std::nullopt;
    }
    if (!document.isObject()) {
        *error = QStringLiteral("the file does not hold an account record");
        return std::nullopt;
    }
    const QJsonObject record = document.object();
    if (record.value(QLatin1String(Reply::ID)).toString().trimmed().isEmpty()) {
        *error = QStringLiteral("the account record has no ID");
        return std::nullopt;
    }
    return record;
}

} // namespace

AccountCatalog::AccountCatalog(const QString& folder)
    : m_folder(folder, QStringLiteral(".json"), &accountRecord)
{
}

} // namespace Orv::Service
