#include "WebAccessSetting.h"

#include "Console.h"
#include "kelNetwork/LocalPort.h"
#include "orvCommon/DefaultSettings.h"

namespace Orv::CLI {

namespace {

using Kel::Network::LocalPort;

// The two connections word their port messages differently.
struct PortMessages
{
    const char* invalid;
    const char* inUse;
};

constexpr PortMessages kHttpMessages{QT_TR_NOOP("Port %1 is invalid"),
                                     QT_TR_NOOP("Port %1 is already in use")};
constexpr PortMessages kHttpsMessages{QT_TR_NOOP("Port number %1 is invalid"),
                                      QT_TR_NOOP("Port number %1 is already in use")};

void printConnection(const QString& heading, const QString& port, const QString& state)
{
    print(heading + QStringLiteral("localhost:") + port + QStringLiteral("\n"));
    print(QStringLiteral("        port:    ") + port + QStringLiteral("\n"));
    print(QStringLiteral("        state:   ") + state + QStringLiteral("\n"));
}

} // namespace

WebAccessSetting::WebAccessSetting(SettingCommandType type, QObject* parent)
    : BaseSetting(QStringLiteral("webaccess"), QStringLiteral("Web Interface settings"), type,
                  parent),
      m_httpOption(QStringLiteral("http"), QStringLiteral("Use http"),
                   QStringLiteral("true/false")),
      m_httpPortOption(QStringLiteral("http-port"), QStringLiteral("Http port"),
                       QStringLiteral("httpPort")),
      m_httpsOption(QStringLiteral("https"), QStringLiteral("Use https"),
                    QStringLiteral("true/false")),
      m_httpsPortOption(QStringLiteral("https-port"), QStringLiteral("Https port"),
                        QStringLiteral("httpsPort"))
{
    registerOption(m_httpOption);
    registerOption(m_httpPortOption);
    registerOption(m_httpsOption);
    registerOption(m_httpsPortOption);
}

int WebAccessSetting::process(const QStringList& args)
{
    return run(args);
}

bool WebAccessSetting::readOptions()
{
    return setOptionalOption(m_httpOption, m_http) &&
           setOptionalOption(m_httpPortOption, m_httpPort) &&
           setOptionalOption(m_httpsOption, m_https) &&
           setOptionalOption(m_httpsPortOption, m_httpsPort);
}

bool WebAccessSetting::getOption()
{
    DefaultSettings* store = DefaultSettings::instance();
    print(tr("Web Interface:\n"));
    printConnection(tr("    http connection: "), store->getWebAccessHttpPort(),
                    stateName(store->getWebAccessUseHttp() == QLatin1String("true")));
    printConnection(tr("    https connection: "), store->getWebAccessHttpsPort(),
                    stateName(store->getWebAccessUseHttps() == QLatin1String("true")));
    return true;
}

bool WebAccessSetting::validate(PortChoice* http, PortChoice* https)
{
    if (given(m_httpOption) && !SwitchModeValue.contains(m_http.toString())) {
        print(tr("-http parameter is invalid"));
        return false;
    }
    if (given(m_httpsOption) && !SwitchModeValue.contains(m_https.toString())) {
        print(tr("-https parameter is invalid"));
        return false;
    }

    DefaultSettings* store = DefaultSettings::instance();
    const int storedHttp = store->getWebAccessHttpPort().toInt();
    const int storedHttps = store->getWebAccessHttpsPort().toInt();
    struct Candidate
    {
        const QCommandLineOption& option;
        const QVariant& text;
        PortChoice* choice;
        int stored;
        PortMessages messages;
    };
    const Candidate candidates[] = {
        {m_httpPortOption, m_httpPort, http, storedHttp, kHttpMessages},
        {m_httpsPortOption, m_httpsPort, https, storedHttps, kHttpsMessages}};
    for (const Candidate& candidate : candidates) {
        if (!given(candidate.option))
            continue;
        bool ok = false;
        candidate.choice->given = true;
        candidate.choice->port = candidate.text.toString().toInt(&ok);
        if (!ok || LocalPort::check(candidate.choice->port) == LocalPort::State::Invalid) {
            print(tr(candidate.messages.invalid).arg(candidate.text.toString()));
            return false;
        }
    }

    if (http->given && https->given && http->port == https->port) {
        print(tr("The ports you specify are the same"));
        return false;
    }
    if (http->given && !https->given && http->port == storedHttps) {
        print(tr("The port you specify is the same as the https connection port"));
        return false;
    }
    if (https->given && !http->given && https->port == storedHttp) {
        print(tr("The port you specify is the same as the http connection port"));
        return false;
    }

    for (const Candidate& candidate : candidates) {
        // The port already chosen may be held by the interface itself.
        if (!candidate.choice->given || candidate.choice->port == candidate.stored)
            continue;
        const LocalPort::State state = LocalPort::check(candidate.choice->port);
        if (state == LocalPort::State::Free)
            continue;
        const char* message = state == LocalPort::State::InUse ? candidate.messages.inUse
                                                               : candidate.messages.invalid;
        print(tr(message).arg(candidate.choice->port));
        return false;
    }
    return true;
}

bool WebAccessSetting::write(const PortChoice& http, const PortChoice& https)
{
    DefaultSettings* store = DefaultSettings::instance();
    bool ok = true;
    if (given(m_httpOption))
        ok = store->setWebAccessUseHttp(m_http.toString()) && ok;
    if (http.given)
        ok = store->setWebAccessHttpPort(QString::number(http.port)) && ok;
    if (given(m_httpsOption))
        ok = store->setWebAccessUseHttps(m_https.toString()) && ok;
    if (https.given)
        ok = store->setWebAccessHttpsPort(QString::number(https.port)) && ok;
    return ok;
}

bool WebAccessSetting::setOption()
{
    PortChoice http;
    PortChoice https;
    if (!validate(&http, &https))
        return outputResult(false);
    return outputResult(write(http, https));
}

} // namespace Orv::CLI
