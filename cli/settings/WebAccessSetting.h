#pragma once

#include "BaseSetting.h"

namespace Orv::CLI {

// "webaccess": the client's local web interface, over http and https, each on
// its own port.
class WebAccessSetting : public BaseSetting
{
    Q_OBJECT
public:
    explicit WebAccessSetting(SettingCommandType type, QObject* parent = nullptr);

    int process(const QStringList& args) override;

protected:
    bool readOptions() override;
    bool setOption() override;
    bool getOption() override;

private:
    struct PortChoice
    {
        bool given = false;
        int port = 0;
    };

    // Checks the switch values and the ports; prints the first problem.
    bool validate(PortChoice* http, PortChoice* https);
    bool write(const PortChoice& http, const PortChoice& https);

    QCommandLineOption m_httpOption;
    QCommandLineOption m_httpPortOption;
    QCommandLineOption m_httpsOption;
    QCommandLineOption m_httpsPortOption;
    QVariant m_http;
    QVariant m_httpPort;
    QVariant m_https;
    QVariant m_httpsPort;
};

} // namespace Orv::CLI
