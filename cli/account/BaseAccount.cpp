#include "BaseAccount.h"

#include "AccountLog.h"
#include "AccountTypes.h"
#include "CommandChannel.h"
#include "CommonHelpers.h"
#include "Console.h"
#include "Sync.h"
#include "UpdateAccount.h"
#include "kelCloud/Config.h"
#include "kelCloud/Signature.h"
#include "kelCore/SmallFile.h"
#include "maintenance/Ssl.h"
#include "orvCommon/BackendConfig.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/GetConnection.h"
#include "orvInfo/StorageAccountConfigFormat.h"

#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTextStream>

namespace Orv::CLI {

namespace Config = Kel::Cloud::Config;
namespace Reply = Orv::Common::Communication::Commands::Format::Storage::GetConnection::Reply;
using GetConnection = Orv::Common::Communication::V2::GetConnection;
using Kel::Cloud::Operation;
using Kel::Cloud::Type;
using Kel::Network::Ssl::Certificate;
using Signature = Kel::Cloud::Info::AmazonS3Like::Signature;

namespace {

const QString kCheckFailed = QStringLiteral("Check cloud config operation finished with error: ");
const QString kContainerMissing = QStringLiteral("The specified container does not exist.\n");

QString description(const QString& name, CommandType mode)
{
    return (mode == CommandType::Add ? QStringLiteral("add ") : QStringLiteral("edit ")) +
           AccountTypes::NameToExtendedName().value(name) + QStringLiteral(" account");
}

} // namespace

BaseAccount::BaseAccount(const QString& name, CommandType mode, QObject* parent)
    : CommandBase(name, description(name, mode), parent), m_mode(mode),
      m_type(AccountTypes::NameToType().value(name, Type::Unknown)),
      m_nameOption({QStringLiteral("n"), QStringLiteral("name")},
                   QStringLiteral("Original name of the account "), QStringLiteral("accountName")),
      m_newNameOption(QStringLiteral("newname"), QStringLiteral("New name for the account"),
                      QStringLiteral("accountNewName")),
      m_idOption(QStringLiteral("id"), QStringLiteral("Account ID"), QStringLiteral("accountId")),
      m_prefixOption({QStringLiteral("p"), QStringLiteral("prefix")},
                     QStringLiteral("Sets the backup prefix (directory in the bucket). The backup "
                                    "prefix is used to keep backups  to differentiate between "
                                    "backups from different computers. Optional, by default is "
                                    "computer name."),
                     QStringLiteral("prefix")),
      m_sslOption(QStringLiteral("ssl"), QStringLiteral("Use SSL (true/false)"),
                  QStringLiteral("useSSL")),
      m_endpointOption({QStringLiteral("e"), QStringLiteral("endpoint")},
                       QStringLiteral("Endpoint"), QStringLiteral("endpoint")),
      m_signatureOption({QStringLiteral("v"), QStringLiteral("signature-version")},
                        QStringLiteral("Signature version. Possible values: aws2(default), aws4."),
                        QStringLiteral("signatureVersion")),
      m_folderPathOption({QStringLiteral("f"), QStringLiteral("folder-path")},
                         QStringLiteral("Folder path"), QStringLiteral("folderPath"))
{
    addOption(m_nameOption, true);
    if (mode == CommandType::Add)
        return;
    addOption(m_newNameOption);
    addOption(m_idOption, true);
}

int BaseAccount::process(const QStringList& words)
{
    const int parsed = exec(words);
    if (parsed != Started)
        return parsed;
    for (int (BaseAccount::*step)() :
         {&BaseAccount::checkOptions, &BaseAccount::chooseAccount, &BaseAccount::initParams}) {
        const int result = (this->*step)();
        if (result != Continue)
            return result;
        if (m_ended)
            return Started;
    }
    readPrefix();
    updateAccount();
    return Started;
}

int BaseAccount::chooseAccount()
{
    const bool byName = m_parser.isSet(m_nameOption);
    if (!isAdd() && byName && m_parser.isSet(m_idOption)) {
        print(QString());
        return Usage;
    }
    if (byName) {
        m_accountName = m_parser.value(m_nameOption);
    } else if (isAdd()) {
        print(QStringLiteral("Options [ ") + joinedNames(m_nameOption) +
              QStringLiteral(" ] is mandatory"));
        return Usage;
    } else if (m_parser.isSet(m_idOption)) {
        m_id = QUuid(m_parser.value(m_idOption).trimmed());
    } else {
        print(QStringLiteral("Options [ ") + joinedNames(m_idOption) + QStringLiteral(" ] or [ ") +
              joinedNames(m_nameOption) + QStringLiteral(" ] is mandatory"));
        return Usage;
    }

    if (m_type == Type::S3Compatible && m_parser.isSet(m_signatureOption) &&
        !Signature::SignatureVersionValue().contains(m_parser.value(m_signatureOption).trimmed()))
        return Error;
    QVariant endpoint;
    const bool needsEndpoint =
        m_type == Type::Minio || m_type == Type::Sftp || m_type == Type::S3Compatible;
    if (isAdd() && needsEndpoint && !setMandatoryOption(m_endpointOption, endpoint))
        return Error;

    if (isAdd()) {
        m_id = QUuid::createUuid();
        m_displayName = m_accountName;
        return Continue;
    }
    QEventLoop loop;
    connect(this, &BaseAccount::waitComplete, &loop, &QEventLoop::quit);
    if (getAccount())
        loop.exec();
    if (m_parser.isSet(m_newNameOption))
        m_displayName = m_parser.value(m_newNameOption);
    return Continue;
}

bool BaseAccount::getAccount()
{
    try {
        auto request = QSharedPointer<GetConnection::Request>::create();
        request->setWithSecrets(true);
        CommandChannel::sendTyped(GetConnection::CommandId, request, this,
                                  &BaseAccount::onGetAccountResult,
                                  QStringLiteral("Communication command don't registered"));
        return true;
    } catch (const QString& message) {
        fail(message);
        return false;
    }
}

void BaseAccount::onGetAccountResult()
{
    QScopedPointer<CommandChannel::TypedCommand, QScopedPointerDeleteLater> command(
        qobject_cast<CommandChannel::TypedCommand*>(sender()));
    try {
        const QSharedPointer<GetConnection::Response> response =
            CommandChannel::typedResponse<GetConnection::Response>(command.data(), this,
                                                                   [this] { getAccount(); });
        if (!response)
            return;
        const QString name = m_parser.isSet(m_nameOption) ? m_accountName : QString();
        const QJsonArray connections = response->connections();
        for (const QJsonValue& value : connections) {
            const QJsonObject record = value.toObject();
            if (!Sync::matches(record, name, m_id.toString()))
                continue;
            m_existing = record;
            m_id = QUuid(record.value(QLatin1String(Reply::ID)).toString());
            m_displayName = record.value(QLatin1String(Reply::DisplayName)).toString();
            m_config = record.value(QLatin1String(Reply::DetailParams)).toObject().toVariantMap();
            emit waitComplete();
            return;
        }
        throw QStringLiteral("Invalid account Id or account Name.\n");
    } catch (const QString& message) {
        fail(message);
    }
    emit waitComplete();
}

bool BaseAccount::readOption(const QCommandLineOption& option, const char* key, bool mandatory)
{
    QVariant value;
    if (mandatory && isAdd()) {
        if (!setMandatoryOption(option, value))
            return false;
    } else {
        setOptionalOption(option, value);
    }
    if (value.isValid())
        m_config.insert(QLatin1String(key), value.toString());
    return true;
}

bool BaseAccount::readSwitch(const QCommandLineOption& option, const char* key, bool defaultValue)
{
    QVariant value;
    if (!setSwitchModeOption(option, value, false))
        return false;
    if (value.isValid())
        m_config.insert(QLatin1String(key), SwitchModeName.value(value.toBool()));
    else if (isAdd() || !m_config.contains(QLatin1String(key)))
        m_config.insert(QLatin1String(key), SwitchModeName.value(defaultValue));
    return true;
}

bool BaseAccount::readKeyFile(const QCommandLineOption& option, const char* key, bool mandatory)
{
    QVariant path;
    if (mandatory && isAdd() ? !setMandatoryOption(option, path) : !setOptionalOption(option, path))
        return false;
    if (!path.isValid())
        return true;
    const std::optional<QString> contents = convertPathToPrivateKey(path.toString());
    if (!contents)
        return false;
    m_config.insert(QLatin1String(key), *contents);
    return true;
}

void BaseAccount::readPrefix()
{
    QVariant value;
    setOptionalOption(m_prefixOption, value);
    if (value.isValid()) {
        m_prefix = value.toString();
        return;
    }
    if (!isAdd())
        m_prefix = m_existing.value(QLatin1String(Reply::DetailParams))
                       .toObject()
                       .value(QLatin1String(Orv::Info::StorageAccountConfigFormat::BackupPrefix))
                       .toString()
                       .trimmed();
    if (m_prefix.isEmpty())
        m_prefix = defaultPrefix();
}

QVariantMap BaseAccount::cloudConfig() const
{
    QVariantMap config = m_config;
    config.insert(QLatin1String(Config::Id), m_id.toString());
    config.insert(QLatin1String(Config::Type), Kel::Cloud::typeName(m_type));
    config.insert(QLatin1String(Orv::Info::StorageAccountConfigFormat::BackupPrefix), m_prefix);
    return config;
}

QVariantMap BaseAccount::backendConfig() const
{
    return Orv::Common::BackendConfig::prepare(cloudConfig());
}

bool BaseAccount::checkPath(const QString& path)
{
    QString folder = path;
    if (!folder.endsWith(QLatin1Char('/')))
        folder += QLatin1Char('/');
    if (!folder.startsWith(QLatin1Char('/'))) {
        fail(QStringLiteral("Wrong local container specified!\n"));
        return false;
    }
    folder += QStringLiteral("ORV_") + m_id.toString();
    if (!QDir(folder).exists()) {
        if (!QDir().mkpath(folder)) {
            fail(QStringLiteral("Can not create a directory in the specified path!\n"));
            return false;
        }
        m_createdFolder = folder;
    }
    m_config.insert(QLatin1String(Config::Path), folder);
    return true;
}

std::optional<QString> BaseAccount::convertPathToPrivateKey(const QString& path)
{
    // Far beyond any real key, PEM or JSON.
    constexpr qint64 kMaxKeyFileSize = 64 * 1024;
    QByteArray contents;
    switch (Kel::Core::SmallFile::read(path, kMaxKeyFileSize, &contents)) {
    case Kel::Core::SmallFile::Outcome::Read:
        return QString::fromUtf8(contents);
    case Kel::Core::SmallFile::Outcome::CannotOpen:
        print(QStringLiteral("Can't open file: %1\n").arg(path));
        break;
    case Kel::Core::SmallFile::Outcome::NotRegular:
        print(QStringLiteral("Can't open file: %1 (it is not a regular file)\n").arg(path));
        break;
    case Kel::Core::SmallFile::Outcome::TooLarge:
        print(QStringLiteral("Can't open file: %1 (it is larger than 64 KiB, which no key is)\n")
                  .arg(path));
        break;
    }
    return std::nullopt;
}

BaseAccount::OperationPointer BaseAccount::runOperation(const char* kind, const char* step)
{
    namespace Check = Orv::Common::Communication::Commands::Format::Storage::Check;
    // The service runs the check with the storage backends, which the command
    // line does not carry; retries against a slow storage may take minutes.
    constexpr int kCheckTimeoutMs = 15 * 60 * 1000;
    QElapsedTimer timer;
    timer.start();
    QJsonObject data;
    try {
        data = CommandChannel::blockingExchange(
            QLatin1String(Check::Name),
            {{QLatin1String(Check::Request::Operation), QLatin1String(kind)},
             {QLatin1String(Check::Request::Config), QJsonObject::fromVariantMap(backendConfig())}},
            kCheckTimeoutMs);
    } catch (const QString& message) {
        qCInfo(lcAccount).noquote() << step << timer.elapsed() << "ms, not run:" << message;
        fail(message);
        return nullptr;
    }
    OperationPointer operation(
        Operation::fromJson(data.value(QLatin1String(Check::Reply::Outcome)).toObject()));
    qCInfo(lcAccount).noquote() << step << timer.elapsed() << "ms," << operation->error();
    return operation;
}

void BaseAccount::keepConfigChanges(const Operation& operation)
{
    const QVariantMap changes = operation.configChanges();
    for (auto it = changes.cbegin(); it != changes.cend(); ++it)
        m_config.insert(it.key(), it.value());
}

bool BaseAccount::checkConfig()
{
    for (;;) {
        const OperationPointer operation = runOperation(
            Orv::Common::Communication::Commands::Format::Storage::Check::Request::CheckConfig,
            "Configuration check:");
        if (!operation)
            return false;
        switch (operation->error()) {
        case Operation::Error::None:
            keepConfigChanges(*operation);
            return true;
        case Operation::Error::UntrustedCertificate:
            if (trustCertificate(*operation))
                continue;
            return false;
        case Operation::Error::ContainerNotFound:
            fail(kContainerMissing);
            return false;
        default:
            fail(kCheckFailed + operation->errorString());
            return false;
        }
    }
}

bool BaseAccount::listContainers()
{
    for (;;) {
        const OperationPointer operation = runOperation(
            Orv::Common::Communication::Commands::Format::Storage::Check::Request::ListContainers,
            "Container listing:");
        if (!operation)
            return false;
        switch (operation->error()) {
        case Operation::Error::None:
            keepConfigChanges(*operation);
            parseContainers(operation->result());
            return true;
        case Operation::Error::UntrustedCertificate:
            if (trustCertificate(*operation))
                continue;
            return false;
        case Operation::Error::Authorization:
            fail(QStringLiteral("Authorization problem. Please, check parameters.\n"));
            return false;
        case Operation::Error::NotSupported:
            fail(QStringLiteral("Operation unknown.\n"));
            return false;
        case Operation::Error::Unknown:
            fail(QStringLiteral("\nUnable to add account: something went wrong.\n"));
            return false;
        default:
            fail(QStringLiteral("Can't load containers.\n") + operation->errorString());
            return false;
        }
    }
}

void BaseAccount::parseContainers(const QJsonArray& containers)
{
    m_containers = containers;
}

bool BaseAccount::checkContainer()
{
    for (const QJsonValue& container : qAsConst(m_containers))
        if (container.toObject().value(QStringLiteral("Name")).toString() == m_container)
            return true;
    fail(kContainerMissing);
    return false;
}

bool BaseAccount::trustCertificate(const Operation& operation)
{
    QList<Certificate> chain = Certificate::readAll(operation.peerCertificates());
    if (chain.isEmpty())
        chain = Ssl::loadSslCertificate(m_config.value(QLatin1String(Config::Endpoint)).toString());
    if (chain.isEmpty()) {
        fail(QStringLiteral("Peer certificate is empty. Can not load certificate.\n"));
        return false;
    }
    const Certificate certificate = chain.first();
    const QByteArray pem = certificate.to(Certificate::Pem);
    // Trusting it did not help (the name does not match, say): asking again
    // would loop.
    if (m_trusted.contains(pem)) {
        fail(kCheckFailed + operation.errorString());
        return false;
    }
    print(QStringLiteral("To continue working, you need to perform the following action:\n"));
    print(Ssl::showSslCertificate(certificate));
    print(QStringLiteral("Trust the following certificate? [no]:"));
    QTextStream input(stdin);
    QString answer;
    input >> answer;
    if (answer.isEmpty())
        answer = QStringLiteral("no");
    if (answer != QLatin1String("yes") && answer != QLatin1String("y")) {
        fail(QStringLiteral("\nUnable to add account: the SSL certificate is not trusted.\n"));
        return false;
    }
    if (!Ssl::addSslCertificateToStorage(certificate)) {
        fail(QStringLiteral("\nUnable to add account: something went wrong.\n"));
        return false;
    }
    qCInfo(lcAccount) << "A server certificate was added to the trusted store";
    Ssl::updateSslCertificateCache();
    m_trusted.insert(pem);
    return true;
}

void BaseAccount::updateAccount()
{
    if (!checkConfig())
        return;
    if (m_listContainers && (!listContainers() || !checkContainer()))
        return;
    auto* update = new UpdateAccount(m_id, m_type, QJsonObject::fromVariantMap(cloudConfig()),
                                     m_displayName, m_prefix, QString(), this);
    connect(update, &UpdateAccount::finished, this, &BaseAccount::onAddAccountResult);
    connect(update, &UpdateAccount::error, this, &BaseAccount::onErrorAddAccountResult);
    m_saveTimer.start();
    update->exec();
}

void BaseAccount::onAddAccountResult()
{
    if (sender())
        sender()->deleteLater();
    if (m_ended)
        return;
    m_ended = true;
    qCInfo(lcAccount).noquote() << "Account saved:" << m_saveTimer.elapsed() << "ms";
    emit finished(Show);
}

void BaseAccount::onErrorAddAccountResult(const QString& message)
{
    if (qobject_cast<UpdateAccount*>(sender()))
        sender()->deleteLater();
    if (m_ended)
        return;
    m_ended = true;
    emit error(message);
}

void BaseAccount::fail(const QString& message)
{
    onErrorAddAccountResult(message);
}

} // namespace Orv::CLI
