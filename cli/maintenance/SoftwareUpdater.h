#pragma once

#include <QJsonDocument>
#include <QObject>
#include <QString>
#include <QTimer>

namespace Orv::CLI {

// Asks the service for the latest published build and, on request, has it
// download that build, following the service's progress notifications.
class SoftwareUpdater : public QObject
{
    Q_OBJECT
public:
    enum ErrorCode
    {
        NoError = 0,
        CheckError = 1,
        NotificationError = 4
    };

    explicit SoftwareUpdater(QObject* parent = nullptr);

    // Below 1 when the check could not start (errorString() says why);
    // otherwise checkFinished() follows.
    int startCheckNewVersion();
    bool isNewVersionAvailable() const;
    // Below 1 when the download could not start; otherwise updateProgress()
    // follows at each step, the last one at 100 % or with an error.
    int startDownload();

    int progress() const { return m_progress; }
    int error() const { return m_error; }
    QString errorString() const { return m_errorString; }

signals:
    void checkFinished();
    void updateProgress();

public slots:
    void onNotification(const QJsonDocument& document);

private slots:
    void onGetProductInformationResult();

private:
    void fail(int code, const QString& message);

    QString m_latestVersion;
    QString m_buildUrl;
    qint64 m_buildSize = 0;
    QString m_buildSha256;
    int m_error = NoError;
    int m_progress = 0;
    QString m_errorString;
    // Ends a wait that no notification will end: the service went away.
    QTimer m_silence;
};

} // namespace Orv::CLI
