#include "CommandSettingsView.h"

#include "Console.h"
#include "GroupGetSettings.h"

namespace Orv::CLI {

CommandSettingsView::CommandSettingsView(QObject* parent)
    : CommandBase(QStringLiteral("view"), QStringLiteral("view settings"), parent)
{
}

int CommandSettingsView::process(const QStringList& args)
{
    if (!args.isEmpty() && isHelpWord(args.first())) {
        helpMessageExt();
        return HelpShown;
    }
    if (!initProcess(args))
        return Unknown;
    if (settingsView())
        emit finished(DontShow);
    else
        emit error(QString());
    return Started;
}

bool CommandSettingsView::settingsView()
{
    try {
        print(tr("Setting for get/set commands:") + QStringLiteral("\n"));
        const GetSettingsGroup group;
        const QMap<QString, QSharedPointer<CommandBase>> settings = group.subItems();
        for (auto it = settings.begin(); it != settings.end(); ++it)
            print(it.key() + QStringLiteral(" - ") + it.value()->helpMessage() +
                  QStringLiteral("\n"));
    } catch (const QString& message) {
        print(message);
        return false;
    }
    return true;
}

} // namespace Orv::CLI
