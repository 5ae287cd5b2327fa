#include "kelCloud/Backend.h"
#include "kelCloud/Operation.h"

#include <QJsonObject>
#include <QMutex>
#include <QMutexLocker>
#include <QThreadPool>
#include <functional>
#include <memory>

namespace Kel::Cloud {

namespace {

using Work = std::function<Status(Backend&, QJsonArray*)>;

// Lets the worker deliver its result only while the operation lives: the
// caller may delete it at any time, on its own thread.
struct Delivery
{
    QMutex mutex;
    Operation* operation = nullptr;
};

QJsonArray containersToJson(const QList<ObjectInfo>& containers)
{
    QJsonArray array;
    for (const ObjectInfo& container : containers) {
        QJsonObject object{{QStringLiteral("Name"), container.name}};
        if (!container.id.isEmpty())
            object.insert(QStringLiteral("Id"), container.id);
        if (container.modified.isValid())
            object.insert(QStringLiteral("CreationDate"),
                          container.modified.toUTC().toString(Qt::ISODate));
        array.append(object);
    }
    return array;
}

} // namespace

Operation* OperationManager::checkConfig(const QVariantMap& config)
{
    return start(config, [](Backend& backend, QJsonArray*) { return backend.check(); });
}

Operation* OperationManager::listContainers(const QVariantMap& config)
{
    return start(config, [](Backend& backend, QJsonArray* result) {
        QList<ObjectInfo> containers;
        const Status status = backend.listContainers(&containers);
        *result = containersToJson(containers);
        return status;
    });
}

Operation* OperationManager::start(const QVariantMap& config,
                                   std::function<Status(Backend&, QJsonArray*)> work)
{
    auto* operation = new Operation;
    auto delivery = std::make_shared<Delivery>();
    delivery->operation = operation;
    // Runs in the destructor, before the operation's pending events are
    // dropped; the worker cannot post to it from then on.
    QObject::connect(operation, &QObject::destroyed, [delivery] {
        QMutexLocker lock(&delivery->mutex);
        delivery->operation = nullptr;
    });
    QThreadPool::globalInstance()->start([config, work, delivery] {
        QJsonArray result;
        QVariantMap changes;
        Status status;
        if (std::unique_ptr<Backend> backend = Backend::create(config, &status)) {
            status = work(*backend, &result);
            changes = backend->configChanges();
        }
        QMutexLocker lock(&delivery->mutex);
        Operation* target = delivery->operation;
        if (!target)
            return;
        QMetaObject::invokeMethod(
            target,
            [target, status, result, changes] {
                target->m_configChanges = changes;
                target->finish(status.error, status.message, result, status.peerCertificates);
            },
            Qt::QueuedConnection);
    });
    return operation;
}

} // namespace Kel::Cloud
