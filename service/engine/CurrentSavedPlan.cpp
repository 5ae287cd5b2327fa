#include "service/engine/CurrentSavedPlan.h"

#include "service/engine/CurrentStore.h"

#include <QBuffer>

namespace Orv::Engine {

using Orv::Repository::failure;
using Orv::Repository::Status;

Status savePlan(CurrentStore& store, const RunDescription& description)
{
    const QString name = store.layout().savedPlan(store.plan());
    if (description.savedPlan.isEmpty()) {
        return store.backend().remove(name);
    }
    QBuffer buffer;
    buffer.open(QIODevice::ReadWrite);
    Kel::Archive::PieceWriter writer(&buffer, store.keys(), description.compression, name,
                                     QByteArray());
    if (!writer.write(description.savedPlan, true)) {
        return failure(QStringLiteral("Cannot prepare the plan's settings for the storage."));
    }
    return store.backend().write(name, buffer.data());
}

Status readSavedPlan(CurrentStore& store, QByteArray* plan)
{
    const QString name = store.layout().savedPlan(store.plan());
    QBuffer buffer;
    buffer.open(QIODevice::ReadWrite);
    const Status status = store.fetch(name, &buffer);
    if (!status.ok()) {
        return status;
    }
    Kel::Archive::PieceReader reader(&buffer, store.keys(), name);
    QByteArray clear;
    if (!reader.start(&clear) || !reader.next(plan) || !reader.atEnd()) {
        return failure(QStringLiteral("The saved settings of the plan %1 are damaged or sealed "
                                      "under other keys.")
                           .arg(store.plan()));
    }
    return Status::success();
}

} // namespace Orv::Engine
