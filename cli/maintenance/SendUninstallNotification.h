#pragma once

#include "CommandBase.h"

namespace Orv::CLI {

// "senduninstallnotification" (managed variant, hidden from the listings):
// has the service tell the managed service that this client is being
// uninstalled. The uninstaller runs it and goes on whatever the answer, so
// the answer is not looked at.
class SendUninstallNotification : public CommandBase
{
    Q_OBJECT
public:
    explicit SendUninstallNotification(QObject* parent = nullptr);
    int process(const QStringList& words) override;
};

} // namespace Orv::CLI
