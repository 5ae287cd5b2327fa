#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <optional>

namespace Orv::Service {

// The exported configuration file: one header line, a JSON object naming the
// kind of file, its format version and the size and SHA-256 of what follows,
// then the body, one JSON object. The header is read first, so that a foreign
// file or one from a newer version is named as such, and a truncated or
// damaged one is refused before anything in it is used.
class ConfigFile
{
public:
    static constexpr char Kind[] = "orv-configuration";
    static constexpr int Version = 1;
    static constexpr char Extension[] = ".orvconfiguration";
    // Larger than any real configuration; a bigger file is not read at all.
    static constexpr qint64 kMaxSize = qint64(256) << 20;

    static QByteArray encode(const QJsonObject& body);
    // The body, or no value with the reason (a sentence about "the file").
    static std::optional<QJsonObject> decode(const QByteArray& contents, QString* error);
    // Reads and decodes the file at path.
    static std::optional<QJsonObject> read(const QString& path, QString* error);
};

} // namespace Orv::Service
