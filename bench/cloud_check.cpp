// Where the time of "account add" goes in the cloud library: the
// configuration check and the container listing, each through
// OperationManager (a hop to the thread pool and back) as the command line
// runs them, against a temporary folder and a loopback S3 server (s3rver from
// node_modules/, over http and over https with a certificate made for the
// run and trusted through the certificate cache).
//
// The baseline is one S3 request on a fresh connection (a HEAD of a missing
// object, made directly on a new backend), measured in the same run; every
// line shows its median over the samples and its ratio to that baseline.
// Samples of all lines are taken in rounds, so a change of load falls on all.
//
//   build/bin/bench_cloud_check [--runs 20] [--s3rver PATH]

#include "kelCloud/Backend.h"
#include "kelCloud/Config.h"
#include "kelCloud/Operation.h"
#include "kelNetwork/Ssl/SslCertificateCache.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>

namespace Cloud = Kel::Cloud;
namespace Config = Kel::Cloud::Config;

namespace {

struct Server
{
    QProcess process;
    int port = 0;
};

bool startS3rver(const QString& program, const QString& data, const QStringList& tls,
                 Server* server)
{
    QStringList arguments{QStringLiteral("-d"),
                          data,
                          QStringLiteral("-a"),
                          QStringLiteral("127.0.0.1"),
                          QStringLiteral("-p"),
                          QStringLiteral("0"),
                          QStringLiteral("--no-vhost-buckets"),
                          QStringLiteral("--configure-bucket"),
                          QStringLiteral("bench")};
    server->process.setProcessChannelMode(QProcess::MergedChannels);
    server->process.start(program, arguments + tls);
    static const QRegularExpression listening(QStringLiteral("listening on [^:\\s]+:(\\d+)"));
    QByteArray output;
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 30000 && server->process.state() != QProcess::NotRunning) {
        server->process.waitForReadyRead(200);
        output += server->process.readAll();
        const QRegularExpressionMatch match = listening.match(QString::fromUtf8(output));
        if (match.hasMatch()) {
            server->port = match.captured(1).toInt();
            return true;
        }
    }
    std::fprintf(stderr, "bench_cloud_check: s3rver did not start: %s\n", output.constData());
    return false;
}

void stop(Server* server)
{
    server->process.terminate();
    if (!server->process.waitForFinished(5000))
        server->process.kill();
    server->process.waitForFinished(5000);
}

// A self-signed certificate for 127.0.0.1 made with the openssl tool.
bool makeCertificate(const QString& folder, QByteArray* pem)
{
    const QString key = folder + QStringLiteral("/key.pem");
    const QString cert = folder + QStringLiteral("/cert.pem");
    QProcess openssl;
    openssl.start(QStringLiteral("openssl"),
                  {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                   QStringLiteral("ec"), QStringLiteral("-pkeyopt"),
                   QStringLiteral("ec_paramgen_curve:P-256"), QStringLiteral("-nodes"),
                   QStringLiteral("-subj"), QStringLiteral("/CN=127.0.0.1"),
                   QStringLiteral("-addext"), QStringLiteral("subjectAltName=IP:127.0.0.1"),
                   QStringLiteral("-days"), QStringLiteral("1"), QStringLiteral("-keyout"), key,
                   QStringLiteral("-out"), cert});
    const bool made = openssl.waitForFinished(30000) && openssl.exitCode() == 0;
    QFile file(cert);
    if (!made || !file.open(QIODevice::ReadOnly))
        return false;
    *pem = file.readAll();
    return true;
}

QVariantMap s3Config(int port, bool https, const char* signature)
{
    return {
        {QLatin1String(Config::Type), QStringLiteral("S3Compatible")},
        {QLatin1String(Config::Endpoint), QStringLiteral("127.0.0.1:%1").arg(port)},
        {QLatin1String(Config::UseSsl), https ? QStringLiteral("true") : QStringLiteral("false")},
        {QLatin1String(Config::AccessKey), QStringLiteral("S3RVER")},
        {QLatin1String(Config::SecretKey), QStringLiteral("S3RVER")},
        {QLatin1String(Config::Container), QStringLiteral("bench")},
        {QLatin1String(Config::SignatureVersion), QLatin1String(signature)}};
}

// Runs one operation to its end on the event loop; false when it failed.
bool runOperation(Cloud::Operation* operation)
{
    std::unique_ptr<Cloud::Operation> owned(operation);
    QEventLoop loop;
    QObject::connect(operation, &Cloud::Operation::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(30000, &loop, &QEventLoop::quit);
    if (!operation->isFinished())
        loop.exec();
    if (operation->error() != Cloud::Operation::Error::None)
        std::fprintf(stderr, "bench_cloud_check: %s\n", qPrintable(operation->errorString()));
    return operation->error() == Cloud::Operation::Error::None;
}

bool runDirect(const QVariantMap& config, const std::function<Cloud::Status(Cloud::Backend&)>& work)
{
    Cloud::Status status;
    const auto backend = Cloud::Backend::create(config, &status);
    if (backend)
        status = work(*backend);
    if (!status.ok() && status.error != Cloud::Operation::Error::ObjectNotFound) {
        std::fprintf(stderr, "bench_cloud_check: %s\n", qPrintable(status.message));
        return false;
    }
    return true;
}

struct Line
{
    QString name;
    std::function<bool()> run;
    QList<double> samples;

    double median() const
    {
        QList<double> sorted = samples;
        std::sort(sorted.begin(), sorted.end());
        return sorted.isEmpty() ? 0 : sorted.at(sorted.size() / 2);
    }
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    int runs = 20;
    QString s3rver = QDir::cleanPath(app.applicationDirPath() +
                                     QStringLiteral("/../../node_modules/.bin/s3rver"));
    for (int i = 1; i + 1 < arguments.size(); ++i) {
        if (arguments.at(i) == QLatin1String("--runs"))
            runs = qMax(1, arguments.at(i + 1).toInt());
        if (arguments.at(i) == QLatin1String("--s3rver"))
            s3rver = arguments.at(i + 1);
    }

    QTemporaryDir dir;
    QDir(dir.path()).mkpath(QStringLiteral("folder/backups"));
    QByteArray certificate;
    if (!makeCertificate(dir.path(), &certificate)) {
        std::fprintf(stderr, "bench_cloud_check: openssl could not make a certificate\n");
        return 1;
    }
    Server plain;
    Server tls;
    if (!startS3rver(s3rver, dir.filePath(QStringLiteral("plain")), {}, &plain) ||
        !startS3rver(s3rver, dir.filePath(QStringLiteral("tls")),
                     {QStringLiteral("--key"), dir.filePath(QStringLiteral("key.pem")),
                      QStringLiteral("--cert"), dir.filePath(QStringLiteral("cert.pem"))},
                     &tls))
        return 1;
    Kel::Network::Ssl::SslCertificateCache::instance()->update({certificate});

    const QVariantMap folder{
        {QLatin1String(Config::Type), QStringLiteral("FileSystem")},
        {QLatin1String(Config::Path), dir.filePath(QStringLiteral("folder/backups"))}};
    const QVariantMap aws4 = s3Config(plain.port, false, "1");
    const QVariantMap aws2 = s3Config(plain.port, false, "0");
    const QVariantMap https = s3Config(tls.port, true, "1");
    const auto missing = [](Cloud::Backend& backend) {
        Cloud::ObjectInfo info;
        return backend.stat(QStringLiteral("missing"), &info);
    };
    const auto check = [](Cloud::Backend& backend) { return backend.check(); };
    using Manager = Cloud::OperationManager;

    QList<Line> lines{
        {QStringLiteral("baseline: one S3 request, fresh connection"),
         [&] { return runDirect(aws4, missing); },
         {}},
        {QStringLiteral("folder   checkConfig"),
         [&] { return runOperation(Manager::checkConfig(folder)); },
         {}},
        {QStringLiteral("folder   listContainers"),
         [&] { return runOperation(Manager::listContainers(folder)); },
         {}},
        {QStringLiteral("s3 AWS4  checkConfig"),
         [&] { return runOperation(Manager::checkConfig(aws4)); },
         {}},
        {QStringLiteral("s3 AWS4  check, called directly"),
         [&] { return runDirect(aws4, check); },
         {}},
        {QStringLiteral("s3 AWS4  listContainers"),
         [&] { return runOperation(Manager::listContainers(aws4)); },
         {}},
        {QStringLiteral("s3 AWS2  checkConfig"),
         [&] { return runOperation(Manager::checkConfig(aws2)); },
         {}},
        {QStringLiteral("s3 https one request, fresh connection"),
         [&] { return runDirect(https, missing); },
         {}},
        {QStringLiteral("s3 https checkConfig"),
         [&] { return runOperation(Manager::checkConfig(https)); },
         {}},
        {QStringLiteral("s3 https listContainers"),
         [&] { return runOperation(Manager::listContainers(https)); },
         {}},
    };

    // One warm-up round, then the samples, round by round.
    for (int round = -1; round < runs; ++round) {
        for (Line& line : lines) {
            QElapsedTimer timer;
            timer.start();
            if (!line.run()) {
                stop(&plain);
                stop(&tls);
                return 1;
            }
            if (round >= 0)
                line.samples.append(timer.nsecsElapsed() / 1e6);
        }
    }
    stop(&plain);
    stop(&tls);

    const double baseline = lines.first().median();
    std::printf("cloud library, median of %d runs (ms, ratio to the baseline)\n", runs);
    for (const Line& line : qAsConst(lines))
        std::printf("  %-42s %8.2f  %5.2fx\n", qPrintable(line.name), line.median(),
                    baseline > 0 ? line.median() / baseline : 0.0);
    return 0;
}
