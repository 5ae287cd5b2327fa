#include "CommandImportConfig.h"

#include "CommandChannel.h"
#include "Console.h"
#include "Passphrase.h"
#include "orvCommon/Communication/Format.h"

#include <QDir>
#include <QFileInfo>

namespace Orv::CLI {

namespace {

namespace Format = Orv::Common::Communication::Commands::Format;
namespace Import = Format::Config::Import;
using Orv::Common::Communication::ICommand;

} // namespace

CommandImportConfig::CommandImportConfig(QObject* parent)
    : CommandBase(QStringLiteral("import"),
                  QStringLiteral("import backup configuration from the file"), parent),
      m_pathOption({QStringLiteral("p"), QStringLiteral("path")},
                   QStringLiteral("Specify path to configuration archive file"),
                   QStringLiteral("path")),
      m_replacePrefixOption(QStringLiteral("replace-prefix"),
                            QStringLiteral("Specify to replace backup prefix in the imported "
                                           "accounts with current machine name"),
                            QStringLiteral("replacePrefix"))
{
    addOption(m_pathOption, true);
    addOption(m_replacePrefixOption, true);
}

int CommandImportConfig::process(const QStringList& words)
{
    const int code = exec(words);
    if (code != Started)
        return code;
    QVariant path;
    QVariant replacePrefix(false);
    if (!setMandatoryOption(m_pathOption, path) ||
        !setSwitchModeOption(m_replacePrefixOption, replacePrefix, false))
        return Unknown;
    m_path = path.toString();
    m_replacePrefix = replacePrefix.toBool();
    if (!QFileInfo(m_path).isFile()) {
        print(QStringLiteral("file does not exist %1").arg(m_path));
        return HelpShown;
    }
    return importConfig() ? Started : HelpShown;
}

bool CommandImportConfig::importConfig()
{
    try {
        QPointer<Orv::Common::Communication::Manager> manager =
            Orv::Common::Communication::Manager::instance();
        if (!manager)
            throw CommandChannel::kManagerMissing;
        const QString passphrase = Passphrase::read(
            QStringLiteral("Passphrase of the secrets in the file (empty when it has none): "),
            false);
        ICommand* command = manager->commandFactory(QLatin1String(Import::Name));
        if (!command)
            throw QStringLiteral("Communication command does not registered");
        connect(command, &ICommand::complite, this, &CommandImportConfig::onImportConfigResult);
        connect(command, &ICommand::error, this, &CommandImportConfig::onImportConfigResult);
        connect(command, &ICommand::timeout, this, &CommandImportConfig::onImportConfigResult);
        const QJsonObject params{
            {QLatin1String(Import::Request::Profile), QString::fromLocal8Bit(qgetenv("USER"))},
            // The service reads the file from another working folder.
            {QLatin1String(Import::Request::FilePath), QDir::current().absoluteFilePath(m_path)},
            {QLatin1String(Import::Request::ReplaceBackupPrefix), m_replacePrefix},
            {QLatin1String(Import::Request::Passphrase), passphrase}};
        command->setRequest(CommandChannel::namedRequest(params));
        command->exec();
        return true;
    } catch (const QString& message) {
        print(message);
        return false;
    }
}

QString CommandImportConfig::printResult(const QJsonObject& data)
{
    const auto count = [&data](const char* key) { return data.value(QLatin1String(key)).toInt(); };
    QString text;
    if (count(Import::Reply::SettingsSize) > 0)
        text += QStringLiteral("Default settings imported successfully\n");
    const int accounts = count(Import::Reply::StorageSize);
    if (accounts > 0)
        text += QStringLiteral("Cloud accounts imported: %1 from %2\n")
                    .arg(accounts - count(Import::Reply::StorageFailed))
                    .arg(accounts);
    const int plans = count(Import::Reply::PlanSize);
    if (plans > 0)
        text += QStringLiteral("Plans imported: %1 from %2\n")
                    .arg(plans - count(Import::Reply::PlanFailed))
                    .arg(plans);
    return text;
}

void CommandImportConfig::onImportConfigResult()
{
    try {
        auto* command = qobject_cast<ICommand*>(sender());
        if (!command)
            throw QStringLiteral("Communication command does not exist");
        command->deleteLater();
        const QJsonDocument reply = command->reply();
        if (command->isError() || !command->isComplite() || reply.isNull() || !reply.isObject())
            throw CommandChannel::kReplyFormatError;
        if (command->isReplyError())
            throw command->replyErrorString();
        const QJsonObject data =
            reply.object().value(QLatin1String(Format::Header::Data)).toObject();
        const QString message = data.value(QLatin1String(Import::Reply::Message)).toString();
        switch (data.value(QLatin1String(Import::Reply::Result)).toInt(-1)) {
        case 0:
            throw message;
        case 1:
            print(printResult(data));
            throw message;
        case 2:
            print(printResult(data));
            print(QStringLiteral("Configuration successfully imported from %1\n").arg(m_path));
            break;
        default:
            break;
        }
        emit finished(Show);
    } catch (const QString& message) {
        emit error(message);
    }
}

} // namespace Orv::CLI
