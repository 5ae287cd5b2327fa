#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QVariantMap>
#include <functional>

namespace Kel::Cloud {

class Backend;
struct Status;

// One asynchronous storage operation that reports one result by signal. The
// work runs on the global thread pool (the backends block on the network);
// finished() is delivered on the thread that created the operation, once,
// through the event loop. The operation deletes itself after finished() only
// when setAutoDelete(true).
class Operation : public QObject
{
    Q_OBJECT
public:
    enum class Error
    {
        None,
        Unknown,
        // The credentials were refused (bad key, bad signature, bad password).
        Authorization,
        // The container (bucket, folder, container path) does not exist.
        ContainerNotFound,
        // No answer: host unknown, connection refused, time-out.
        Unreachable,
        // The server's TLS certificate is not trusted; peerCertificates() has it.
        UntrustedCertificate,
        // The configuration itself is wrong (missing key, bad value).
        InvalidConfiguration,
        // The operation is not offered for this type.
        NotSupported,
        // The object (file, key) does not exist; only object operations of
        // the backends report it.
        ObjectNotFound,
    };
    Q_ENUM(Error)

    using QObject::QObject;

    Error error() const { return m_error; }
    // The server's own reason or the library's, for the administrator to read.
    QString errorString() const { return m_errorString; }
    // PEM text of the certificate chain the server presented, when the error
    // is UntrustedCertificate.
    QByteArray peerCertificates() const { return m_peerCertificates; }
    // The result of a listing: objects with at least "Name" (containers also
    // carry "CreationDate", ISO 8601 UTC, when the store reports it, and
    // "Id" where the store names containers by an identifier too).
    QJsonArray result() const { return m_result; }
    // Values the account's configuration must take before it is saved (a
    // refresh token obtained with a one-time authorisation code), by
    // configuration key; usually empty.
    QVariantMap configChanges() const { return m_configChanges; }
    bool isFinished() const { return m_finished; }
    // When on, the operation deletes itself (deleteLater) after finished().
    void setAutoDelete(bool autoDelete) { m_autoDelete = autoDelete; }
    bool autoDelete() const { return m_autoDelete; }

    // A finished operation as JSON, and back: for an operation that one
    // process runs on behalf of another.
    QJsonObject toJson() const;
    // A finished operation holding what object records (an unknown error when
    // object does not hold an operation).
    static Operation* fromJson(const QJsonObject& object, QObject* parent = nullptr);

signals:
    void finished();

protected:
    void finish(Error error, const QString& errorString, const QJsonArray& result = {},
                const QByteArray& peerCertificates = {});

private:
    Error m_error = Error::None;
    QString m_errorString;
    QByteArray m_peerCertificates;
    QJsonArray m_result;
    QVariantMap m_configChanges;
    bool m_finished = false;
    bool m_autoDelete = false;

    friend class OperationManager;
};

// Entry to the operations the command line runs on a configuration before it
// is saved. Each call starts at once and returns the running operation, owned
// by the caller.
class OperationManager
{
public:
    // Connects, authenticates and checks that the container is usable.
    static Operation* checkConfig(const QVariantMap& config);
    // Lists the containers (buckets) the credentials can see. For the folder
    // types (file system, SFTP) these are the folders beside the configured
    // one, named in the form the configuration gives it.
    static Operation* listContainers(const QVariantMap& config);

private:
    static Operation* start(const QVariantMap& config,
                            std::function<Status(Backend&, QJsonArray*)> work);
};

} // namespace Kel::Cloud
