#pragma once

#include "kelBackupFormat/CurrentFormat.h"
#include "orvRepository/CurrentCache.h"
#include "orvRepository/Repository.h"

#include <QStringList>

class QIODevice;

namespace Orv::Engine {

// What a run and a restore of the current format share: the plan's keys,
// its manifests, and reading whole objects within bounded memory.
class CurrentStore
{
public:
    CurrentStore(const Orv::Repository::Repository& repository, const QString& plan);

    // Connects; every other call needs it first.
    Orv::Repository::Status connect();
    Kel::Cloud::Backend& backend() { return *m_backend; }
    const Kel::Archive::CurrentLayout& layout() const { return m_layout; }
    const Kel::Archive::KeySet& keys() const { return m_keys; }
    const QString& plan() const { return m_plan; }

    // The plan's keys, unlocked with the password; made and stored when the
    // plan has none yet and create is set. A wrong password is an error that
    // changes nothing.
    struct KeyRequest
    {
        bool create = false;
        QString algorithm;
        QByteArray password;
        QByteArray hint;
        bool compression = true;
    };
    // With a cache, keys this machine unlocked before with the same password
    // are taken from it, so that a run does not pay for the key derivation.
    Orv::Repository::Status openKeys(const KeyRequest& request,
                                     Orv::Repository::CurrentCache* cache = nullptr);

    // Makes sure the storage's list of plans names this one.
    Orv::Repository::Status markPlan();

    // The runs with a manifest, oldest first.
    Orv::Repository::Status runs(QStringList* runs);
    // The object into the sink, rewound for reading.
    Orv::Repository::Status fetch(const QString& name, QIODevice* sink);
    // Calls back with every entry of a run's manifest, in path order, until
    // the callback says false; *header gets the manifest's clear part.
    Orv::Repository::Status
    readManifest(const QString& run, Kel::Archive::ManifestHeader* header,
                 const std::function<bool(const Kel::Archive::ManifestEntry&)>& callback);

    // Where a file's version is, from the path that owns its object.
    QString versionName(const QByteArray& owner, const QString& version) const
    {
        return m_layout.version(m_plan, Kel::Archive::CurrentLayout::pathKey(owner, m_keys.idKey),
                                version);
    }

private:
    const Orv::Repository::Repository& m_repository;
    QString m_plan;
    Kel::Archive::CurrentLayout m_layout;
    Kel::Archive::KeySet m_keys;
    std::unique_ptr<Kel::Cloud::Backend> m_backend;
};

// Objects up to this size are built and read in memory; larger ones go
// through a temporary file.
constexpr qint64 kCurrentInMemory = 8 * 1024 * 1024;
// Bytes of file content or manifest entries in one piece. Each upload
// thread holds a piece three times over (read, compressed, sealed): 1 MiB
// keeps a run of four threads near 40 MB where 4 MiB took 70 MB, with the
// same stored size and time. Readers take any piece size.
constexpr qint64 kCurrentPiece = 1024 * 1024;

} // namespace Orv::Engine
