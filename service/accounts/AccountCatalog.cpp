#include "service/accounts/AccountCatalog.h"

#include "kelCloud/Types.h"
#include "kelCore/AtomicFile.h"
#include "orvCommon/Communication/Format.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <cstdio>
#include <utility>

namespace Orv::Service {

namespace {

namespace Reply = Orv::Common::Communication::Commands::Format::Storage::GetConnection::Reply;

std::optional<QJsonObject> accountRecord(const QByteArray& contents, QString* error)
{
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(contents, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        *error = QStringLiteral("it is not JSON (%1 at offset %2)")
                     .arg(parseError.errorString())
                     .arg(parseError.offset);
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
    const QJsonValue type = record.value(QLatin1String(Reply::Type));
    if (Kel::Cloud::typeFromValue(type.toInt()) == Kel::Cloud::Type::Unknown) {
        *error = type.isDouble()
                     ? QStringLiteral("the account type %1 is unknown").arg(type.toDouble())
                     : QStringLiteral("the account record has no type number");
        return std::nullopt;
    }
    return record;
}

} // namespace

AccountCatalog::AccountCatalog(const QString& folder)
    : m_folder(folder, QStringLiteral(".json"), &accountRecord)
{
}

QJsonArray AccountCatalog::records()
{
    QJsonArray rows = m_folder.rows();
    if (!std::exchange(m_reported, true)) {
        // Once, at the first listing: the log may not be where the
        // administrator starting the service looks.
        const QJsonArray files = damaged();
        for (const QJsonValue& file : files)
            std::fprintf(stderr, "orvd: skipping the damaged account file %s: %s\n",
                         qPrintable(file[QLatin1String(Reply::DamagedFile)].toString()),
                         qPrintable(file[QLatin1String(Reply::DamagedReason)].toString()));
    }
    return rows;
}

QJsonArray AccountCatalog::damaged()
{
    m_folder.rows();
    QJsonArray files;
    const QMap<QString, QString> skipped = m_folder.skipped();
    for (auto it = skipped.cbegin(); it != skipped.cend(); ++it)
        files.append(QJsonObject{
            {QLatin1String(Reply::DamagedFile), QDir(m_folder.path()).filePath(it.key())},
            {QLatin1String(Reply::DamagedReason), it.value()}});
    return files;
}

bool AccountCatalog::removeDamaged(const QUuid& id, QString* error)
{
    if (id.isNull())
        return false;
    m_folder.rows();
    const QMap<QString, QString> skipped = m_folder.skipped();
    for (auto it = skipped.cbegin(); it != skipped.cend(); ++it) {
        if (QUuid(it.key().chopped(int(qstrlen(".json")))) != id)
            continue;
        *error = removeFiles({QDir(m_folder.path()).filePath(it.key())});
        return true;
    }
    return false;
}

std::optional<QJsonObject> AccountCatalog::find(const QUuid& id)
{
    if (id.isNull())
        return std::nullopt;
    const QJsonArray all = records();
    for (const QJsonValue& value : all) {
        const QJsonObject record = value.toObject();
        if (QUuid(record.value(QLatin1String(Reply::ID)).toString()) == id)
            return record;
    }
    return std::nullopt;
}

QString AccountCatalog::fileOf(const QUuid& id) const
{
    return QDir(m_folder.path())
        .filePath(id.toString(QUuid::WithoutBraces) + QStringLiteral(".json"));
}

QStringList AccountCatalog::filesOf(const QUuid& id) const
{
    // A file put there by hand may go by another name than the ID.
    QStringList files;
    const QDir folder(m_folder.path());
    const QStringList names = folder.entryList({QStringLiteral("*.json")}, QDir::Files);
    for (const QString& name : names) {
        QFile file(folder.filePath(name));
        if (file.size() > ConfigFolder::kMaxFileSize || !file.open(QIODevice::ReadOnly))
            continue;
        QString ignored;
        const std::optional<QJsonObject> record = accountRecord(file.readAll(), &ignored);
        if (record && QUuid(record->value(QLatin1String(Reply::ID)).toString()) == id)
            files.append(file.fileName());
    }
    return files;
}

QString AccountCatalog::removeFiles(const QStringList& files) const
{
    for (const QString& file : files)
        if (!QFile::remove(file))
            return QStringLiteral("cannot remove %1").arg(file);
    return {};
}

QString AccountCatalog::save(const QJsonObject& record)
{
    const QUuid id(record.value(QLatin1String(Reply::ID)).toString());
    if (id.isNull())
        return QStringLiteral("the account record has no ID");
    if (!QDir().mkpath(m_folder.path()))
        return QStringLiteral("cannot create the folder %1").arg(m_folder.path());
    QStringList others = filesOf(id);
    others.removeAll(fileOf(id));
    const QString error = Kel::Core::AtomicFile::write(
        fileOf(id), QJsonDocument(record).toJson(QJsonDocument::Indented));
    // The account lives in its own file from now on, and only there.
    return error.isEmpty() ? removeFiles(others) : error;
}

QString AccountCatalog::remove(const QUuid& id)
{
    if (!find(id))
        return QStringLiteral("no account has the ID %1").arg(id.toString());
    return removeFiles(filesOf(id));
}

} // namespace Orv::Service
