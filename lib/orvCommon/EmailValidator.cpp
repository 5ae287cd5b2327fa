#include "orvCommon/EmailValidator.h"

#include <QRegularExpression>
#include <QStringList>

namespace Orv::Common {

namespace {

constexpr int kMaxAddressLength = 254;
constexpr int kMaxLocalLength = 64;
constexpr int kMaxLabelLength = 63;

bool isLocalPart(const QString& local)
{
    static const QRegularExpression atom(
        QStringLiteral("^[A-Za-z0-9!#$%&'*+/=?^_`{|}~-]+(\\.[A-Za-z0-9!#$%&'*+/=?^_`{|}~-]+)*$"));
    return local.size() <= kMaxLocalLength && atom.match(local).hasMatch();
}

bool isDomain(const QString& domain)
{
    static const QRegularExpression label(
        QStringLiteral("^[A-Za-z0-9]([A-Za-z0-9-]*[A-Za-z0-9])?$"));
    static const QRegularExpression topLevel(QStringLiteral("^[A-Za-z]{2,}$"));
    const QStringList labels = domain.split(QLatin1Char('.'));
    if (labels.size() < 2 || !topLevel.match(labels.last()).hasMatch())
        return false;
    for (const QString& part : labels)
        if (part.size() > kMaxLabelLength || !label.match(part).hasMatch())
            return false;
    return true;
}

} // namespace

bool EmailValidator::isAddress(const QString& address)
{
    if (address.size() > kMaxAddressLength)
        return false;
    const int at = address.lastIndexOf(QLatin1Char('@'));
    return at > 0 && isLocalPart(address.left(at)) && isDomain(address.mid(at + 1));
}

EmailValidator::State EmailValidator::validate(const QString& text)
{
    static const QRegularExpression separators(QStringLiteral("[,;]"));
    const QStringList entries = text.split(separators);
    int addresses = 0;
    for (const QString& entry : entries) {
        const QString address = entry.trimmed();
        if (address.isEmpty())
            continue;
        if (!isAddress(address))
            return State::Invalid;
        ++addresses;
    }
    return addresses > 0 ? State::Acceptable : State::Intermediate;
}

} // namespace Orv::Common
