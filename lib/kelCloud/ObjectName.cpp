#include "kelCloud/ObjectName.h"

#include <QStringList>
#include <QUuid>

namespace Kel::Cloud {

namespace {

const QLatin1String ReservedStart(".orv-");

Status refuse(const QString& name, const char* why)
{
    return Status::failure(
        Operation::Error::InvalidConfiguration,
        QStringLiteral("\"%1\" is not a valid object name: %2").arg(name, QLatin1String(why)));
}

} // namespace

Status ObjectName::check(const QString& name)
{
    if (name.isEmpty())
        return refuse(name, "it is empty");
    if (name.endsWith(QLatin1Char('/')))
        return refuse(name, "it ends with \"/\"");
    const Status prefix = checkPrefix(name);
    if (!prefix.ok())
        return prefix;
    if (!isListed(name.section(QLatin1Char('/'), -1)))
        return refuse(name, "names starting with \".orv-\" are reserved");
    return Status::success();
}

Status ObjectName::checkPrefix(const QString& prefix)
{
    if (prefix.isEmpty())
        return Status::success();
    if (prefix.toUtf8().size() > 1024)
        return refuse(prefix, "it is longer than 1024 bytes");
    if (prefix.contains(QChar(0)))
        return refuse(prefix, "it holds a NUL character");
    if (prefix.startsWith(QLatin1Char('/')))
        return refuse(prefix, "it starts with \"/\"");
    QStringList parts = prefix.split(QLatin1Char('/'));
    if (prefix.endsWith(QLatin1Char('/')))
        parts.removeLast();
    for (const QString& part : qAsConst(parts)) {
        if (part.isEmpty())
            return refuse(prefix, "it holds an empty part");
        if (part == QLatin1String(".") || part == QLatin1String(".."))
            return refuse(prefix, "it holds a \".\" or \"..\" part");
    }
    return Status::success();
}

bool ObjectName::isListed(const QString& lastPart)
{
    return !lastPart.startsWith(ReservedStart);
}

QString ObjectName::reserved(const QString& kind)
{
    return ReservedStart + kind + QLatin1Char('-') + QUuid::createUuid().toString(QUuid::Id128);
}

} // namespace Kel::Cloud
