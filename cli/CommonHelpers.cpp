#include "CommonHelpers.h"

#include "CommandChannel.h"
#include "Console.h"
#include "kelNetwork/ComputerName.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Installation.h"
#include "orvCommon/TarnSettings.h"

#include <QJsonArray>

namespace Orv::CLI {

namespace Format = Orv::Common::Communication::Commands::Format;

bool CommonHelpers::GetBoolFromString(const QString& text, bool defaultValue, bool* ok,
                                      const QString& optionName)
{
    if (text.isEmpty())
        return defaultValue;
    const QString word = text.toLower();
    if (word == QLatin1String("yes") || word == QLatin1String("true"))
        return true;
    if (word == QLatin1String("no") || word == QLatin1String("false"))
        return false;
    const QString lead = optionName.isEmpty()
                             ? QStringLiteral("Wrong yes/no value specified: ")
                             : QStringLiteral("Wrong %1 value specified: ").arg(optionName);
    print(lead + text + QStringLiteral("\n"));
    if (ok)
        *ok = false;
    return defaultValue;
}

Orv::Info::PlanObject CommonHelpers::searchPlan(const QString& idOrName)
{
    const QJsonObject params{{QLatin1String(Format::Plan::GetList::Request::Profile),
                              QString::fromLocal8Bit(qgetenv("USER"))}};
    const QJsonObject data =
        CommandChannel::blockingExchange(QLatin1String(Format::Plan::GetList::Name), params);
    const QJsonArray plans = data.value(QLatin1String(Format::Plan::GetList::Reply::Key)).toArray();
    const QUuid wantedId(idOrName);
    for (const QJsonValue& value : plans) {
        const Orv::Info::PlanObject plan = Orv::Info::PlanObject::fromRow(value.toObject());
        const bool idMatches = !plan.id().isNull() && plan.id() == wantedId;
        if (idMatches || plan.displayName() == idOrName)
            return plan;
    }
    return {};
}

QString defaultPrefix()
{
    QString prefix = Kel::Network::ComputerName::name();
    if (SHARED::defines::common::is_tarn()) {
        const Orv::Defines::Tarn::TarnSettings settings(Orv::Defines::AppPath::toV2());
        const QString assigned = settings.get().prefix;
        if (!assigned.isEmpty())
            prefix = assigned;
    }
    return prefix;
}

} // namespace Orv::CLI
