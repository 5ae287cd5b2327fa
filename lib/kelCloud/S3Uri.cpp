#include "kelCloud/S3Uri.h"

#include <QStringList>

namespace Kel::Cloud {

QByteArray S3Uri::encode(const QString& text, bool keepSlash)
{
    return text.toUtf8().toPercentEncoding(keepSlash ? QByteArray("/") : QByteArray(), QByteArray(),
                                           '%');
}

QByteArray S3Uri::query(const QMap<QString, QString>& parameters)
{
    // Sorted by the encoded names, which for the names S3 uses is the order
    // of the names themselves; the map keeps it.
    QMap<QByteArray, QByteArray> encoded;
    for (auto it = parameters.cbegin(); it != parameters.cend(); ++it)
        encoded.insert(encode(it.key(), false), encode(it.value(), false));
    QByteArray result;
    for (auto it = encoded.cbegin(); it != encoded.cend(); ++it) {
        if (!result.isEmpty())
            result += '&';
        result += it.key() + '=' + it.value();
    }
    return result;
}

} // namespace Kel::Cloud
