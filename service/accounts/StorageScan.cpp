#include "service/accounts/StorageScan.h"

#include "kelCloud/Backend.h"

#include <QSet>

namespace Orv::Service {

RepositorySync::Result StorageScan::run(const QVariantMap& config,
                                        const std::atomic_bool& cancelled)
{
    RepositorySync::Result result;
    Kel::Cloud::Status status;
    const std::unique_ptr<Kel::Cloud::Backend> backend =
        Kel::Cloud::Backend::create(config, &status);
    if (!backend) {
        result.error = status.message;
        return result;
    }
    if (cancelled) {
        result.error = QStringLiteral("the service is stopping");
        return result;
    }
    QList<Kel::Cloud::ObjectInfo> objects;
    status = backend->list(QString(), &objects);
    if (!status.ok()) {
        result.error = status.message;
        return result;
    }
    // Every backup lives under its prefix, the first part of its objects' names.
    QSet<QString> prefixes;
    for (const Kel::Cloud::ObjectInfo& object : qAsConst(objects)) {
        result.spaceUsed += qMax<qint64>(object.size, 0);
        const int slash = object.name.indexOf(QLatin1Char('/'));
        if (slash > 0)
            prefixes.insert(object.name.left(slash));
    }
    result.prefixes = prefixes.values();
    result.prefixes.sort();
    return result;
}

} // namespace Orv::Service
