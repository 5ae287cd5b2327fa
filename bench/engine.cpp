// The engine's own figures for bench/engine.sh: one backup or one restore on
// a folder account, compression and AES-256 on, the way a plan run would do
// it; the new format, or the current one with ORV_BENCH_FORMAT=cbf (at block
// level with ORV_BENCH_BLOCKS=1, its retention keeping ORV_BENCH_KEEP
// versions of each file). Prints the outcome; time and memory are measured
// from outside.
//
//   bench_engine backup SOURCE STORAGE CACHE
//   bench_engine restore STORAGE CACHE TARGET
#include "kelCloud/Config.h"
#include "service/engine/Archiver.h"
#include "service/engine/CurrentArchiver.h"
#include "service/engine/CurrentRestorer.h"
#include "service/engine/Restorer.h"

#include <QCoreApplication>
#include <QFile>
#include <cstdio>

using namespace Orv::Engine;

namespace {

bool currentFormat()
{
    return qgetenv("ORV_BENCH_FORMAT") == "cbf";
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 5) {
        std::fprintf(
            stderr,
            "usage: bench_engine backup SOURCE STORAGE CACHE | restore STORAGE CACHE TARGET\n");
        return 2;
    }
    const QString command = QString::fromLocal8Bit(argv[1]);
    const bool backup = command == QLatin1String("backup");
    const QString storage = QString::fromLocal8Bit(argv[backup ? 3 : 2]);
    Orv::Repository::Location location;
    location.prefix = QStringLiteral("bench");
    location.cacheFolder = QString::fromLocal8Bit(argv[backup ? 4 : 3]);
    const QVariantMap config{{Kel::Cloud::Config::Type, "FileSystem"},
                             {Kel::Cloud::Config::Path, storage}};
    location.backend = [config](Kel::Cloud::Status* status) {
        return Kel::Cloud::Backend::create(config, status);
    };
    const Orv::Repository::Repository repository(location);
    const QString plan = QStringLiteral("00000000-0000-4000-8000-0000000be4c4");
    const QByteArray password = qgetenv("ORV_BENCH_PASSWORD").isEmpty()
                                    ? QByteArray("bench")
                                    : qgetenv("ORV_BENCH_PASSWORD");
    const int threads = qEnvironmentVariableIsSet("ORV_BENCH_THREADS")
                            ? qEnvironmentVariableIntValue("ORV_BENCH_THREADS")
                            : 2;
    if (backup) {
        RunDescription d;
        d.planId = plan;
        d.planName = QStringLiteral("bench");
        d.walk.sources = {QFile::encodeName(QFile(QString::fromLocal8Bit(argv[2])).fileName())};
        d.compression = true;
        d.algorithm = QStringLiteral("aes-256");
        d.password = password;
        d.threads = threads;
        d.blockLevel = qgetenv("ORV_BENCH_BLOCKS") == "1";
        if (qEnvironmentVariableIsSet("ORV_BENCH_UPLOADS")) {
            d.uploadThreads = qEnvironmentVariableIntValue("ORV_BENCH_UPLOADS");
        }
        if (qEnvironmentVariableIsSet("ORV_BENCH_PACK_MIB")) {
            d.packSize = qEnvironmentVariableIntValue("ORV_BENCH_PACK_MIB") * 1024 * 1024;
        }
        // The current format's retention: versions kept of each file.
        if (qEnvironmentVariableIsSet("ORV_BENCH_KEEP")) {
            d.versions.keep = qEnvironmentVariableIntValue("ORV_BENCH_KEEP");
        }
        const RunResult r =
            currentFormat() ? CurrentArchiver(repository, d).run() : Archiver(repository, d).run();
        std::printf("%s files=%llu read=%llu uploaded=%llu\n", qPrintable(r.message),
                    static_cast<unsigned long long>(r.files),
                    static_cast<unsigned long long>(r.filesRead),
                    static_cast<unsigned long long>(r.bytesUploaded));
        return r.outcome == RunResult::Outcome::Failure ? 1 : 0;
    }
    if (command != QLatin1String("restore")) {
        return 2;
    }
    RestoreDescription d;
    d.bunch = plan;
    d.password = password;
    d.threads = threads;
    d.target.destination = QFile::encodeName(QString::fromLocal8Bit(argv[4]));
    const RestoreResult r =
        currentFormat() ? CurrentRestorer(repository, d).run() : Restorer(repository, d).run();
    std::printf("%s files=%llu bytes=%llu\n", qPrintable(r.message),
                static_cast<unsigned long long>(r.files), static_cast<unsigned long long>(r.bytes));
    return r.ok ? 0 : 1;
}
