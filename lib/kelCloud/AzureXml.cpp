#include "kelCloud/AzureXml.h"

#include <QLocale>
#include <QMap>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

namespace Kel::Cloud {

namespace {

// Listings write times as in HTTP headers: "Mon, 27 Jan 2020 10:11:12 GMT".
QDateTime parseHttpTime(const QString& text)
{
    QDateTime time =
        QLocale::c().toDateTime(text.trimmed(), QStringLiteral("ddd, dd MMM yyyy HH:mm:ss 'GMT'"));
    time.setTimeSpec(Qt::UTC);
    return time;
}

// One <Container> or <Blob>: its Name and the fields of its Properties.
ObjectInfo readEntry(QXmlStreamReader& reader)
{
    ObjectInfo entry;
    while (reader.readNextStartElement()) {
        if (reader.name() == QLatin1String("Name")) {
            entry.name = reader.readElementText();
            continue;
        }
        if (reader.name() != QLatin1String("Properties")) {
            reader.skipCurrentElement();
            continue;
        }
        while (reader.readNextStartElement()) {
            const QString field = reader.name().toString();
            const QString text = reader.readElementText(QXmlStreamReader::SkipChildElements);
            if (field == QLatin1String("Last-Modified"))
                entry.modified = parseHttpTime(text);
            else if (field == QLatin1String("Content-Length"))
                entry.size = text.toLongLong();
        }
    }
    return entry;
}

// Reads EnumerationResults: the entries named element under list, and NextMarker.
bool parseEnumeration(const QByteArray& body, const char* list, const char* element,
                      AzureXml::Page* page)
{
    *page = {};
    QXmlStreamReader reader(body);
    if (!reader.readNextStartElement() || reader.name() != QLatin1String("EnumerationResults"))
        return false;
    while (reader.readNextStartElement()) {
        if (reader.name() == QLatin1String("NextMarker")) {
            page->nextMarker = reader.readElementText();
            continue;
        }
        if (reader.name() != QLatin1String(list)) {
            reader.skipCurrentElement();
            continue;
        }
        while (reader.readNextStartElement()) {
            if (reader.name() == QLatin1String(element))
                page->entries.append(readEntry(reader));
            else
                reader.skipCurrentElement();
        }
    }
    return !reader.hasError();
}

} // namespace

bool AzureXml::parseError(const QByteArray& body, Error* error)
{
    QXmlStreamReader reader(body);
    if (!reader.readNextStartElement() || reader.name() != QLatin1String("Error"))
        return false;
    QMap<QString, QString> fields;
    while (reader.readNextStartElement())
        fields.insert(reader.name().toString(),
                      reader.readElementText(QXmlStreamReader::SkipChildElements));
    error->code = fields.value(QStringLiteral("Code"));
    error->message = fields.value(QStringLiteral("Message")).section(QLatin1Char('\n'), 0, 0);
    const QString detail = fields.value(QStringLiteral("AuthenticationErrorDetail")).trimmed();
    if (!detail.isEmpty())
        error->message += QLatin1Char(' ') + detail;
    return !error->code.isEmpty();
}

bool AzureXml::parseContainers(const QByteArray& body, Page* page)
{
    return parseEnumeration(body, "Containers", "Container", page);
}

bool AzureXml::parseBlobs(const QByteArray& body, Page* page)
{
    return parseEnumeration(body, "Blobs", "Blob", page);
}

QByteArray AzureXml::blockList(const QList<QByteArray>& blockIds)
{
    QByteArray body;
    QXmlStreamWriter writer(&body);
    writer.writeStartDocument();
    writer.writeStartElement(QStringLiteral("BlockList"));
    for (const QByteArray& id : blockIds)
        writer.writeTextElement(QStringLiteral("Latest"), QString::fromLatin1(id));
    writer.writeEndElement();
    writer.writeEndDocument();
    return body;
}

} // namespace Kel::Cloud
