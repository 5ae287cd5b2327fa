#include "kelCloud/FolderNames.h"

namespace Kel::Cloud {

namespace {

QString withoutTrailingSlashes(const QString& path)
{
    QString trimmed = path;
    while (trimmed.size() > 1 && trimmed.endsWith(QLatin1Char('/')))
        trimmed.chop(1);
    return trimmed;
}

// Everything up to and including the last "/" of the container's own name.
QString leadingPart(const QString& container)
{
    const QString trimmed = withoutTrailingSlashes(container);
    if (trimmed == QLatin1String("/"))
        return {};
    const int slash = trimmed.lastIndexOf(QLatin1Char('/'));
    return slash < 0 ? QString() : trimmed.left(slash + 1);
}

} // namespace

bool FolderNames::isRoot(const QString& container)
{
    return withoutTrailingSlashes(container) == QLatin1String("/");
}

QString FolderNames::parentOf(const QString& container)
{
    return isRoot(container) ? QStringLiteral("/") : leadingPart(container);
}

QString FolderNames::sibling(const QString& container, const QString& folder)
{
    if (isRoot(container))
        return container;
    const bool slash = container.size() > 1 && container.endsWith(QLatin1Char('/'));
    return leadingPart(container) + folder + (slash ? QStringLiteral("/") : QString());
}

} // namespace Kel::Cloud
