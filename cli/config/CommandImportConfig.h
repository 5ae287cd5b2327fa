#pragma once

#include "CommandBase.h"

#include <QJsonObject>

namespace Orv::CLI {

// "config import": has the service read a configuration file made by
// "config export" and prints what it brought in. The passphrase the file was
// exported with is asked for here and opened by the service.
class CommandImportConfig : public CommandBase
{
    Q_OBJECT
public:
    explicit CommandImportConfig(QObject* parent = nullptr);

    int process(const QStringList& words) override;

    // The counts of an import reply's data, one line each when not zero.
    static QString printResult(const QJsonObject& data);

private slots:
    void onImportConfigResult();

private:
    bool importConfig();

    QCommandLineOption m_pathOption;
    QCommandLineOption m_replacePrefixOption;
    QString m_path;
    bool m_replacePrefix = false;
};

} // namespace Orv::CLI
