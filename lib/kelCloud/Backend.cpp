#include "kelCloud/Backend.h"

#include "kelCloud/AzureBlobBackend.h"
#include "kelCloud/B2Backend.h"
#include "kelCloud/Config.h"
#include "kelCloud/ConfigReader.h"
#include "kelCloud/FileSystemBackend.h"
#include "kelCloud/GoogleAuth.h"
#include "kelCloud/GoogleStorageBackend.h"
#include "kelCloud/S3Backend.h"
#include "kelCloud/SftpBackend.h"
#include "kelCloud/Types.h"

#include <QBuffer>
#include <unistd.h>

namespace Kel::Cloud {

namespace {

Type typeOf(const QVariantMap& config)
{
    const QString text = config.value(QLatin1String(Config::Type)).toString().trimmed();
    const Type byName = typeFromName(text);
    if (byName != Type::Unknown)
        return byName;
    bool number = false;
    const int value = text.toInt(&number);
    return number ? typeFromValue(value) : Type::Unknown;
}

// HMAC keys speak Google's S3-compatible XML API, the other credentials its
// JSON API.
std::unique_ptr<Backend> createGoogle(const QVariantMap& config, Status* status)
{
    GoogleAuth::Type auth = GoogleAuth::AccessKey;
    if (GoogleAuth::parse(ConfigReader(config).text(Config::AuthType), &auth) &&
        auth == GoogleAuth::AccessKey)
        return S3Backend::create(Type::GoogleStorage, config, status);
    return GoogleStorageBackend::create(config, status);
}

} // namespace

std::unique_ptr<Backend> Backend::create(const QVariantMap& config, Status* status)
{
    const Type type = typeOf(config);
    if (type == Type::FileSystem)
        return FileSystemBackend::create(config, status);
    if (type == Type::Sftp)
        return SftpBackend::create(config, status);
    if (type == Type::AzureBlob)
        return AzureBlobBackend::create(config, status);
    if (type == Type::BackBlaze)
        return B2Backend::create(config, status);
    if (type == Type::GoogleStorage)
        return createGoogle(config, status);
    if (S3Backend::serves(type))
        return S3Backend::create(type, config, status);
    const QString text = config.value(QLatin1String(Config::Type)).toString();
    *status =
        type == Type::Unknown
            ? Status::failure(Operation::Error::InvalidConfiguration,
                              QStringLiteral("unknown account type \"%1\"").arg(text))
            : Status::failure(
                  Operation::Error::NotSupported,
                  QStringLiteral("accounts of type %1 are not supported").arg(typeName(type)));
    return nullptr;
}

Status Backend::read(const QString& name, qint64 offset, qint64 length, QByteArray* data)
{
    data->clear();
    QBuffer buffer(data);
    buffer.open(QIODevice::WriteOnly);
    return read(name, offset, length, &buffer);
}

Status Backend::write(const QString& name, const QByteArray& data)
{
    QBuffer buffer;
    buffer.setData(data);
    buffer.open(QIODevice::ReadOnly);
    return write(name, &buffer, data.size());
}

Status Backend::adopt(const QString& name, int descriptor)
{
    ::close(descriptor);
    return Status::failure(
        Operation::Error::NotSupported,
        QStringLiteral("this storage cannot take a staged file for %1").arg(name));
}

} // namespace Kel::Cloud
