#include "service/config/ConfigFile.h"

#include "kelCore/Version.h"
#include "kelStreams/Hash.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

namespace Orv::Service {

namespace {

const QString kKind = QStringLiteral("kind");
const QString kVersion = QStringLiteral("version");
const QString kSize = QStringLiteral("bodySize");
const QString kDigest = QStringLiteral("bodySha256");
// A header is a few hundred bytes; anything longer before the first line end
// is not one.
constexpr int kMaxHeader = 4096;

QByteArray digestOf(const QByteArray& body)
{
    return Kel::Streams::sha256(body).toHex();
}

std::optional<QJsonObject> header(const QByteArray& contents, QString* error)
{
    const int end = contents.indexOf('\n');
    const QJsonDocument document =
        end > 0 && end < kMaxHeader ? QJsonDocument::fromJson(contents.left(end)) : QJsonDocument();
    const QJsonObject object = document.object();
    if (object.value(kKind).toString() != QLatin1String(ConfigFile::Kind) ||
        !object.value(kVersion).isDouble()) {
        *error = QStringLiteral("it is not a configuration file exported by this client");
        return std::nullopt;
    }
    const int version = object.value(kVersion).toInt();
    if (version > ConfigFile::Version) {
        *error = QStringLiteral("it was exported by a newer version of the client (file format "
                                "%1; this version reads format %2)")
                     .arg(version)
                     .arg(ConfigFile::Version);
        return std::nullopt;
    }
    if (version < 1) {
        *error = QStringLiteral("it is not a configuration file exported by this client");
        return std::nullopt;
    }
    return object;
}

} // namespace

QByteArray ConfigFile::encode(const QJsonObject& body)
{
    const QByteArray data = QJsonDocument(body).toJson(QJsonDocument::Compact);
    const QJsonObject head{
        {kKind, QLatin1String(Kind)},
        {kVersion, Version},
        {QStringLiteral("client"), Kel::Core::Version::string()},
        {QStringLiteral("created"), QDateTime::currentDateTimeUtc().toString(Qt::ISODate)},
        {kSize, double(data.size())},
        {kDigest, QString::fromLatin1(digestOf(data))}};
    return QJsonDocument(head).toJson(QJsonDocument::Compact) + '\n' + data + '\n';
}

std::optional<QJsonObject> ConfigFile::decode(const QByteArray& contents, QString* error)
{
    const std::optional<QJsonObject> head = header(contents, error);
    if (!head)
        return std::nullopt;
    const int start = contents.indexOf('\n') + 1;
    QByteArray body = contents.mid(start);
    if (body.endsWith('\n'))
        body.chop(1);
    const qint64 size = qint64(head->value(kSize).toDouble(-1));
    if (body.size() < size) {
        *error = QStringLiteral("it is damaged: it is shorter than its header says "
                                "(%1 of %2 bytes), it was probably truncated")
                     .arg(body.size())
                     .arg(size);
        return std::nullopt;
    }
    if (body.size() != size || digestOf(body) != head->value(kDigest).toString().toLatin1()) {
        *error = QStringLiteral("it is damaged: its contents do not match their checksum");
        return std::nullopt;
    }
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        *error = QStringLiteral("it is damaged: its contents are not readable");
        return std::nullopt;
    }
    return document.object();
}

std::optional<QJsonObject> ConfigFile::read(const QString& path, QString* error)
{
    const QFileInfo info(path);
    if (!info.isFile()) {
        *error = QStringLiteral("it does not exist or is not a file");
        return std::nullopt;
    }
    if (info.size() > kMaxSize) {
        *error =
            QStringLiteral("it is larger than any configuration file (%1 bytes)").arg(info.size());
        return std::nullopt;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("it cannot be read: %1").arg(file.errorString());
        return std::nullopt;
    }
    return decode(file.readAll(), error);
}

} // namespace Orv::Service
