#include "CommandStorage.h"

#include "CommandChannel.h"
#include "Console.h"
#include "account/Sync.h"
#include "orvCommon/Communication/Manager.h"
#include "orvCommon/Communication/V2/GetConnection.h"

#include <QLocale>
#include <QRegularExpression>
#include <QScopedPointer>

namespace Orv::CLI {

namespace Repository = Orv::Common::Communication::V2::Repository;
using GetConnection = Orv::Common::Communication::V2::GetConnection;
using TypedCommand = Orv::Common::Communication::V2::Command;

namespace {

const QString kWrongResponse = QStringLiteral("Internal error: invalid command response format");

// The objects of a list response; one the service wrote in another form
// means the whole response is not what was asked for.
template <typename Object> QList<Object> objects(const QJsonArray& items)
{
    QList<Object> list;
    for (const QJsonValue& item : items) {
        Object object;
        if (!item.isObject() || !object.fromJson(item.toObject()))
            throw kWrongResponse;
        list.append(object);
    }
    return list;
}

// Bunch ids are plan ids: with or without braces, any case.
bool sameBunchId(const QString& id, const QString& wanted)
{
    const QUuid uuid(wanted);
    return uuid.isNull() ? id == wanted : QUuid(id) == uuid;
}

// The point's start within the minute the user wrote.
bool sameMinute(const QDateTime& time, const QDateTime& minute)
{
    const QDateTime local = time.toLocalTime();
    return local.date() == minute.date() && local.time().hour() == minute.time().hour() &&
           local.time().minute() == minute.time().minute();
}

} // namespace

const CommandStorage::Texts CommandStorage::kStepTexts{
    CommandChannel::kManagerMissing, QStringLiteral("Communication command don't registered")};

CommandStorage::CommandStorage(const QString& name, const QString& description, bool browsing,
                               QObject* parent)
    : CommandBase(name, description, parent),
      m_accountOption(QStringList{QStringLiteral("a"), QStringLiteral("account")},
                      QStringLiteral("Storage account name"), QStringLiteral("name")),
      m_accountIdOption(QStringList{QStringLiteral("i"), QStringLiteral("account-id")},
                        QStringLiteral("Storage account ID"), QStringLiteral("id")),
      m_bunchOption(QStringList{QStringLiteral("b"), QStringLiteral("bunch")},
                    QStringLiteral("Bunch name"), QStringLiteral("name")),
      m_bunchIdOption(QStringLiteral("bunch-id"), QStringLiteral("Bunch ID"), QStringLiteral("id")),
      m_generationOption(QStringList{QStringLiteral("g"), QStringLiteral("generation")},
                         QStringLiteral("Generation ID"), QStringLiteral("id")),
      m_restoreOption(QStringList{QStringLiteral("r"), QStringLiteral("restore")},
                      QStringLiteral("Restore point (dd.mm.yy hh:mm)"), QStringLiteral("time")),
      m_pathOption(QStringLiteral("path"),
                   QStringLiteral("Specifies the path whose contents you would like to list."),
                   QStringLiteral("path")),
      m_limitOption(QStringLiteral("limit"),
                    QStringLiteral("Specifies the maximum number of items to display from the "
                                   "top of the list."),
                    QStringLiteral("count")),
      m_offsetOption(QStringLiteral("offset"),
                     QStringLiteral("Specifies the offset (number of the items) from the top of "
                                    "the list to display the number of items specified by the  "
                                    "- limit parameter."),
                     QStringLiteral("count")),
      m_allOption(QStringLiteral("all"), QStringLiteral("Show all restore points")),
      m_hintOption(QStringList{QStringLiteral("h"), QStringLiteral("hint")},
                   QStringLiteral("Displays hint for selected generation"))
{
    addOption(m_accountOption, true);
    addOption(m_accountIdOption, true);
    addOption(m_bunchOption, true);
    addOption(m_bunchIdOption, true);
    addOption(m_generationOption, true);
    m_browsing = browsing;
    if (!browsing)
        return;
    addOption(m_restoreOption, true);
    addOption(m_pathOption, true);
    addOption(m_limitOption, true);
    addOption(m_offsetOption, true);
    addOption(m_allOption, true);
    addOption(m_hintOption);
}

int CommandStorage::process(const QStringList& words)
{
    const int parsed = exec(words);
    if (parsed != Started)
        return parsed;
    if (!checkSharedOptions() || !checkOwnOptions())
        return Unknown;
    storageList();
    return Started;
}

bool CommandStorage::checkSharedOptions()
{
    return checkMandatoryParams(m_accountOption, m_accountIdOption) &&
           checkIncompatibleParams(m_accountOption, m_accountIdOption) &&
           checkIncompatibleParams(m_bunchOption, m_bunchIdOption) &&
           (!m_browsing || (readLimitAndOffset() && readRestoreTime()));
}

bool CommandStorage::readLimitAndOffset()
{
    bool ok = true;
    if (isSet(m_limitOption)) {
        m_limit = valueOf(m_limitOption).toInt(&ok);
        if (!ok || m_limit <= 0) {
            print(QStringLiteral("Limit value should be greater zero.\n"));
            return false;
        }
    }
    if (isSet(m_offsetOption)) {
        m_offset = valueOf(m_offsetOption).toInt(&ok);
        if (!ok || m_offset < 0) {
            print(QStringLiteral("Offset value should not be negative.\n"));
            return false;
        }
    }
    return true;
}

bool CommandStorage::readRestoreTime()
{
    if (!isSet(m_restoreOption)) {
        if (!isSet(m_pathOption))
            return true;
        print(QStringLiteral("Option [ r,restore ] is mandatory with [ path ].\n"));
        return false;
    }
    const QString text = valueOf(m_restoreOption);
    // dd.mm.yy hh:mm, the year also with four digits; two digits are this century.
    static const QRegularExpression form(
        QStringLiteral("^(\\d{1,2})\\.(\\d{1,2})\\.(\\d{4}|\\d{2})\\s+(\\d{1,2}):(\\d{2})$"));
    const QRegularExpressionMatch match = form.match(text);
    if (match.hasMatch()) {
        const int year = match.captured(3).toInt();
        const QDate date(year < 100 ? 2000 + year : year, match.captured(2).toInt(),
                         match.captured(1).toInt());
        const QTime time(match.captured(4).toInt(), match.captured(5).toInt());
        if (date.isValid() && time.isValid()) {
            m_restoreTime = QDateTime(date, time, Qt::LocalTime);
            return true;
        }
    }
    print(QStringLiteral("Wrong restore point: %1 (expected dd.mm.yy hh:mm).\n").arg(text));
    return false;
}

// ---------------------------------------------------------------------------
// Requests

void CommandStorage::send(const QUuid& commandId,
                          const QSharedPointer<TypedCommand::Request>& request, const Texts& texts,
                          const Handler& next)
{
    try {
        QPointer<Orv::Common::Communication::Manager> manager =
            Orv::Common::Communication::Manager::instance();
        if (!manager)
            throw texts.managerMissing;
        TypedCommand* command = manager->commandFactoryV2(commandId);
        if (!command)
            throw texts.notRegistered;
        command->setRequest(request);
        // Exactly one of the three signals ends the exchange.
        const auto judge = [this, command, commandId, request, texts, next] {
            QScopedPointer<TypedCommand, QScopedPointerDeleteLater> done(command);
            try {
                const QSharedPointer<Response> response = CommandChannel::typedResponseBase(
                    command, this, [this, commandId, request, texts, next] {
                        send(commandId, request, texts, next);
                    });
                if (command->status() != TypedCommand::Done)
                    return;
                if (!response)
                    throw kWrongResponse;
                next(response);
            } catch (const QString& message) {
                emit error(message);
            }
        };
        connect(command, &TypedCommand::complite, this, judge);
        connect(command, &TypedCommand::error, this, judge);
        connect(command, &TypedCommand::timeout, this, judge);
        command->exec();
    } catch (const QString& message) {
        emit error(message);
    }
}

void CommandStorage::fetchList(const QUuid& commandId, const QSharedPointer<Request>& request,
                               const std::function<void(const ListResponse&)>& next,
                               const Texts& texts)
{
    send(commandId, request, texts, [next](const QSharedPointer<Response>& response) {
        const auto list = response.dynamicCast<ListResponse>();
        if (!list)
            throw kWrongResponse;
        next(*list);
    });
}

void CommandStorage::sendAction(const QUuid& commandId, const QSharedPointer<Request>& request,
                                const std::function<void()>& done)
{
    send(commandId, request, kStepTexts, [done](const QSharedPointer<Response>&) { done(); });
}

QSharedPointer<CommandStorage::Request>
CommandStorage::newRequest(const Bunch* bunch, const Generation* generation) const
{
    auto request = QSharedPointer<Request>::create();
    request->setConnectionId(m_connectionId);
    if (bunch)
        request->setBunchId(bunch->id());
    if (generation)
        request->setGenerationId(generation->id());
    return request;
}

// ---------------------------------------------------------------------------
// The walk

void CommandStorage::storageList()
{
    send(GetConnection::CommandId, QSharedPointer<GetConnection::Request>::create(), kStepTexts,
         [this](const QSharedPointer<Response>& response) { onAccountList(response); });
}

void CommandStorage::onAccountList(const QSharedPointer<Response>& response)
{
    const auto accounts = response.dynamicCast<GetConnection::Response>();
    if (!accounts)
        throw kWrongResponse;
    const QString name = isSet(m_accountOption) ? valueOf(m_accountOption) : QString();
    const QString id = valueOf(m_accountIdOption);
    const QJsonArray connections = accounts->connections();
    for (const QJsonValue& value : connections) {
        const QJsonObject record = value.toObject();
        if (!Sync::matches(record, name, id))
            continue;
        m_accountName = record.value(QStringLiteral("DisplayName")).toString();
        m_connectionId = QUuid(record.value(QStringLiteral("ID")).toString());
        accountFound();
        return;
    }
    throw QStringLiteral("Error: specified account doesn't exist");
}

void CommandStorage::fetchBunches(const std::function<void(const QList<Bunch>&)>& next)
{
    fetchList(Repository::GetBunchList::CommandId, newRequest(),
              [next](const ListResponse& response) { next(objects<Bunch>(response.items())); });
}

void CommandStorage::fetchGenerations(const Bunch& bunch,
                                      const std::function<void(const QList<Generation>&)>& next)
{
    fetchList(
        Repository::GetGenerationList::CommandId, newRequest(&bunch),
        [next](const ListResponse& response) { next(objects<Generation>(response.items())); });
}

void CommandStorage::fetchRestorePoints(const Bunch& bunch, const Generation& generation,
                                        const std::function<void(const QList<RestorePoint>&)>& next)
{
    fetchList(
        Repository::GetRestorePointList::CommandId, newRequest(&bunch, &generation),
        [next](const ListResponse& response) { next(objects<RestorePoint>(response.items())); });
}

void CommandStorage::fetchContent(
    const Bunch& bunch, const Generation& generation, const RestorePoint& point, int limit,
    int offset, const std::function<void(const QList<ContentObject>&, const ListResponse&)>& next)
{
    const QSharedPointer<Request> request = newRequest(&bunch, &generation);
    request->setRestorePointId(point.id());
    request->setRestorePointTime(point.startDate());
    request->setPath(valueOf(m_pathOption));
    request->setLimit(limit);
    request->setOffset(offset);
    fetchList(
        Repository::GetContent::CommandId, request,
        [next](const ListResponse& response) {
            next(objects<ContentObject>(response.items()), response);
        },
        {QStringLiteral("Communication manager is 0x00."), QStringLiteral("Command is 0x00.")});
}

// ---------------------------------------------------------------------------
// Selection

bool CommandStorage::isSelectedBunch(const Bunch& bunch) const
{
    if (isSet(m_bunchOption))
        return bunch.displayName() == valueOf(m_bunchOption);
    if (isSet(m_bunchIdOption))
        return sameBunchId(bunch.id(), valueOf(m_bunchIdOption));
    return true;
}

bool CommandStorage::isSelectedGeneration(const Generation& generation) const
{
    return !isSet(m_generationOption) || generation.id() == valueOf(m_generationOption);
}

bool CommandStorage::isSelectedRestorePoint(const RestorePoint& point) const
{
    return !m_restoreTime.isValid() || sameMinute(point.startDate(), m_restoreTime);
}

CommandStorage::Bunch CommandStorage::selectedBunch(const QList<Bunch>& bunches) const
{
    for (const Bunch& bunch : bunches)
        if (isSelectedBunch(bunch))
            return bunch;
    throw QStringLiteral("Error: specified bunch doesn't exist");
}

CommandStorage::Generation
CommandStorage::selectedGeneration(const QList<Generation>& generations) const
{
    for (const Generation& generation : generations)
        if (isSelectedGeneration(generation))
            return generation;
    throw QStringLiteral("Error: specified generation doesn't exist");
}

QString CommandStorage::timeText(const QDateTime& time)
{
    return QLocale::system().toString(time.toLocalTime(), QLocale::ShortFormat);
}

QString CommandStorage::decodedHint(const Generation& generation)
{
    return QString::fromUtf8(QByteArray::fromBase64(generation.hint()));
}

} // namespace Orv::CLI
