#pragma once

#include "CommandBase.h"

namespace Orv::CLI {

// "config export": has the service write its settings, storage accounts and
// plans to one configuration file. The service writes the file, since only
// it can open the secrets; their copies in the file are sealed under a
// passphrase the administrator gives here, or left out.
class CommandExportConfig : public CommandBase
{
    Q_OBJECT
public:
    explicit CommandExportConfig(QObject* parent = nullptr);

    int process(const QStringList& words) override;

    // The file a -p value names: a folder ("/" at the end) gets a new,
    // time-based file name; the extension is added when missing.
    static QString targetPath(const QString& path);
    static QString genConfigurationName();

private slots:
    void onExportConfigResult();

private:
    bool exportConfig(const QString& target);

    QCommandLineOption m_pathOption;
    QCommandLineOption m_removePasswordOption;
    QString m_target;
    bool m_removePassword = false;
};

} // namespace Orv::CLI
