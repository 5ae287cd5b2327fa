#pragma once

#include "kelCloud/ObjectInfo.h"
#include "kelCloud/Status.h"

#include <QByteArray>
#include <QList>
#include <QVariantMap>
#include <memory>

class QIODevice;

namespace Kel::Cloud {

// One storage account's container, as the backup engine sees it: a flat
// space of named objects (names as ObjectName allows) that are written whole,
// read in ranges, listed by prefix and deleted. Calls block on the network;
// one object serves one thread at a time (make one per thread).
class Backend
{
public:
    virtual ~Backend() = default;

    // The backend for the configuration's type (Config::Type, a type name),
    // or null with the reason in status when the configuration is unusable or
    // no backend serves the type. Nothing is contacted yet.
    static std::unique_ptr<Backend> create(const QVariantMap& config, Status* status);

    // Connects, authenticates, and checks that the container exists and that
    // an object can be written into it and deleted again.
    virtual Status check() = 0;
    // The containers the credentials can see; see OperationManager.
    virtual Status listContainers(QList<ObjectInfo>* containers) = 0;

    // Every object whose name starts with the prefix, with sizes; in no
    // particular order.
    virtual Status list(const QString& prefix, QList<ObjectInfo>* objects) = 0;
    // ObjectNotFound when there is no such object.
    virtual Status stat(const QString& name, ObjectInfo* info) = 0;
    // Writes length bytes from offset into the sink (to the end when length
    // is negative). A range beyond the end gives what there is.
    virtual Status read(const QString& name, qint64 offset, qint64 length, QIODevice* sink) = 0;
    Status read(const QString& name, qint64 offset, qint64 length, QByteArray* data);
    // Stores the source's bytes up to its end (or size bytes when size is not
    // negative) as the object, replacing any of that name. Readers see the old
    // object or the new one, never a part.
    virtual Status write(const QString& name, QIODevice* source, qint64 size = -1) = 0;
    Status write(const QString& name, const QByteArray& data);
    // Deleting an object that does not exist succeeds.
    virtual Status remove(const QString& name) = 0;

    // Stores whose objects are local files can take a finished file without
    // a copy. stagingFile() gives an open, unnamed file on the store's own
    // file system for the caller to write an object into, or -1 when the
    // store has none (write() is then the way). adopt() makes such a file the
    // object, flushed to disk and put in place atomically as write() does,
    // and closes the descriptor whatever the outcome.
    virtual int stagingFile() { return -1; }
    virtual Status adopt(const QString& name, int descriptor);

    // Many small objects are cheaper to make durable together. While writes
    // are deferred, write() and adopt() still put each object in place whole
    // and atomically, but may leave it unflushed; flush() makes every object
    // written so far durable, and must succeed before anything that names
    // them (a commit record) is written. Stores whose writes are durable when
    // they return ignore both.
    virtual void setFlushDeferred(bool) {}
    virtual Status flush() { return Status::success(); }

    // Values the backend came by that the account's configuration must keep
    // from now on (a refresh token obtained with a one-time authorisation
    // code), by configuration key; empty for most.
    virtual QVariantMap configChanges() const { return {}; }
};

} // namespace Kel::Cloud
