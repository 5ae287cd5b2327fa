#include "CommandCheckUpdate.h"

#include "Console.h"
#include "SoftwareUpdater.h"

#include <QEventLoop>
#include <QTextStream>

namespace Orv::CLI {

namespace {

constexpr int Cells = 50;

} // namespace

CommandCheckUpdate::CommandCheckUpdate(QObject* parent)
    : CommandBase(QStringLiteral("check_update"),
                  QStringLiteral("Check update of the current license."), parent),
      m_updateOption(QStringList{QStringLiteral("update")},
                     QStringLiteral("Download and update version."))
{
    addOption(m_updateOption, true);
}

int CommandCheckUpdate::process(const QStringList& words)
{
    const int code = execNoArgs(words);
    if (code != Started)
        return code;
    check();
    return HelpShown;
}

QString CommandCheckUpdate::progressLine(int percent)
{
    const int filled = qBound(0, static_cast<int>(percent * Cells / 100.0 + 0.5), Cells);
    return QStringLiteral("[") + QString(filled, QLatin1Char('#')) +
           QString(Cells - filled, QLatin1Char(' ')) + QStringLiteral("] ") +
           QString::number(percent) + QStringLiteral(" %\r");
}

void CommandCheckUpdate::check()
{
    SoftwareUpdater updater;
    QEventLoop loop;
    connect(&updater, &SoftwareUpdater::checkFinished, &loop, &QEventLoop::quit);
    if (updater.startCheckNewVersion() < 1) {
        print(QStringLiteral("Check new version error. ") + updater.errorString());
        return;
    }
    loop.exec();
    if (updater.error() != SoftwareUpdater::NoError) {
        print(QStringLiteral("Check new version error. ") + updater.errorString());
        return;
    }
    if (!updater.isNewVersionAvailable()) {
        print(QStringLiteral("Current version is up to date."));
        return;
    }
    print(QStringLiteral("A newer version is available for update.\n"));
    if (!m_parser.isSet(m_updateOption) && !consent())
        return;
    download(updater);
}

bool CommandCheckUpdate::consent() const
{
    print(QStringLiteral("Download and install it [no]?\n"));
    QTextStream input(stdin);
    QString answer;
    input >> answer;
    answer = answer.toLower();
    return answer == QLatin1String("yes") || answer == QLatin1String("y");
}

void CommandCheckUpdate::download(SoftwareUpdater& updater)
{
    QEventLoop loop;
    connect(&updater, &SoftwareUpdater::updateProgress, &loop, &QEventLoop::quit);
    if (updater.startDownload() < 1) {
        print(QStringLiteral("Download error. ") + updater.errorString());
        return;
    }
    print(QStringLiteral("Download started.\n"));
    while (updater.error() == SoftwareUpdater::NoError && updater.progress() <= 100) {
        print(progressLine(updater.progress()));
        if (updater.progress() > 99) {
            print(QStringLiteral("\n"));
            break;
        }
        loop.exec();
    }
    if (updater.error() == SoftwareUpdater::NoError)
        print(QStringLiteral("New version successfully downloaded.\n") +
              QStringLiteral("Exit to install new version.\n") + QStringLiteral("Success.\n"));
    else
        print(QStringLiteral("Download error. ") + updater.errorString() + QStringLiteral("\n"));
}

} // namespace Orv::CLI
