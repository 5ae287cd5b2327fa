#include "CommandExportConfig.h"

#include "CommandChannel.h"
#include "Console.h"
#include "Passphrase.h"
#include "orvCommon/Communication/Format.h"

#include <QDateTime>
#include <QDir>

namespace Orv::CLI {

namespace {

namespace Format = Orv::Common::Communication::Commands::Format;
namespace Export = Format::Config::Export;
using Orv::Common::Communication::ICommand;

const QString kExtension = QStringLiteral(".orvconfiguration");

} // namespace

CommandExportConfig::CommandExportConfig(QObject* parent)
    : CommandBase(QStringLiteral("export"),
                  QStringLiteral("export backup configuration to the specific file"), parent),
      m_pathOption({QStringLiteral("p"), QStringLiteral("path")},
                   QStringLiteral("The target path for configuration file"),
                   QStringLiteral("path")),
      m_removePasswordOption(
          QStringLiteral("remove-password"),
          QStringLiteral("Specifies whether to remove passwords from exported configuration "
                         "(master password and encryption password). This option also disables "
                         "encryption for backup plans. Possible values: true, false(default)"),
          QStringLiteral("removePassword"))
{
    addOption(m_pathOption, true);
    addOption(m_removePasswordOption, false);
}

QString CommandExportConfig::genConfigurationName()
{
    return QStringLiteral("configuration-") +
           QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd_HH-mm-ss-zzz"));
}

QString CommandExportConfig::targetPath(const QString& path)
{
    QString target = path;
    if (target.endsWith(QLatin1Char('\\')))
        target = QDir::fromNativeSeparators(target);
    if (target.endsWith(QLatin1Char('/')))
        target += genConfigurationName();
    if (!target.endsWith(kExtension))
        target += kExtension;
    return target;
}

int CommandExportConfig::process(const QStringList& words)
{
    const int code = exec(words);
    if (code != Started)
        return code;
    QVariant path;
    QVariant removePassword(false);
    if (!setMandatoryOption(m_pathOption, path) ||
        !setSwitchModeOption(m_removePasswordOption, removePassword, false))
        return Unknown;
    m_removePassword = removePassword.toBool();
    // The service writes the file, from another working folder.
    m_target = QDir::current().absoluteFilePath(targetPath(path.toString()));
    return exportConfig(m_target) ? Started : HelpShown;
}

bool CommandExportConfig::exportConfig(const QString& target)
{
    try {
        QPointer<Orv::Common::Communication::Manager> manager =
            Orv::Common::Communication::Manager::instance();
        if (!manager)
            throw CommandChannel::kManagerMissing;
        const QString passphrase =
            m_removePassword
                ? QString()
                : Passphrase::read(
                      QStringLiteral("Passphrase to protect the secrets in the file: "), true);
        if (!m_removePassword && passphrase.isEmpty())
            throw QStringLiteral("A passphrase is needed to protect the secrets in the file (or "
                                 "export with --remove-password true)");
        ICommand* command = manager->commandFactory(QLatin1String(Export::Name));
        if (!command)
            throw QStringLiteral("Communication command does not registered");
        connect(command, &ICommand::complite, this, &CommandExportConfig::onExportConfigResult);
        connect(command, &ICommand::error, this, &CommandExportConfig::onExportConfigResult);
        connect(command, &ICommand::timeout, this, &CommandExportConfig::onExportConfigResult);
        QJsonObject params{
            {QLatin1String(Export::Request::Profile), QString::fromLocal8Bit(qgetenv("USER"))},
            {QLatin1String(Export::Request::Path), target},
            {QLatin1String(Export::Request::RemovePasswords), m_removePassword}};
        if (!m_removePassword)
            params.insert(QLatin1String(Export::Request::Passphrase), passphrase);
        command->setRequest(CommandChannel::namedRequest(params));
        command->exec();
        return true;
    } catch (const QString& message) {
        print(message);
        return false;
    }
}

void CommandExportConfig::onExportConfigResult()
{
    try {
        auto* command = qobject_cast<ICommand*>(sender());
        if (!command)
            throw QStringLiteral("Communication command do not registrate");
        command->deleteLater();
        const QJsonDocument reply = command->reply();
        if (command->isError() || !command->isComplite() || reply.isNull() || !reply.isObject())
            throw CommandChannel::kReplyFormatError;
        if (command->isReplyError())
            throw command->replyErrorString();
        const QString failure = reply.object()
                                    .value(QLatin1String(Format::Header::Data))
                                    .toObject()
                                    .value(QLatin1String(Export::Reply::Error))
                                    .toString();
        if (!failure.isEmpty())
            throw failure;
        print(QStringLiteral("Configuration successfully exported to %1 \n").arg(m_target));
        emit finished(Show);
    } catch (const QString& message) {
        emit error(message);
    }
}

} // namespace Orv::CLI
