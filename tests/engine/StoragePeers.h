#pragma once
// The storages the engine runs on in tests, each a real server on loopback,
// started once on first use and shared by the suites of one test binary.

#include "kelCloud/Config.h"
#include "support/AzuritePeer.h"
#include "support/S3Peer.h"
#include "support/SftpPeer.h"

#include <QDir>
#include <QTemporaryDir>
#include <QVariantMap>
#include <gtest/gtest.h>
#include <memory>

namespace OrvTest {

enum class Storage
{
    Folder,
    Sftp,
    S3,
    Azure,
};

class StoragePeers
{
public:
    // The configuration of a fresh place on the storage, and in *prefix the
    // backup prefix to use there (servers shared by tests get a fresh one).
    // An empty configuration with the reason in *error when a peer does not
    // start.
    static QVariantMap place(Storage storage, const QTemporaryDir& dir, QString* prefix,
                             QString* error)
    {
        *prefix = QStringLiteral("host1");
        switch (storage) {
        case Storage::Folder:
            QDir().mkpath(dir.filePath("storage"));
            return {{Kel::Cloud::Config::Type, "FileSystem"},
                    {Kel::Cloud::Config::Path, dir.filePath("storage")}};
        case Storage::Sftp:
            if (!started(sftp(), error))
                return {};
            return sftp()->config(sftp()->makeFolder(QStringLiteral("store%1").arg(++counter())));
        case Storage::S3:
            if (!started(s3(), error))
                return {};
            *prefix = QStringLiteral("host%1").arg(++counter());
            return s3()->config();
        case Storage::Azure:
            if (!started(azure(), error))
                return {};
            *prefix = QStringLiteral("host%1").arg(++counter());
            return azure()->config();
        }
        return {};
    }

    // Ends the servers; the next place() starts them again.
    static void stop()
    {
        s3().reset();
        azure().reset();
        sftp().reset();
    }

    static std::string name(const ::testing::TestParamInfo<Storage>& info)
    {
        const char* const names[] = {"Folder", "Sftp", "S3", "Azure"};
        return names[int(info.param)];
    }

private:
    template <typename Peer> static bool started(std::unique_ptr<Peer>& peer, QString* error)
    {
        if (peer)
            return true;
        peer = std::make_unique<Peer>();
        if (peer->start(error))
            return true;
        peer.reset();
        return false;
    }
    static std::unique_ptr<SftpPeer>& sftp()
    {
        static std::unique_ptr<SftpPeer> peer;
        return peer;
    }
    static std::unique_ptr<S3Peer>& s3()
    {
        static std::unique_ptr<S3Peer> peer;
        return peer;
    }
    static std::unique_ptr<AzuritePeer>& azure()
    {
        static std::unique_ptr<AzuritePeer> peer;
        return peer;
    }
    static int& counter()
    {
        static int count = 0;
        return count;
    }
};

} // namespace OrvTest
