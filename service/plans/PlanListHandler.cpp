#include "service/plans/PlanListHandler.h"

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "orvInfo/PlanObject.h"
#include "service/channel/HandlerRegistry.h"
#include "service/jobs/JobRunner.h"
#include "service/jobs/RunHistory.h"
#include "service/plans/PlanCatalog.h"

namespace Orv::Service {

namespace GetList = Orv::Common::Communication::Commands::Format::Plan::GetList;
namespace Info = Orv::Common::Communication::Commands::Format::Plan::DataType::Info;
namespace Damaged = Orv::Common::Communication::Commands::Format::Storage::GetConnection::Reply;
using GetPlanList = Orv::Common::Communication::V2::Plan::GetPlanList;
using Orv::Info::PlanObject;

void PlanListHandler::install(HandlerRegistry& registry)
{
    // The profile a client names is not used: an instance has one set of plans.
    registry.addNamed(QLatin1String(GetList::Name),
                      [this](const QJsonObject&, const RequestContext&) {
                          refresh();
                          return NamedOutcome::success(m_namedData);
                      });
    registry.addTyped<GetPlanList>(
        [this](const GetPlanList::Request& request, const RequestContext&) {
            refresh();
            if (!request.planId().isNull())
                return TypedOutcome::done(onePlan(request.planId(), request.withoutPlanXml()));
            return TypedOutcome::done(request.withoutPlanXml() ? m_slimResponse : m_typedResponse);
        });
}

QJsonArray PlanListHandler::rows()
{
    const QJsonArray files = m_catalog.rows();
    QJsonArray rows;
    for (const QJsonValue& value : files) {
        QJsonObject row = value.toObject();
        const QUuid id(row.value(QLatin1String(Info::ID)).toString());
        PlanObject plan = PlanObject::fromRow(row);
        plan.setStatus(m_runner.status(id));
        if (m_scheduleText)
            plan.setSchedule(m_scheduleText(id));
        if (const std::optional<RunRecord> last = m_history.last(id)) {
            plan.setLastRunTime(last->started);
            if (last->finished.isValid()) {
                plan.setLastRunStatus(Orv::Info::Plan::PlanResult(last->result));
                plan.setLastRunMessage(last->message);
                plan.setLastDuration(last->durationMs());
                plan.setLastFileCount(last->files);
                plan.setLastFileSize(last->bytes);
                plan.setLastUploadedCount(last->uploaded);
                plan.setLastFailedCount(last->failed);
            }
        }
        plan.setLastProgressSteps(m_runner.progress(id));
        rows.append(plan.toRow());
    }
    return rows;
}

void PlanListHandler::refresh()
{
    // Reading the folder first brings its generation up to date.
    m_catalog.rows();
    const Stamp stamp{m_catalog.generation(), m_history.generation(), m_runner.generation()};
    // A running plan's progress moves without any of the stamps moving.
    if (stamp == m_stamp && !m_runner.anyRunning())
        return;
    m_stamp = stamp;
    m_rows = rows();
    const QJsonArray& list = m_rows;
    QJsonObject named{{QLatin1String(GetList::Reply::Key), list}};
    const QMap<QString, QString> damaged = m_catalog.damaged();
    QJsonArray files;
    for (auto it = damaged.cbegin(); it != damaged.cend(); ++it)
        files.append(QJsonObject{{QLatin1String(Damaged::DamagedFile), it.key()},
                                 {QLatin1String(Damaged::DamagedReason), it.value()}});
    if (!files.isEmpty())
        named.insert(QLatin1String(Damaged::Damaged), files);
    m_namedData = EncodedJson(named);
    GetPlanList::Response response;
    response.setDamaged(files);
    response.setPlanList(list);
    m_typedResponse = EncodedJson(response.toJson());
    QJsonArray slim;
    for (const QJsonValue& row : list) {
        QJsonObject object = row.toObject();
        object.remove(QLatin1String(Info::PlanXml));
        slim.append(object);
    }
    response.setPlanList(slim);
    m_slimResponse = EncodedJson(response.toJson());
}

EncodedJson PlanListHandler::onePlan(const QUuid& id, bool withoutPlanXml) const
{
    QJsonArray found;
    for (const QJsonValue& row : m_rows) {
        QJsonObject object = row.toObject();
        if (QUuid(object.value(QLatin1String(Info::ID)).toString()) != id)
            continue;
        if (withoutPlanXml)
            object.remove(QLatin1String(Info::PlanXml));
        found.append(object);
    }
    GetPlanList::Response response;
    response.setPlanList(found);
    return EncodedJson(response.toJson());
}

} // namespace Orv::Service
