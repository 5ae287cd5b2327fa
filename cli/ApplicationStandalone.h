#pragma once

#include "Application.h"

namespace Orv::CLI {

class ApplicationStandalone : public Application
{
    Q_OBJECT
public:
    ApplicationStandalone(const QStringList& arguments, QObject* parent = nullptr);

public slots:
    void onStarted() override;
};

} // namespace Orv::CLI
