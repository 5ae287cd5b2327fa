#include "CommandSaveLog.h"

#include "Console.h"
#include "Feedback.h"

namespace Orv::CLI {

CommandSaveLog::CommandSaveLog(QObject* parent)
    : CommandBase(QStringLiteral("save-log"), QStringLiteral("save error report"), parent),
      m_pathOption(QStringList{QStringLiteral("path")}, QStringLiteral("Path to save log"),
                   QStringLiteral("path"))
{
    addOption(m_pathOption, true);
}

int CommandSaveLog::process(const QStringList& words)
{
    const int code = exec(words);
    if (code != Started)
        return code;
    if (!setMandatoryOption(m_pathOption, m_path))
        return Unknown;
    bool saved = false;
    try {
        QString path = m_path.toString();
        saved = Feedback::saveLog(path);
    } catch (const QString& message) {
        print(message + QStringLiteral("\n"));
    }
    if (saved)
        emit finished(Show);
    else
        emit error(QString());
    return Started;
}

} // namespace Orv::CLI
