#pragma once

#include "ApplicationStandalone.h"
#include "orvCommon/Communication/Manager.h"
#include "service/channel/Dispatcher.h"
#include "service/channel/HandlerRegistry.h"
#include "service/channel/SocketServer.h"
#include "unit/StdoutCapture.h"
#include "unit/TemporaryInstance.h"

#include <QEventLoop>
#include <QLoggingCategory>
#include <QTimer>
#include <gtest/gtest.h>

inline const QByteArray kBanner = "Orv Backup Command Line Interface started\n\n";

// A service made up in the test process: the fixture's handlers answer on a
// socket of a fresh instance, and orvV2 runs in this process against it. A
// test registers its handlers in its own SetUp, after this one's.
class InProcessService : public ::testing::Test
{
protected:
    struct Outcome
    {
        int result;
        QByteArray printed;
    };

    void SetUp() override
    {
        QLoggingCategory::setFilterRules(QStringLiteral("orvd.*.debug=false"));
        qputenv("ORV_RETRY_DELAY_MS", "20");
        dispatcher.setReady(true);
        QString error;
        ASSERT_TRUE(server.listen(instance.path(QStringLiteral("orvd.sock")), &error));
        Orv::Common::Communication::Manager::instance()->setServerName(
            instance.path(QStringLiteral("orvd.sock")));
    }
    void TearDown() override
    {
        qunsetenv("ORV_RETRY_DELAY_MS");
        server.close();
    }

    // Runs "orvV2 <words>" to its end.
    Outcome run(const QStringList& words)
    {
        StdoutCapture capture;
        Orv::CLI::ApplicationStandalone application(QStringList{QStringLiteral("orvV2")} + words);
        application.init();
        QEventLoop loop;
        QObject::connect(&application, &Orv::CLI::Application::finished, &loop, &QEventLoop::quit,
                         Qt::QueuedConnection);
        QTimer::singleShot(20000, &loop, &QEventLoop::quit);
        application.start();
        loop.exec();
        return {application.result(), capture.take()};
    }

    TemporaryInstance instance;
    Orv::Service::HandlerRegistry registry;
    Orv::Service::Dispatcher dispatcher{registry};
    Orv::Service::SocketServer server{dispatcher};
};
