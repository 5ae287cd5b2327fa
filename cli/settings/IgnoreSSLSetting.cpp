#include "IgnoreSSLSetting.h"

#include "Console.h"
#include "orvCommon/DefaultSettings.h"

namespace Orv::CLI {

namespace {

const QString kYes = QStringLiteral("yes");
const QString kNo = QStringLiteral("no");

} // namespace

IgnoreSSLSetting::IgnoreSSLSetting(SettingCommandType type, QObject* parent)
    : BaseValueSetting(QStringLiteral("ignoressl"), QStringLiteral("Ignore SSL certificates"), type,
                       QStringLiteral("Value"), QStringLiteral("yes | no"), parent)
{
}

QString IgnoreSSLSetting::usage() const
{
    return tr("set ignoressl -v <yes|no>\n\t-v <yes|no>: To ignore SSL certificates type \"yes\", "
              "else \"no\"\n");
}

void IgnoreSSLSetting::printState(bool ignore)
{
    print(tr("Ignore SSl certificates: ") + (ignore ? kYes : kNo) + QStringLiteral("\n"));
}

bool IgnoreSSLSetting::getOption()
{
    printState(DefaultSettings::instance()->getIgnoreSSL() == QLatin1String("true"));
    return true;
}

bool IgnoreSSLSetting::setOption()
{
    if (!hasValue())
        return false;
    if (value() != kYes && value() != kNo) {
        print(tr("Wrong value specified\n"));
        return false;
    }
    const bool ignore = value() == kYes;
    if (!outputResult(DefaultSettings::instance()->setIgnoreSSL(SwitchModeName.value(ignore))))
        return false;
    printState(ignore);
    return true;
}

} // namespace Orv::CLI
