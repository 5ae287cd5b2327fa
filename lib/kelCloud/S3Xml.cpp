#include "kelCloud/S3Xml.h"

#include <QMap>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

namespace Kel::Cloud {

namespace {

// Reads the children of the current element as name -> text, one level deep.
QMap<QString, QString> readFields(QXmlStreamReader& reader)
{
    QMap<QString, QString> fields;
    while (reader.readNextStartElement()) {
        const QString name = reader.name().toString();
        // Nested elements (an object's Owner) are skipped with their text.
        fields.insert(name, reader.readElementText(QXmlStreamReader::SkipChildElements));
    }
    return fields;
}

bool enterRoot(QXmlStreamReader& reader, const char* root)
{
    return reader.readNextStartElement() && reader.name() == QLatin1String(root);
}

} // namespace

QDateTime S3Xml::parseTime(const QString& text)
{
    QDateTime time = QDateTime::fromString(text.trimmed(), Qt::ISODateWithMs);
    if (!time.isValid())
        time = QDateTime::fromString(text.trimmed(), Qt::ISODate);
    return time.toUTC();
}

bool S3Xml::parseError(const QByteArray& body, Error* error)
{
    QXmlStreamReader reader(body);
    if (!enterRoot(reader, "Error"))
        return false;
    const QMap<QString, QString> fields = readFields(reader);
    error->code = fields.value(QStringLiteral("Code"));
    error->message = fields.value(QStringLiteral("Message"));
    error->region = fields.value(QStringLiteral("Region"));
    return !reader.hasError() || !error->code.isEmpty();
}

bool S3Xml::parseBuckets(const QByteArray& body, QList<ObjectInfo>* buckets)
{
    buckets->clear();
    QXmlStreamReader reader(body);
    if (!enterRoot(reader, "ListAllMyBucketsResult"))
        return false;
    while (reader.readNextStartElement()) {
        if (reader.name() != QLatin1String("Buckets")) {
            reader.skipCurrentElement();
            continue;
        }
        while (reader.readNextStartElement()) {
            if (reader.name() != QLatin1String("Bucket")) {
                reader.skipCurrentElement();
                continue;
            }
            const QMap<QString, QString> fields = readFields(reader);
            buckets->append({fields.value(QStringLiteral("Name")), -1,
                             parseTime(fields.value(QStringLiteral("CreationDate")))});
        }
    }
    return !reader.hasError();
}

bool S3Xml::parseObjects(const QByteArray& body, ObjectPage* page)
{
    *page = {};
    QXmlStreamReader reader(body);
    if (!enterRoot(reader, "ListBucketResult"))
        return false;
    QString nextMarker;
    while (reader.readNextStartElement()) {
        const QStringRef name = reader.name();
        if (name == QLatin1String("IsTruncated")) {
            page->truncated = reader.readElementText().trimmed() == QLatin1String("true");
        } else if (name == QLatin1String("NextMarker")) {
            nextMarker = reader.readElementText();
        } else if (name == QLatin1String("Contents")) {
            const QMap<QString, QString> fields = readFields(reader);
            page->objects.append({fields.value(QStringLiteral("Key")),
                                  fields.value(QStringLiteral("Size")).toLongLong(),
                                  parseTime(fields.value(QStringLiteral("LastModified")))});
        } else {
            reader.skipCurrentElement();
        }
    }
    if (reader.hasError())
        return false;
    page->nextMarker = !nextMarker.isEmpty()     ? nextMarker
                       : page->objects.isEmpty() ? QString()
                                                 : page->objects.last().name;
    return true;
}

QString S3Xml::parseUploadId(const QByteArray& body)
{
    QXmlStreamReader reader(body);
    if (!enterRoot(reader, "InitiateMultipartUploadResult"))
        return {};
    return readFields(reader).value(QStringLiteral("UploadId"));
}

QByteArray S3Xml::completeUpload(const QList<QByteArray>& etags)
{
    QByteArray body;
    QXmlStreamWriter writer(&body);
    writer.writeStartDocument();
    writer.writeStartElement(QStringLiteral("CompleteMultipartUpload"));
    for (int i = 0; i < etags.size(); ++i) {
        writer.writeStartElement(QStringLiteral("Part"));
        writer.writeTextElement(QStringLiteral("PartNumber"), QString::number(i + 1));
        writer.writeTextElement(QStringLiteral("ETag"), QString::fromLatin1(etags.at(i)));
        writer.writeEndElement();
    }
    writer.writeEndElement();
    writer.writeEndDocument();
    return body;
}

} // namespace Kel::Cloud
