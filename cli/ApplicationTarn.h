#pragma once

#include "Application.h"

namespace Orv::CLI {

class ApplicationTarn : public Application
{
    Q_OBJECT
public:
    ApplicationTarn(const QStringList& arguments, QObject* parent = nullptr);

public slots:
    void onStarted() override;
};

} // namespace Orv::CLI
