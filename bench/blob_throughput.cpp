// Upload and download throughput of one large object through the Azure Blob
// backend against the Azure emulator (azurite-blob from node_modules/), as a
// ratio to the same object through the S3 backend against s3rver, both on
// loopback and in the same run. Both backends split the upload into parts of
// the same size (16 MiB unless --part says otherwise) and read the object
// back whole into a sink that drops the bytes. The rounds interleave the four
// transfers, so a change of load falls on all; each line shows the median.
//
//   build/bin/bench_blob_throughput [--size-mib 256] [--rounds 3] [--part-mib 16]

#include "kelCloud/AzureBlobClient.h"
#include "kelCloud/Backend.h"
#include "kelCloud/Config.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>

namespace Cloud = Kel::Cloud;
namespace Config = Kel::Cloud::Config;

namespace {

const char* const AzureAccount = "devstoreaccount1";
const char* const AzureKey =
    "Eby8vdM02xNOcqFlqUwJPLlmEtlCDXJ1OUzFT50uSRZ6IFsuFq2UVErCz4I6tq/K1SZFPTOtr/KBHBeksoGMGw==";

// Takes the bytes and keeps none of them.
class Discard : public QIODevice
{
public:
    Discard() { open(QIODevice::WriteOnly); }
    qint64 received = 0;

protected:
    qint64 readData(char*, qint64) override { return -1; }
    qint64 writeData(const char*, qint64 length) override
    {
        received += length;
        return length;
    }
};

struct Server
{
    QProcess process;
    int port = 0;
    ~Server()
    {
        process.terminate();
        if (!process.waitForFinished(5000))
            process.kill();
        process.waitForFinished(5000);
    }
};

// The peers come from the project's node_modules/, two levels above build/bin.
bool start(const QString& tool, const QStringList& arguments, const QString& listening,
           Server* server)
{
    server->process.setProcessChannelMode(QProcess::MergedChannels);
    server->process.start(QDir::cleanPath(QCoreApplication::applicationDirPath() +
                                          QStringLiteral("/../../node_modules/.bin/") + tool),
                          arguments);
    const QRegularExpression pattern(listening);
    QByteArray output;
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 30000 && server->process.state() != QProcess::NotRunning) {
        server->process.waitForReadyRead(200);
        output += server->process.readAll();
        const QRegularExpressionMatch match = pattern.match(QString::fromUtf8(output));
        if (match.hasMatch()) {
            server->port = match.captured(1).toInt();
            return true;
        }
    }
    std::fprintf(stderr, "bench_blob_throughput: %s did not start: %s\n", qPrintable(tool),
                 output.constData());
    return false;
}

int freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

bool makeContainer(int port)
{
    Cloud::AzureBlobClient::Settings settings;
    settings.account = QLatin1String(AzureAccount);
    settings.key = AzureKey;
    settings.serviceUrl =
        QStringLiteral("http://127.0.0.1:%1/%2").arg(port).arg(AzureAccount).toUtf8();
    settings.container = QStringLiteral("bench");
    Cloud::AzureBlobClient client(settings);
    Cloud::AzureBlobClient::Request request;
    request.method = "PUT";
    request.query = {{QStringLiteral("restype"), QStringLiteral("container")}};
    Cloud::AzureBlobClient::Response response;
    const Cloud::Status status = client.send(request, &response);
    if (!status.ok())
        std::fprintf(stderr, "bench_blob_throughput: %s\n", qPrintable(status.message));
    return status.ok();
}

QVariantMap s3Config(int port, qint64 partSize)
{
    return {{QLatin1String(Config::Type), QStringLiteral("S3Compatible")},
            {QLatin1String(Config::Endpoint), QStringLiteral("127.0.0.1:%1").arg(port)},
            {QLatin1String(Config::UseSsl), QStringLiteral("false")},
            {QLatin1String(Config::AccessKey), QStringLiteral("S3RVER")},
            {QLatin1String(Config::SecretKey), QStringLiteral("S3RVER")},
            {QLatin1String(Config::SignatureVersion), QStringLiteral("AWS4")},
            {QLatin1String(Config::Container), QStringLiteral("bench")},
            {QLatin1String(Config::PartSize), QString::number(partSize)}};
}

QVariantMap azureConfig(int port, qint64 partSize)
{
    return {{QLatin1String(Config::Type), QStringLiteral("AzureBlob")},
            {QLatin1String(Config::AzureType), QStringLiteral("Custom")},
            {QLatin1String(Config::Endpoint), QStringLiteral("http://127.0.0.1:%1").arg(port)},
            {QLatin1String(Config::AccountName), QLatin1String(AzureAccount)},
            {QLatin1String(Config::SharedKey), QLatin1String(AzureKey)},
            {QLatin1String(Config::Container), QStringLiteral("bench")},
            {QLatin1String(Config::PartSize), QString::number(partSize)}};
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

// Seconds for one transfer; negative when it failed.
double timed(const std::function<Cloud::Status()>& transfer)
{
    QElapsedTimer timer;
    timer.start();
    const Cloud::Status status = transfer();
    if (!status.ok()) {
        std::fprintf(stderr, "bench_blob_throughput: %s\n", qPrintable(status.message));
        return -1;
    }
    return timer.nsecsElapsed() / 1e9;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    auto option = [&args](const char* name, int fallback) {
        const int at = args.indexOf(QLatin1String(name));
        return at >= 0 && at + 1 < args.size() ? args.at(at + 1).toInt() : fallback;
    };
    const qint64 size = qint64(option("--size-mib", 256)) * 1024 * 1024;
    const int rounds = qMax(1, option("--rounds", 3));
    const qint64 partSize = qint64(option("--part-mib", 16)) * 1024 * 1024;

    QTemporaryDir dir;
    Server s3;
    Server azure;
    const int azurePort = freePort();
    if (!start(QStringLiteral("s3rver"),
               {QStringLiteral("-d"), dir.filePath(QStringLiteral("s3")), QStringLiteral("-a"),
                QStringLiteral("127.0.0.1"), QStringLiteral("-p"), QStringLiteral("0"),
                QStringLiteral("--no-vhost-buckets"), QStringLiteral("--configure-bucket"),
                QStringLiteral("bench")},
               QStringLiteral("listening on [^:\\s]+:(\\d+)"), &s3) ||
        !start(QStringLiteral("azurite-blob"),
               {QStringLiteral("--blobHost"), QStringLiteral("127.0.0.1"),
                QStringLiteral("--blobPort"), QString::number(azurePort), QStringLiteral("-l"),
                dir.filePath(QStringLiteral("azure")), QStringLiteral("--skipApiVersionCheck"),
                QStringLiteral("--disableTelemetry")},
               QStringLiteral("listens on http://[^:\\s]+:(\\d+)"), &azure) ||
        !makeContainer(azure.port))
        return 1;

    QByteArray data(static_cast<int>(size), Qt::Uninitialized);
    for (qint64 i = 0; i < size; ++i)
        data[static_cast<int>(i)] = static_cast<char>((i * 2654435761u) >> 13);

    struct Line
    {
        const char* name;
        QVariantMap config;
        std::vector<double> up;
        std::vector<double> down;
    };
    Line lines[] = {{"s3 (s3rver)", s3Config(s3.port, partSize), {}, {}},
                    {"azure (azurite)", azureConfig(azure.port, partSize), {}, {}}};
    for (int round = 0; round < rounds; ++round) {
        for (Line& line : lines) {
            Cloud::Status status;
            std::unique_ptr<Cloud::Backend> backend = Cloud::Backend::create(line.config, &status);
            if (!backend) {
                std::fprintf(stderr, "bench_blob_throughput: %s\n", qPrintable(status.message));
                return 1;
            }
            const QString name = QStringLiteral("object-%1").arg(round);
            QBuffer source(&data);
            source.open(QIODevice::ReadOnly);
            const double up = timed([&] { return backend->write(name, &source, size); });
            Discard sink;
            const double down = timed([&] { return backend->read(name, 0, -1, &sink); });
            if (up < 0 || down < 0 || sink.received != size) {
                std::fprintf(stderr, "bench_blob_throughput: %s round %d failed\n", line.name,
                             round);
                return 1;
            }
            backend->remove(name);
            line.up.push_back(size / up / 1048576.0);
            line.down.push_back(size / down / 1048576.0);
        }
    }
    std::printf("object %lld MiB, parts %lld MiB, %d rounds, medians\n",
                static_cast<long long>(size >> 20), static_cast<long long>(partSize >> 20), rounds);
    std::printf("%-18s %12s %12s\n", "", "upload MiB/s", "download MiB/s");
    for (const Line& line : lines)
        std::printf("%-18s %12.1f %12.1f\n", line.name, median(line.up), median(line.down));
    std::printf("%-18s %12.2f %12.2f\n", "ratio azure/s3",
                median(lines[1].up) / median(lines[0].up),
                median(lines[1].down) / median(lines[0].down));
    return 0;
}
