#pragma once
// Plans driven through the real orvd's channel, as the command line drives
// them: saved, started, stopped and followed in the plan list.

#include "AccountRuns.h"
#include "ServiceRawClient.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "orvInfo/Plan/Base.h"
#include "orvInfo/PlanObject.h"
#include "support/Sandbox.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QJsonArray>
#include <QThread>

namespace OrvTest::Plans {

namespace Format = Orv::Common::Communication::Commands::Format;
namespace V2Plan = Orv::Common::Communication::V2::Plan;

// A folder account named name in the sandbox's folder "store"; its id.
inline QUuid addFolderAccount(Sandbox& sandbox, const QString& name = QStringLiteral("Desk"))
{
    QDir().mkpath(sandbox.path(QStringLiteral("store")));
    Accounts::expectRun(
        Accounts::run(sandbox, "account add filesystem -p desk -f",
                      {sandbox.path(QStringLiteral("store")), QStringLiteral("--name"), name}),
        Accounts::kSuccess);
    return QUuid(Accounts::record(sandbox, name).value(QStringLiteral("ID")).toString());
}

// Saves the plan; the service's error string, empty on success.
inline QString savePlan(Sandbox& sandbox, const Orv::Info::Plan::Base& plan)
{
    ServiceRawClient client(sandbox.socketPath());
    const auto reply =
        client.call(QLatin1String(Format::Plan::CommonEdit::Name),
                    {{QLatin1String(Format::Plan::CommonEdit::Request::PlanXml),
                      plan.toXml(Orv::Info::Plan::Base::SecretForm::Plain)},
                     {QLatin1String(Format::Plan::CommonEdit::Request::ID), plan.id().toString()}});
    if (!reply)
        return QStringLiteral("no reply");
    return reply->value(QLatin1String(Format::Header::Status::ErrorString)).toString();
}

// A typed request's reply; its error message, empty when it was done.
inline std::optional<QJsonObject> callTyped(Sandbox& sandbox, const QUuid& command,
                                            const QJsonObject& request)
{
    ServiceRawClient client(sandbox.socketPath());
    return client.callTyped(command, request);
}

inline QString errorOf(const std::optional<QJsonObject>& reply)
{
    if (!reply)
        return QStringLiteral("no reply");
    if (reply->value(QLatin1String(Format::Header::Status::Key)).toInt() == 2)
        return {};
    return reply->value(QLatin1String(Format::Header::ErrorMessage)).toString();
}

inline QString startPlan(Sandbox& sandbox, const QUuid& plan, bool full = false)
{
    return errorOf(callTyped(sandbox, V2Plan::StartPlan::CommandId,
                             {{"planId", plan.toString(QUuid::WithoutBraces)}, {"isFull", full}}));
}

inline QString stopPlan(Sandbox& sandbox, const QUuid& plan)
{
    return errorOf(callTyped(sandbox, V2Plan::StopPlan::CommandId,
                             {{"planId", plan.toString(QUuid::WithoutBraces)}}));
}

// The plan's row of the plan list; a null object when it is not listed.
inline Orv::Info::PlanObject planRow(Sandbox& sandbox, const QUuid& plan)
{
    ServiceRawClient client(sandbox.socketPath());
    const auto reply = client.call(QLatin1String(Format::Plan::GetList::Name));
    const QJsonArray rows = reply ? reply->value(QLatin1String(Format::Header::Data))
                                        .toObject()
                                        .value(QLatin1String(Format::Plan::GetList::Reply::Key))
                                        .toArray()
                                  : QJsonArray();
    for (const QJsonValue& value : rows) {
        const auto object = Orv::Info::PlanObject::fromRow(value.toObject());
        if (object.id() == plan)
            return object;
    }
    return {};
}

// Follows the plan list until the plan is idle again.
inline Orv::Info::PlanObject waitIdle(Sandbox& sandbox, const QUuid& plan, int limitMs = 60000)
{
    const QDeadlineTimer deadline(limitMs);
    for (;;) {
        const Orv::Info::PlanObject now = planRow(sandbox, plan);
        if (!now.status().isRunning() || deadline.hasExpired())
            return now;
        QThread::msleep(50);
    }
}

} // namespace OrvTest::Plans
