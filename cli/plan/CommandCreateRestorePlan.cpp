#include "CommandCreateRestorePlan.h"

#include "CommandChannel.h"
#include "Console.h"
#include "LoadPlanObject.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "orvCommon/Communication/V2/RepositoryCommands.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QLocale>
#include <algorithm>

namespace Orv::CLI {

using namespace Orv::Info::Plan;
namespace Repo = Orv::Common::Communication::V2::Repository;
namespace CommonEdit = Orv::Common::Communication::Commands::Format::Plan::CommonEdit;
using Orv::Info::Repository::Bunch;
using Orv::Info::Repository::Generation;
using Orv::Info::Repository::RestorePoint;
using StartPlan = Orv::Common::Communication::V2::Plan::StartPlan;

namespace {

const QString kWrongForm = QStringLiteral("Internal error: invalid command response format");
const QString kNoBunch = QStringLiteral("Bunch with specified id(or name) not found.\n");
const QString kNoPoints = QStringLiteral("Cannot get restore points for bunch.\n");
const QString kNoGenerations = QStringLiteral("Cannot get generations for bunch.\n");
const QString kNothing = QStringLiteral("Nothing to restore.\n");

bool isAmazonS3(Kel::Cloud::Type type)
{
    using Kel::Cloud::Type;
    return type == Type::AmazonS3 || type == Type::AmazonS3Chinese || type == Type::AmazonS3UB;
}

template <typename T> QList<T> objects(const QJsonArray& items)
{
    QList<T> list;
    for (const QJsonValue& value : items) {
        T object;
        if (!value.isObject() || !object.fromJson(value.toObject()))
            throw kWrongForm;
        list.append(object);
    }
    return list;
}

// The items of the repository reply that sender() carries; false while the
// service asked to try later (resend is then scheduled). failure replaces
// the service's own reason when it is given.
bool repositoryItems(QObject* receiver, QObject* sender, const std::function<void()>& resend,
                     const QString& failure, QJsonArray* items)
{
    QScopedPointer<CommandChannel::TypedCommand, QScopedPointerDeleteLater> command(
        qobject_cast<CommandChannel::TypedCommand*>(sender));
    QSharedPointer<Repo::ListResponse> response;
    try {
        response =
            CommandChannel::typedResponse<Repo::ListResponse>(command.data(), receiver, resend);
    } catch (const QString& message) {
        if (message == CommandChannel::kInvalidResponse)
            throw kWrongForm;
        throw failure.isEmpty() ? message : failure;
    }
    if (!response)
        return false;
    *items = response->items();
    return true;
}

// Start times are compared to the minute, as the point in time is given.
QDateTime toMinute(const QDateTime& time)
{
    const QDateTime local = time.toLocalTime();
    return QDateTime(local.date(), QTime(local.time().hour(), local.time().minute()));
}

} // namespace

CommandCreateRestorePlan::CommandCreateRestorePlan(QObject* parent)
    : CommandCreateRestorePlan(QStringLiteral("create_restore"),
                               QStringLiteral("create a new plan to restore files from storage"),
                               Create, parent)
{
}

CommandCreateRestorePlan::CommandCreateRestorePlan(const QString& name, const QString& description,
                                                   ActionType action, QObject* parent)
    : CommandPlanBase(name, description, action, Restore, parent),
      m_pathOption(QStringLiteral("path"),
                   QStringLiteral("Adds a file or directory to restore, by its path as it was "
                                  "backed up; repeat the option for each path. Default: "
                                  "everything the restore point holds"),
                   QStringLiteral("path"))
{
    addOption(m_pathOption, true);
    connect(this, &CommandPlanBase::connectionInfoLoaded, this,
            &CommandCreateRestorePlan::onAccountResolved);
}

QDateTime CommandCreateRestorePlan::parsePointInTime(const QString& text)
{
    const QDateTime plain = QDateTime::fromString(text, QStringLiteral("dd.MM.yyyy hh:mm"));
    if (plain.isValid())
        return plain;
    QDateTime local = QLocale().toDateTime(text, QLocale::ShortFormat);
    if (!local.isValid())
        return {};
    local.setTimeSpec(Qt::LocalTime);
    // Two-digit years read as the 1900s.
    return local.date().year() < 2000 ? local.addYears(100) : local;
}

int CommandCreateRestorePlan::process(const QStringList& words)
{
    const int result = CommandPlanBase::process(words);
    if (result != Valid)
        return result;
    // A typo would otherwise leave the default in place without a word.
    for (const QCommandLineOption* item : {&m_overwriteFilesOption, &m_restoreNewFilesOption})
        if (given(*item) && !setSwitchModeOption(*item, false))
            return WrongValue;
    if (actionType() == Edit)
        return Valid;
    if (!given(m_confirmOption)) {
        emit error(QStringLiteral("Please confirm create restore plan.\n"));
        return Started;
    }
    createRestorePlan();
    return Started;
}

void CommandCreateRestorePlan::createRestorePlan()
{
    m_plan = RestoreFile();
    loadConnectionInfo();
}

void CommandCreateRestorePlan::onAccountResolved()
{
    accountResolved();
}

void CommandCreateRestorePlan::accountResolved()
{
    if (getStorageId().isNull()) {
        emit error(QStringLiteral("Invalid account Id or account Name.\n"));
        return;
    }
    m_accountId = getStorageId();
    loadRestoreSource();
}

bool CommandCreateRestorePlan::restoresFromBunch() const
{
    return given(m_bunchOption);
}

QString CommandCreateRestorePlan::bunchKey() const
{
    return valueOf(m_bunchOption);
}

void CommandCreateRestorePlan::loadRestoreSource()
{
    m_pointChosen = false;
    m_pathsToCheck.clear();
    if (!restoresFromBunch()) {
        completePlan();
        return;
    }
    m_bunchKey = bunchKey();
    loadBunchFromConnection(m_accountId);
}

// ---------------------------------------------------------------------------
// The bunch, its restore points and generations, and the paths of a point

void CommandCreateRestorePlan::loadBunchFromConnection(const QUuid& accountId)
{
    try {
        auto request = QSharedPointer<Repo::RepositoryRequest>::create();
        request->setConnectionId(accountId);
        CommandChannel::sendTyped(Repo::GetBunchList::CommandId, request, this,
                                  &CommandCreateRestorePlan::onBunchListResult);
    } catch (const QString& message) {
        emit error(message);
    }
}

void CommandCreateRestorePlan::onBunchListResult()
{
    try {
        QJsonArray items;
        if (!repositoryItems(
                this, sender(), [this] { loadBunchFromConnection(m_accountId); }, QString(),
                &items))
            return;
        // A bunch is its backup plan's id, which may be given with braces.
        const QUuid asId(m_bunchKey);
        const QList<Bunch> bunches = objects<Bunch>(items);
        const auto found = std::find_if(bunches.begin(), bunches.end(), [&](const Bunch& bunch) {
            if (m_bunchKey.isEmpty())
                return false;
            return bunch.id() == m_bunchKey || bunch.displayName() == m_bunchKey ||
                   (!asId.isNull() && QUuid(bunch.id()) == asId);
        });
        if (found == bunches.end())
            throw kNoBunch;
        m_bunch = *found;
    } catch (const QString& message) {
        emit error(message);
        return;
    }
    loadBunchRestorePoints();
}

void CommandCreateRestorePlan::loadBunchRestorePoints()
{
    try {
        auto request = QSharedPointer<Repo::RepositoryRequest>::create();
        request->setConnectionId(m_accountId);
        request->setBunchId(m_bunch.id());
        CommandChannel::sendTyped(Repo::GetBunchRestorePointList::CommandId, request, this,
                                  &CommandCreateRestorePlan::onRestorePointListResult);
    } catch (const QString& message) {
        emit error(message);
    }
}

void CommandCreateRestorePlan::onRestorePointListResult()
{
    try {
        QJsonArray items;
        if (!repositoryItems(
                this, sender(), [this] { loadBunchRestorePoints(); }, kNoPoints, &items))
            return;
        m_points = objects<RestorePoint>(items);
    } catch (const QString& message) {
        emit error(message);
        return;
    }
    loadGenerationsFromBunch();
}

void CommandCreateRestorePlan::loadGenerationsFromBunch()
{
    try {
        auto request = QSharedPointer<Repo::RepositoryRequest>::create();
        request->setConnectionId(m_accountId);
        request->setBunchId(m_bunch.id());
        CommandChannel::sendTyped(Repo::GetGenerationList::CommandId, request, this,
                                  &CommandCreateRestorePlan::onGenerationListResult);
    } catch (const QString& message) {
        emit error(message);
    }
}

void CommandCreateRestorePlan::onGenerationListResult()
{
    try {
        QJsonArray items;
        if (!repositoryItems(
                this, sender(), [this] { loadGenerationsFromBunch(); }, kNoGenerations, &items))
            return;
        m_generations = objects<Generation>(items);
    } catch (const QString& message) {
        emit error(message);
        return;
    }
    completePlan();
}

void CommandCreateRestorePlan::getRestorePointPaths(const QStringList& paths)
{
    try {
        auto request = QSharedPointer<Repo::RepositoryRequest>::create();
        request->setConnectionId(m_accountId);
        request->setBunchId(m_bunch.id());
        request->setGenerationId(m_point.generationId());
        request->setRestorePointId(m_point.id());
        request->setPaths(paths);
        // An encrypted point is read with the plan's password.
        request->setPassword(m_plan.encryptionPassword());
        CommandChannel::sendTyped(Repo::GetRestorePointPaths::CommandId, request, this,
                                  &CommandCreateRestorePlan::onRestorePointPathsResult);
    } catch (const QString& message) {
        emit error(message);
    }
}

void CommandCreateRestorePlan::onRestorePointPathsResult()
{
    try {
        QJsonArray items;
        if (!repositoryItems(
                this, sender(), [this] { getRestorePointPaths(m_pathsToCheck); }, QString(),
                &items))
            return;
        QStringList found;
        for (const QJsonValue& value : qAsConst(items)) {
            if (!value.isString())
                throw kWrongForm;
            found.append(QDir::cleanPath(value.toString()));
        }
        QStringList kept;
        for (const QString& path : qAsConst(m_pathsToCheck)) {
            if (found.contains(path))
                kept.append(path);
            else
                print(path + QStringLiteral(" - nothing to restore.\n"));
        }
        if (kept.isEmpty())
            throw kNothing;
        m_plan.setRestoreItems(kept);
        sendPlan();
    } catch (const QString& message) {
        emit error(message);
    }
}

bool CommandCreateRestorePlan::pointEncrypted() const
{
    if (m_point.isEncrypted())
        return true;
    for (const Generation& generation : m_generations)
        if (generation.id() == m_point.generationId())
            return generation.isEncrypted();
    return false;
}

bool CommandCreateRestorePlan::pointNeedsDeepSync() const
{
    if (m_point.deepSync())
        return true;
    for (const Generation& generation : m_generations)
        if (generation.id() == m_point.generationId())
            return generation.deepSync();
    return false;
}

// ---------------------------------------------------------------------------
// Filling the plan

void CommandCreateRestorePlan::completePlan()
{
    try {
        fillPlan();
        if (m_pathsToCheck.isEmpty())
            sendPlan();
        else
            getRestorePointPaths(m_pathsToCheck);
    } catch (const QString& message) {
        emit error(message);
    }
}

void CommandCreateRestorePlan::fillPlan()
{
    initPlan();
}

void CommandCreateRestorePlan::initPlan()
{
    m_plan.setName(given(m_nameOption) ? valueOf(m_nameOption)
                                       : QStringLiteral("Restore plan ") +
                                             QDateTime::currentDateTime().toString(
                                                 QStringLiteral("dd.MM.yyyy hh:mm:ss")));
    m_plan.setId(QUuid::createUuid());
    m_plan.setStorage(getStorageId());
    m_plan.setAccountId(getStorageId());
    const bool current = !given(m_bunchOption) || bunchInCurrentFormat();
    checkFormat(!current);
    m_plan.setIsArchive(!current);
    setRestoreType();
    if (given(m_bunchOption))
        initRestorePoint();
    setRestoreItems();
    setRestoreOptions();
}

bool CommandCreateRestorePlan::bunchInCurrentFormat() const
{
    const auto isCurrent = [](const Generation& generation) {
        return generation.id() == Orv::Info::Repository::kCurrentFormatGeneration;
    };
    const bool current = std::any_of(m_generations.begin(), m_generations.end(), isCurrent);
    const bool nbf =
        std::any_of(m_generations.begin(), m_generations.end(),
                    [&](const Generation& generation) { return !isCurrent(generation); });
    if (!given(m_formatOption))
        return current && !nbf;
    const bool nbfAsked = planFormatWords().value(valueOf(m_formatOption)) == Nbf;
    if (nbfAsked ? !nbf : !current)
        throw kNoBunch;
    return !nbfAsked;
}

void CommandCreateRestorePlan::checkFormat(bool nbf) const
{
    if (!given(m_formatOption))
        return;
    const bool nbfAsked = planFormatWords().value(valueOf(m_formatOption)) == Nbf;
    if (nbfAsked && !nbf)
        throw QStringLiteral("Option [ bunch ] is mandatory with [ format ] nbf.\n");
    if (!nbfAsked && nbf)
        throw QStringLiteral("Option [ bunch ] applies to the new backup format only.\n");
}

void CommandCreateRestorePlan::setRestoreType()
{
    if (given(m_restorePointOption)) {
        const QDateTime time = parsePointInTime(valueOf(m_restorePointOption));
        if (!time.isValid())
            throw QStringLiteral("Wrong point in time specified. (Date format: 'dd.MM.yyyy "
                                 "hh:mm' or 'dd/MM/yy hh:mm XM')\n");
        m_plan.setRestoreType(Restore::RestoreType::PointInTime);
        m_plan.setPointInTime(time);
    } else if (given(m_latestVersionOption)) {
        m_plan.setRestoreType(Restore::RestoreType::LatestVersion);
        m_plan.setPointInTime(QDateTime());
    }
}

void CommandCreateRestorePlan::initRestorePoint()
{
    const bool current = !m_plan.isArchive();
    QList<RestorePoint> points;
    for (const RestorePoint& point : qAsConst(m_points))
        if ((point.generationId() == Orv::Info::Repository::kCurrentFormatGeneration) == current)
            points.append(point);
    const bool atTime = m_plan.restoreType() == Restore::RestoreType::PointInTime;
    if (atTime) {
        // The new format restores a point that started within that minute;
        // the current one the state at any time: the newest run that started
        // by then, the minute included.
        const QDateTime wanted = toMinute(m_plan.pointInTime());
        const RestorePoint* found = nullptr;
        for (const RestorePoint& point : qAsConst(points)) {
            const QDateTime started = toMinute(point.startDate());
            if (current ? started <= wanted : started == wanted && !found)
                found = &point;
        }
        if (!found)
            throw QStringLiteral("Restore point does not exist. Please verify restore point "
                                 "time.\n");
        m_point = *found;
    } else {
        if (points.isEmpty())
            throw kNothing;
        m_point = points.last();
    }
    m_pointChosen = true;
    if (!current && pointNeedsDeepSync())
        throw QStringLiteral("Restore plan can't be created. Need deep sync or deep sync in "
                             "progress.\n");
    // The latest version stays the bunch alone, so that a kept plan restores
    // whatever is newest when it runs; the current format keeps its point in
    // time in the plan.
    m_plan.setRestorePoint(
        atTime && !current
            ? QStringList{m_bunch.id(), m_point.generationId(), m_point.id()}.join(QLatin1Char('/'))
            : m_bunch.id());
}

void CommandCreateRestorePlan::setRestoreItems()
{
    QStringList paths = m_plan.restoreItems();
    // The option is this command's own, outside the shared catalogue.
    if (m_parser.isSet(m_pathOption)) {
        paths.clear();
        const QStringList values = m_parser.values(m_pathOption);
        for (const QString& path : values)
            if (!path.trimmed().isEmpty())
                paths.append(QDir::cleanPath(path.trimmed()));
        paths.removeDuplicates();
    }
    if (m_pointChosen)
        m_pathsToCheck = paths;
    else
        m_plan.setRestoreItems(paths);
}

void CommandCreateRestorePlan::setRestoreOptions()
{
    RestoreFile& plan = m_plan;
    if (given(m_restoreLocationOption)) {
        plan.setRestoreToOriginalLocation(false);
        // The service does not share this process's working directory.
        plan.setDestination(
            QDir::cleanPath(QFileInfo(valueOf(m_restoreLocationOption)).absoluteFilePath()));
    }
    if (given(m_overwriteFilesOption)) {
        const bool overwrite = isTrue(m_overwriteFilesOption);
        plan.setSkipExistingFiles(!overwrite);
        if (!overwrite)
            plan.setOnlyNewFiles(false);
    }
    if (given(m_restoreNewFilesOption)) {
        if (plan.skipExistingFiles())
            throw QStringLiteral("[ restore-new-files ] can't be set separately from [ "
                                 "overwrite-files ] true.\n");
        plan.setOnlyNewFiles(isTrue(m_restoreNewFilesOption));
    }
    if (given(m_syncOption))
        plan.setSyncBeforeRun(isTrue(m_syncOption));
    if (given(m_runMissedOption))
        plan.setRunMissedPlan(isTrue(m_runMissedOption));
    if (!setSchedule(plan.schedule(), plan.isArchive(), m_schedule, plan.schedule().occursAt()))
        failPlan();
    if (given(m_notificationOption))
        plan.notification().setType(*Notification::words().value(valueOf(m_notificationOption)));
    if (given(m_detailedReportOption))
        plan.notification().setGenerateDetailedReport(isTrue(m_detailedReportOption));
    if (given(m_subjectOption))
        plan.notification().setSubject(valueOf(m_subjectOption));
    if (given(m_decryptionPasswordOption)) {
        plan.setUseEncryption(true);
        plan.setEncryptionPassword(valueOf(m_decryptionPasswordOption));
    }
    if (m_pointChosen && pointEncrypted()) {
        if (plan.encryptionPasswordSecret().isEmpty())
            throw actionType() == Create
                ? QStringLiteral("Could not create plan. Need value of the "
                                 "'--decryption-password' option.\n")
                : QStringLiteral("Could not edit restore plan. Need value of the "
                                 "'--decryption-password' option.\n");
        plan.setUseEncryption(true);
    }
    if (isAmazonS3(storageType()) && given(m_transferAccelerationOption))
        plan.storageInfo().setUseS3Accelerated(isTrue(m_transferAccelerationOption));
    if (isAmazonS3(storageType()) && given(m_glacierRetrievalRateOption))
        plan.storageInfo().setType(
            *RestoreStorageInfo::words().value(valueOf(m_glacierRetrievalRateOption)));
    if (given(m_restoreOnceOption))
        plan.setDeletePlan(isTrue(m_restoreOnceOption) ? Restore::DeleteType::OnSucceeds
                                                       : Restore::DeleteType::Never);
    // The current format always restores files deleted at the source.
    if (given(m_restoreDeletedFilesOption))
        plan.setRestoreDeletedFiles(isTrue(m_restoreDeletedFilesOption) || !plan.isArchive());
}

// ---------------------------------------------------------------------------
// Saving and starting

void CommandCreateRestorePlan::sendPlan()
{
    QString xmlError;
    // In clear: the service seals the password before it reaches the disk.
    const QString xml = m_plan.toXml(Base::SecretForm::Plain, &xmlError);
    if (xml.isEmpty())
        throw xmlError;
    CommandChannel::sendNamed(
        QLatin1String(CommonEdit::Name),
        {{QLatin1String(CommonEdit::Request::Profile), QString::fromLocal8Bit(qgetenv("USER"))},
         {QLatin1String(CommonEdit::Request::PlanXml), xml},
         {QLatin1String(CommonEdit::Request::ID), m_plan.id().toString()}},
        this, &CommandCreateRestorePlan::onCreatePlanResult,
        QStringLiteral("Communication command don't registered"));
}

void CommandCreateRestorePlan::onCreatePlanResult()
{
    QScopedPointer<CommandChannel::ICommand, QScopedPointerDeleteLater> command(
        qobject_cast<CommandChannel::ICommand*>(sender()));
    const QJsonDocument reply = command->reply();
    if (command->isError() || !command->isComplite() || reply.isNull() || !reply.isObject()) {
        emit error(QStringLiteral("Local command reply format error\nFail\n"));
        return;
    }
    if (command->isReplyError()) {
        emit error(command->replyErrorString());
        return;
    }
    print(QStringLiteral("\nSuccess\n"));
    // Only a restore-once plan runs at once; a kept plan waits for its
    // schedule or for "plan start".
    if (m_plan.deletePlan() != Restore::DeleteType::OnSucceeds) {
        emit finished(Show);
        return;
    }
    // By id: a name may be borne by older plans too.
    LoadPlanObject loader(m_plan.id());
    loader.execAndWait();
    onLoadPlanObjectResult(loader);
}

void CommandCreateRestorePlan::onLoadPlanObjectResult(LoadPlanObject& loader)
{
    const QSharedPointer<Orv::Info::PlanObject> found = loader.planObject();
    if (!found) {
        emit error(loader.errorString());
        return;
    }
    if (found->status().isRunning()) {
        emit finished(Show);
        return;
    }
    startPlan();
}

void CommandCreateRestorePlan::startPlan()
{
    try {
        auto request = QSharedPointer<StartPlan::Request>::create();
        request->setPlanId(m_plan.id());
        CommandChannel::sendTyped(StartPlan::CommandId, request, this,
                                  &CommandCreateRestorePlan::onStartPlanResult);
    } catch (const QString& message) {
        emit error(message);
    }
}

void CommandCreateRestorePlan::onStartPlanResult()
{
    using EmptyResponse = Orv::Common::Communication::V2::Plan::EmptyResponse;
    QScopedPointer<CommandChannel::TypedCommand, QScopedPointerDeleteLater> command(
        qobject_cast<CommandChannel::TypedCommand*>(sender()));
    try {
        if (!CommandChannel::typedResponse<EmptyResponse>(command.data(), this,
                                                          [this] { startPlan(); }))
            return;
    } catch (const QString& message) {
        emit error(message);
        return;
    }
    emit finished(Show);
}

} // namespace Orv::CLI
