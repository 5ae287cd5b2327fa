#pragma once

#include "kelCloud/Backend.h"

namespace Kel::Cloud {

// A local or mounted folder (Config::Path, else Config::Container; an
// absolute path) as the container. Objects are files below it, names' "/"
// making subfolders. Each write goes to a hidden temporary file beside its
// target, is flushed to disk and renamed over the target.
class FileSystemBackend : public Backend
{
public:
    static std::unique_ptr<Backend> create(const QVariantMap& config, Status* status);

    Status check() override;
    Status listContainers(QList<ObjectInfo>* containers) override;
    Status list(const QString& prefix, QList<ObjectInfo>* objects) override;
    Status stat(const QString& name, ObjectInfo* info) override;
    Status read(const QString& name, qint64 offset, qint64 length, QIODevice* sink) override;
    Status write(const QString& name, QIODevice* source, qint64 size) override;
    Status remove(const QString& name) override;
    int stagingFile() override;
    Status adopt(const QString& name, int descriptor) override;
    // Deferred writes skip their two flushes (the file's and its folder's);
    // flush() then flushes the file system that holds the store at once.
    void setFlushDeferred(bool deferred) override { m_deferred = deferred; }
    Status flush() override;

    using Backend::read;
    using Backend::write;

private:
    FileSystemBackend(const QString& given, const QString& root);
    Status containerPresent() const;
    QString pathOf(const QString& name) const;
    // The file and folder of an object about to be written, the folder made.
    Status placeFor(const QString& name, QString* target, QString* folder) const;

    // Flushes the folder of an object just put in place, or notes that
    // flush() must.
    Status settle(const QString& folder);

    QString m_given;
    QString m_root;
    bool m_deferred = false;
    bool m_unflushed = false;
};

} // namespace Kel::Cloud
