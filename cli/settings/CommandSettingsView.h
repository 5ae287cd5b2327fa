#pragma once

#include "CommandBase.h"

namespace Orv::CLI {

// "view": lists the settings that "config get" and "config set" accept, by
// name, without their values. No group offers it yet.
class CommandSettingsView : public CommandBase
{
    Q_OBJECT
public:
    explicit CommandSettingsView(QObject* parent = nullptr);

    int process(const QStringList& args) override;
    bool settingsView();
};

} // namespace Orv::CLI
