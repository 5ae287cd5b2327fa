#include "service/jobs/RunNotifier.h"

#include "kelNetwork/ComputerName.h"
#include "kelNetwork/CurlHandle.h"
#include "kelNetwork/Ssl/CurlTls.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/LocalSecret.h"
#include "orvInfo/Plan/BackupFile.h"
#include "orvInfo/Plan/RestoreFile.h"
#include "service/ServiceLog.h"
#include "service/jobs/JobRunner.h"
#include "service/plans/PlanCatalog.h"

#include <QDir>
#include <QFile>
#include <QLocale>
#include <QRegularExpression>
#include <QSaveFile>
#include <QUuid>
#include <curl/curl.h>

namespace Orv::Service {

using Orv::Info::Plan::Base;
using Orv::Info::Plan::Notification;
using Orv::Info::Plan::PlanResult;

namespace {

constexpr int MaxTimeoutSeconds = 600;
// Encoded words may be 75 characters long: 45 bytes make 60 in base64.
constexpr int EncodedWordBytes = 45;

// Text for one header or one line: control characters (line breaks above all)
// become spaces, so that a plan name cannot start a header of its own.
QString oneLine(const QString& text)
{
    QString line = text;
    for (QChar& c : line)
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            c = QLatin1Char(' ');
    return line.simplified();
}

bool isPlainAscii(const QString& text)
{
    for (const QChar c : text)
        if (c.unicode() < 0x20 || c.unicode() > 0x7e)
            return false;
    return true;
}

// A header value: as it is when it is short printable ASCII, otherwise as
// UTF-8 encoded words folded over several lines.
QByteArray headerText(const QString& text)
{
    const QString line = oneLine(text);
    if (isPlainAscii(line) && line.size() <= 60 && !line.contains(QLatin1String("=?")))
        return line.toLatin1();
    QList<QByteArray> words;
    QByteArray chunk;
    for (int i = 0; i < line.size(); ++i) {
        // A surrogate pair is one character: never split it between words.
        const int length = line.at(i).isHighSurrogate() && i + 1 < line.size() ? 2 : 1;
        const QByteArray bytes = line.mid(i, length).toUtf8();
        i += length - 1;
        if (chunk.size() + bytes.size() > EncodedWordBytes) {
            words.append(chunk);
            chunk.clear();
        }
        chunk += bytes;
    }
    if (!chunk.isEmpty())
        words.append(chunk);
    QByteArray encoded;
    for (const QByteArray& word : words) {
        if (!encoded.isEmpty())
            encoded += "\r\n ";
        encoded += "=?UTF-8?B?" + word.toBase64() + "?=";
    }
    return encoded;
}

// The name before an address: a quoted string, or encoded words.
QByteArray displayName(const QString& name)
{
    QString line = oneLine(name);
    line.remove(QLatin1Char('"')).remove(QLatin1Char('\\'));
    const QByteArray text = headerText(line);
    return text.startsWith("=?") ? text : '"' + text + '"';
}

bool isAddress(const QString& address)
{
    static const QRegularExpression pattern(
        QStringLiteral(R"(^[^\s<>()\[\]\\,;:"@]+@[^\s<>()\[\]\\,;:"@]+$)"));
    return pattern.match(address).hasMatch();
}

QString duration(qint64 ms)
{
    const qint64 seconds = qMax<qint64>(ms, 0) / 1000;
    return QStringLiteral("%1:%2:%3")
        .arg(seconds / 3600, 2, 10, QLatin1Char('0'))
        .arg(seconds / 60 % 60, 2, 10, QLatin1Char('0'))
        .arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

QString when(const QDateTime& time)
{
    return time.isValid() ? time.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))
                          : QStringLiteral("-");
}

QString size(qint64 bytes)
{
    return QStringLiteral("%1 bytes (%2)").arg(bytes).arg(QLocale::c().formattedDataSize(bytes));
}

QString field(const char* label, const QString& value)
{
    return QStringLiteral("%1 %2\n").arg(QLatin1String(label), -13).arg(value);
}

QString list(const char* label, const QStringList& items)
{
    QString text = field(label, items.isEmpty() ? QStringLiteral("-") : oneLine(items.first()));
    for (int i = 1; i < items.size(); ++i)
        text += field("", oneLine(items.at(i)));
    return text;
}

QString planDetails(const Base& plan)
{
    const QString storage =
        QStringLiteral("storage account %1").arg(plan.storage().toString(QUuid::WithoutBraces));
    QString text = field("Plan ID:", plan.id().toString(QUuid::WithoutBraces));
    if (const auto* backup = dynamic_cast<const Orv::Info::Plan::BackupFile*>(&plan)) {
        text += list("Sources:", backup->items());
        if (!backup->excludeItems().isEmpty())
            text += list("Excluded:", backup->excludeItems());
        return text + field("Destination:", storage);
    }
    if (const auto* restore = dynamic_cast<const Orv::Info::Plan::RestoreFile*>(&plan)) {
        text += field("Source:", storage);
        text += list("Items:", restore->restoreItems());
        return text + field("Destination:", restore->restoreToOriginalLocation()
                                                ? QStringLiteral("the original location")
                                                : oneLine(restore->destination()));
    }
    return text + field("Storage:", storage);
}

struct Upload
{
    QByteArray data;
    qsizetype offset = 0;
};

size_t readMessage(char* buffer, size_t size, size_t count, void* context)
{
    auto* upload = static_cast<Upload*>(context);
    const qsizetype room = static_cast<qsizetype>(size * count);
    const qsizetype bytes = qMin(room, upload->data.size() - upload->offset);
    memcpy(buffer, upload->data.constData() + upload->offset, static_cast<size_t>(bytes));
    upload->offset += bytes;
    return static_cast<size_t>(bytes);
}

// Ends a delivery as soon as the notifier is going away.
int checkAbandoned(void* context, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
{
    return static_cast<std::atomic_bool*>(context)->load() ? 1 : 0;
}

struct RecipientList
{
    curl_slist* list = nullptr;
    ~RecipientList() { curl_slist_free_all(list); }
};

// Replaces a plain password line of the file by its sealed form, so that the
// password stays in clear only until the service first reads it.
bool sealPasswordInPlace(const QString& file, const QString& plain, QString* error)
{
    const QString sealed = Orv::Common::LocalSecret().encrypt(plain.toUtf8(), error);
    if (sealed.isEmpty())
        return false;
    QFile in(file);
    if (!in.open(QIODevice::ReadOnly)) {
        *error = in.errorString();
        return false;
    }
    QList<QByteArray> lines = in.readAll().split('\n');
    for (QByteArray& line : lines)
        if (line.left(line.indexOf('=')).trimmed() == "password")
            line = "password=" + sealed.toUtf8();
    QSaveFile out(file);
    if (!out.open(QIODevice::WriteOnly) ||
        !out.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) ||
        out.write(lines.join('\n')) < 0 || !out.commit()) {
        *error = out.errorString();
        return false;
    }
    return true;
}

bool readPassword(const QString& file, SmtpRelay* relay, QString* error)
{
    if (relay->password.isEmpty())
        return true;
    if (!Orv::Common::LocalSecret::isEncrypted(relay->password)) {
        QString problem;
        if (!sealPasswordInPlace(file, relay->password, &problem))
            qCWarning(lcService).noquote()
                << "Cannot seal the password in" << file << ":" << problem;
        return true;
    }
    const auto plain = Orv::Common::LocalSecret().decrypt(relay->password, error);
    if (!plain) {
        *error = QStringLiteral("%1: the password cannot be unsealed: %2").arg(file, *error);
        return false;
    }
    relay->password = QString::fromUtf8(*plain);
    return true;
}

bool applyKey(SmtpRelay* relay, const QString& key, const QString& value)
{
    bool ok = true;
    if (key == QLatin1String("host"))
        relay->host = value;
    else if (key == QLatin1String("port"))
        relay->port = value.toInt(&ok);
    else if (key == QLatin1String("user"))
        relay->user = value;
    else if (key == QLatin1String("password"))
        relay->password = value;
    else if (key == QLatin1String("from"))
        relay->sender = value;
    else if (key == QLatin1String("timeout"))
        relay->timeoutSeconds = value.toInt(&ok);
    else if (key == QLatin1String("tls") && value == QLatin1String("none"))
        relay->tls = SmtpRelay::Tls::None;
    else if (key == QLatin1String("tls") && value == QLatin1String("starttls"))
        relay->tls = SmtpRelay::Tls::StartTls;
    else if (key == QLatin1String("tls") && value == QLatin1String("implicit"))
        relay->tls = SmtpRelay::Tls::Implicit;
    else
        return false;
    return ok;
}

} // namespace

std::optional<SmtpRelay> SmtpRelay::load(const QString& file, QString* error)
{
    error->clear();
    QFile in(file);
    if (!in.exists())
        return std::nullopt;
    if (!in.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("%1: %2").arg(file, in.errorString());
        return std::nullopt;
    }
    // The file may hold a password: keep it to its owner.
    in.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    SmtpRelay relay;
    bool portGiven = false;
    const QList<QByteArray> lines = in.readAll().split('\n');
    for (int i = 0; i < lines.size(); ++i) {
        const QString line = QString::fromUtf8(lines.at(i)).trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        const int equals = line.indexOf(QLatin1Char('='));
        const QString key = line.left(equals).trimmed();
        if (equals < 0 || !applyKey(&relay, key, line.mid(equals + 1).trimmed())) {
            *error = QStringLiteral("%1, line %2: unknown setting or invalid value")
                         .arg(file)
                         .arg(i + 1);
            return std::nullopt;
        }
        portGiven = portGiven || key == QLatin1String("port");
    }
    if (!portGiven && relay.tls == Tls::Implicit)
        relay.port = 465;
    if (relay.host.isEmpty() || relay.port <= 0 || relay.port > 65535 || !isAddress(relay.sender) ||
        relay.timeoutSeconds <= 0 || relay.timeoutSeconds > MaxTimeoutSeconds) {
        *error = QStringLiteral("%1: host, port, sender address (from) or timeout missing or "
                                "out of range")
                     .arg(file);
        return std::nullopt;
    }
    if (!readPassword(file, &relay, error))
        return std::nullopt;
    return relay;
}

QString SmtpRelay::defaultFile()
{
    return QDir(Orv::Defines::AppPath::to().config()).filePath(QStringLiteral("smtp.conf"));
}

QString SmtpRelay::where() const
{
    return QStringLiteral("%1:%2").arg(host).arg(port);
}

RunNotifier::RunNotifier(QObject* parent) : QObject(parent)
{
    // One mail at a time: a relay that hangs holds one thread, not many.
    m_pool.setMaxThreadCount(1);
}

RunNotifier::~RunNotifier()
{
    m_pool.clear();
    m_abandon->store(true);
    m_pool.waitForDone();
}

void RunNotifier::watch(JobRunner& runner, PlanCatalog& plans, RunHistory& history)
{
    connect(&runner, &JobRunner::runEnded, this,
            [this, &plans, &history](const QUuid& planId, PlanResult) {
                QString error;
                const auto plan = plans.load(planId, &error);
                const auto record = history.last(planId);
                if (!plan || !record || !record->finished.isValid()) {
                    qCWarning(lcService).noquote()
                        << "No notification for the run of" << planId.toString() << ":"
                        << (plan ? QStringLiteral("the run is not recorded") : error);
                    return;
                }
                notify(*plan, *record, Kel::Network::ComputerName::name());
            });
}

bool RunNotifier::isWanted(Notification::Type type, PlanResult result)
{
    switch (type) {
    case Notification::Type::On:
        return true;
    case Notification::Type::ErrorOnly:
        return result.isFailure();
    case Notification::Type::Off:
        break;
    }
    return false;
}

QString RunNotifier::subject(const Base& plan, const RunRecord& record, const QString& computerName)
{
    const QString result = PlanResult(record.result).displayName();
    QString text = plan.notification().subject().trimmed();
    if (text.isEmpty())
        text = QStringLiteral("%PLAN_NAME% on %COMPUTER_NAME%: %RESULT%");
    // One pass, so that a plan named "%RESULT%" stays as it is.
    static const QRegularExpression variable(QStringLiteral("%(COMPUTER_NAME|RESULT|PLAN_NAME)%"));
    QString replaced;
    int from = 0;
    for (auto it = variable.globalMatch(text); it.hasNext();) {
        const auto match = it.next();
        replaced += text.mid(from, match.capturedStart() - from);
        const QString name = match.captured(1);
        replaced += name == QLatin1String("RESULT")      ? result
                    : name == QLatin1String("PLAN_NAME") ? plan.name()
                                                         : computerName;
        from = match.capturedEnd();
    }
    return oneLine(replaced + text.mid(from));
}

QString RunNotifier::body(const Base& plan, const RunRecord& record, const QString& computerName)
{
    QString text = field("Plan:", oneLine(plan.name()));
    text += field("Computer:", computerName);
    text += field("Result:", PlanResult(record.result).displayName());
    text += field("Started:", when(record.started));
    text += field("Finished:", when(record.finished));
    text += field("Duration:", duration(record.durationMs()));
    text += field("Files:", QString::number(record.files));
    text += field("Size:", size(record.bytes));
    text += field("Failed:", QString::number(record.failed));
    if (plan.notification().generateDetailedReport()) {
        text += field("Run:", QString::number(record.id));
        text += field("Full backup:", record.full ? QStringLiteral("yes") : QStringLiteral("no"));
        text += field("Uploaded:", size(record.uploaded));
        text += field("Warnings:", QString::number(record.warnings));
        text += field("Errors:", QString::number(record.errors));
        text += planDetails(plan);
    }
    if (!record.message.isEmpty())
        text += QStringLiteral("\n%1\n").arg(record.message);
    return text;
}

QByteArray RunNotifier::message(const QString& sender, const QStringList& recipients,
                                const QString& subject, const QString& body,
                                const QString& computerName)
{
    QByteArray text = body.toUtf8();
    text.replace("\r\n", "\n").replace('\r', '\n').replace("\n", "\r\n");
    QByteArray encodedBody;
    const QByteArray base64 = text.toBase64();
    for (int i = 0; i < base64.size(); i += 76)
        encodedBody += base64.mid(i, 76) + "\r\n";
    QByteArray host;
    for (const QChar c : computerName)
        if (c.unicode() < 0x80 &&
            (c.isLetterOrNumber() || c == QLatin1Char('-') || c == QLatin1Char('.')))
            host += char(c.unicode());
    if (host.isEmpty())
        host = "localhost";
    QByteArray head;
    head += "Date: " + QDateTime::currentDateTime().toString(Qt::RFC2822Date).toLatin1() + "\r\n";
    head += "From: " + displayName(QStringLiteral("Backup service on %1").arg(computerName)) +
            " <" + sender.toLatin1() + ">\r\n";
    head += "To: " + recipients.join(QStringLiteral(", ")).toLatin1() + "\r\n";
    head += "Subject: " + headerText(subject) + "\r\n";
    head += "Message-ID: <" + QUuid::createUuid().toByteArray(QUuid::WithoutBraces) + "@" + host +
            ">\r\n";
    head += "MIME-Version: 1.0\r\n";
    head += "Content-Type: text/plain; charset=UTF-8\r\n";
    head += "Content-Transfer-Encoding: base64\r\n";
    return head + "\r\n" + encodedBody;
}

bool RunNotifier::notify(const Base& plan, const RunRecord& record, const QString& computerName)
{
    if (!isWanted(plan.notification().type(), PlanResult(record.result)))
        return false;
    const QStringList to = recipients();
    if (to.isEmpty())
        return false;
    const std::optional<SmtpRelay> smtp = relay();
    if (!smtp)
        return false;
    m_reportedProblem.clear();
    const QByteArray text = message(smtp->sender, to, subject(plan, record, computerName),
                                    body(plan, record, computerName), computerName);
    m_pool.start([this, relay = *smtp, to, text, name = oneLine(plan.name())] {
        send(relay, to, text, name);
    });
    return true;
}

bool RunNotifier::waitForDone(int msecs)
{
    return m_pool.waitForDone(msecs);
}

QStringList RunNotifier::recipients()
{
    const QString setting = DefaultSettings::instance()->getNotifEmail();
    QStringList valid;
    static const QRegularExpression separators(QStringLiteral("[;,\\s]+"));
    for (const QString& address : setting.split(separators, Qt::SkipEmptyParts))
        if (isAddress(address))
            valid.append(address);
    if (!valid.isEmpty())
        return valid;
    const QString problem =
        setting.trimmed().isEmpty()
            ? QStringLiteral("No notification e-mail address is set: run results are not mailed")
            : QStringLiteral("The notification e-mail address \"%1\" is not valid: run results "
                             "are not mailed")
                  .arg(oneLine(setting));
    if (problem != m_reportedProblem)
        qCWarning(lcService).noquote() << problem;
    m_reportedProblem = problem;
    return {};
}

std::optional<SmtpRelay> RunNotifier::relay()
{
    const QString file = SmtpRelay::defaultFile();
    QString error;
    std::optional<SmtpRelay> smtp = SmtpRelay::load(file, &error);
    if (smtp)
        return smtp;
    const QString problem =
        error.isEmpty()
            ? QStringLiteral("No mail relay is set up (%1): run results are not mailed").arg(file)
            : QStringLiteral("The mail relay cannot be used: %1").arg(error);
    if (problem != m_reportedProblem)
        qCWarning(lcService).noquote() << problem;
    m_reportedProblem = problem;
    return std::nullopt;
}

void RunNotifier::send(const SmtpRelay& relay, const QStringList& recipients,
                       const QByteArray& message, const QString& planName)
{
    Kel::Network::CurlHandle handle;
    CURL* curl = handle.get();
    if (!curl) {
        qCWarning(lcService).noquote() << "Cannot mail the run of" << planName
                                       << ": the mail library could not be initialised";
        return;
    }
    const bool implicitTls = relay.tls == SmtpRelay::Tls::Implicit;
    const QByteArray url =
        QStringLiteral("%1://%2/")
            .arg(implicitTls ? QStringLiteral("smtps") : QStringLiteral("smtp"), relay.where())
            .toUtf8();
    RecipientList to;
    for (const QString& address : recipients)
        to.list = curl_slist_append(to.list, ("<" + address + ">").toUtf8().constData());
    Upload upload{message};
    char detail[CURL_ERROR_SIZE] = {};
    const QByteArray sender = "<" + relay.sender.toUtf8() + ">";
    const QByteArray user = relay.user.toUtf8();
    const QByteArray password = relay.password.toUtf8();

    curl_easy_setopt(curl, CURLOPT_URL, url.constData());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "smtp,smtps");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, long(relay.timeoutSeconds) * 1000);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, detail);
    curl_easy_setopt(curl, CURLOPT_USE_SSL,
                     relay.tls == SmtpRelay::Tls::StartTls ? long(CURLUSESSL_ALL)
                                                           : long(CURLUSESSL_NONE));
    if (!user.isEmpty()) {
        curl_easy_setopt(curl, CURLOPT_USERNAME, user.constData());
        curl_easy_setopt(curl, CURLOPT_PASSWORD, password.constData());
    }
    curl_easy_setopt(curl, CURLOPT_MAIL_FROM, sender.constData());
    curl_easy_setopt(curl, CURLOPT_MAIL_RCPT, to.list);
    curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, &readMessage);
    curl_easy_setopt(curl, CURLOPT_READDATA, &upload);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, &checkAbandoned);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, m_abandon.get());
    Kel::Network::Ssl::CurlTls::apply(curl);

    const CURLcode result = curl_easy_perform(curl);
    if (result != CURLE_OK) {
        qCWarning(lcService).noquote()
            << QStringLiteral("Cannot mail the run of %1 through %2: %3")
                   .arg(planName, relay.where(),
                        Kel::Network::CurlHandle::errorText(result, detail));
        return;
    }
    qCInfo(lcService).noquote() << QStringLiteral("Run of %1 mailed to %2")
                                       .arg(planName, recipients.join(QStringLiteral(", ")));
}

} // namespace Orv::Service
